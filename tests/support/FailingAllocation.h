#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

// Defines the allocation functions for the whole program, so include it in one source file only.

namespace tovu { namespace test {

/// Lets the next allocation of this thread that is not smaller than `least` fail, the library's included. Only one
/// fails, and none after the scope. One scope at a time for each thread.
class FailingAllocation
{
public:
    explicit FailingAllocation(std::size_t least = 1) { Least() = least; }
    FailingAllocation(FailingAllocation const&) = delete;
    FailingAllocation& operator=(FailingAllocation const&) = delete;
    ~FailingAllocation() { Least() = 0; }

    bool HasFailed() const { return Least() == 0; }

    /// What operator new returns, or null for the one that fails.
    static void* Allocate(std::size_t size)
    {
        if (Least() != 0 && size >= Least()) {
            Least() = 0;
            errno = ENOMEM;
            return nullptr;
        }
        return std::malloc(size == 0 ? 1 : size);
    }

private:
    // The size from which on the next allocation fails; 0 when none does.
    static std::size_t& Least()
    {
        static thread_local std::size_t least = 0;
        return least;
    }
};

}}  // namespace tovu::test

// They stay functions of their own: an optimiser that sees only one of a pair takes it for a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return tovu::test::FailingAllocation::Allocate(size);
}

__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* const memory = tovu::test::FailingAllocation::Allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
