#include "Census.h"

#include <dirent.h>
#include <sched.h>

#include <chrono>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "Descriptors.h"
#include "FaultShim.h"

namespace tovu { namespace test {

namespace {

constexpr std::chrono::seconds SETTLING{5};  // for threads that have ended to leave the system's books

// Counts the pieces of memory that the parser holds.
class ParserPieces : public xercesc::MemoryManager
{
public:
    void* allocate(XMLSize_t size) override
    {
        void* const piece = source_->allocate(size);
        ++count_;
        return piece;
    }

    void deallocate(void* piece) override
    {
        if (piece != nullptr)
            --count_;
        source_->deallocate(piece);
    }

    xercesc::MemoryManager* getExceptionMemoryManager() override { return source_->getExceptionMemoryManager(); }

    void Install()
    {
        if (source_ == nullptr)
            source_ = xercesc::XMLPlatformUtils::fgMemoryManager;
        xercesc::XMLPlatformUtils::fgMemoryManager = this;
    }

    void Remove()
    {
        if (source_ != nullptr)
            xercesc::XMLPlatformUtils::fgMemoryManager = source_;
    }

    long Count() const { return count_; }

private:
    xercesc::MemoryManager* source_ = nullptr;
    long count_ = 0;
};

// What the parser makes with it may live longer than the tests.
ParserPieces& TheParserPieces()
{
    static ParserPieces* const pieces = new ParserPieces;
    return *pieces;
}

std::size_t CountThreads()
{
    DIR* const folder = opendir("/proc/self/task");
    std::size_t count = 0;
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

}  // namespace

Census Census::Take()
{
    long const pieces = TheParserPieces().Count();
    long const allocations = CountAllocations() - pieces;
    return {CountDescriptors(), CountThreads(), allocations, pieces};
}

bool Census::HasTheResourcesOf(Census const& other) const
{
    return descriptors == other.descriptors && threads >= other.threads;
}

bool Census::HasTheMemoryOf(Census const& other, bool withParser) const
{
    return allocations == other.allocations && (!withParser || parserPieces == other.parserPieces);
}

Census Census::Await(Census const& before)
{
    auto const deadline = std::chrono::steady_clock::now() + SETTLING;
    Census now = Take();
    while (now.threads > before.threads && std::chrono::steady_clock::now() < deadline) {
        sched_yield();
        now = Take();
    }
    return now;
}

std::string Difference(Census const& before, Census const& after)
{
    auto const difference = [](long left, long right) { return std::to_string(right - left); };
    return "descriptors " + difference(static_cast<long>(before.descriptors), static_cast<long>(after.descriptors)) +
           ", threads " + difference(static_cast<long>(before.threads), static_cast<long>(after.threads)) +
           ", allocations " + difference(before.allocations, after.allocations) + ", of the parser " +
           difference(before.parserPieces, after.parserPieces);
}

void CountParserPieces()
{
    TheParserPieces().Install();
}

void StopCountingParserPieces()
{
    TheParserPieces().Remove();
}

}}  // namespace tovu::test
