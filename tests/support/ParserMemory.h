#pragma once

#include <cstddef>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace tovu { namespace test {

/// Stands in for the parser's global memory manager for the length of a scope, and counts what goes through it.
class ParserMemory : public xercesc::MemoryManager
{
public:
    /// \param source Where the memory comes from; null for the manager that is replaced.
    explicit ParserMemory(xercesc::MemoryManager* source = nullptr)
        : before_(xercesc::XMLPlatformUtils::fgMemoryManager), source_(source != nullptr ? source : before_)
    {
        xercesc::XMLPlatformUtils::fgMemoryManager = this;
    }
    ParserMemory(ParserMemory const&) = delete;
    ParserMemory& operator=(ParserMemory const&) = delete;
    ~ParserMemory() override { xercesc::XMLPlatformUtils::fgMemoryManager = before_; }

    /// How many blocks were taken, given back or not.
    std::size_t Taken() const { return taken_; }

    /// How many blocks were taken and not given back.
    std::size_t Held() const { return taken_ - returned_; }

    void* allocate(XMLSize_t size) override
    {
        ++taken_;
        return source_->allocate(size);
    }

    void deallocate(void* block) override
    {
        if (block != nullptr)
            ++returned_;
        source_->deallocate(block);
    }

    xercesc::MemoryManager* getExceptionMemoryManager() override { return source_->getExceptionMemoryManager(); }

private:
    xercesc::MemoryManager* const before_;
    xercesc::MemoryManager* const source_;
    std::size_t taken_ = 0;
    std::size_t returned_ = 0;
};

}}  // namespace tovu::test
