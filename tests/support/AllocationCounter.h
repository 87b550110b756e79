#pragma once

#include <cstddef>

namespace tovu { namespace test {

/// Counts what the calling thread takes from operator new while the counter lives, the library's part included. The
/// program has AllocationCounter.cpp among its sources, which replaces the allocation functions.
class AllocationCounter
{
public:
    AllocationCounter();
    AllocationCounter(AllocationCounter const&) = delete;
    AllocationCounter& operator=(AllocationCounter const&) = delete;

    /// How many blocks were allocated, those that were freed again included.
    std::size_t Blocks() const;

    /// How many bytes were asked for in them.
    std::size_t Bytes() const;

    /// By how many bytes more than before the thread now holds; negative after it has freed what it held.
    std::ptrdiff_t HeldBytes() const;

private:
    std::size_t blocks_;
    std::size_t bytes_;
    std::ptrdiff_t heldBytes_;
};

}}  // namespace tovu::test
