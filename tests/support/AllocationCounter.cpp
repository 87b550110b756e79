#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace tovu { namespace test {

namespace {

// In front of every block: the size that was asked for. Keeps the block aligned for anything.
union Header
{
    std::size_t size;
    std::max_align_t alignment;
};

struct Totals
{
    std::size_t blocks = 0;
    std::size_t bytes = 0;
    std::ptrdiff_t heldBytes = 0;
};
thread_local Totals totals;

void* Allocate(std::size_t size)
{
    auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
    if (header == nullptr)
        return nullptr;

    header->size = size;
    ++totals.blocks;
    totals.bytes += size;
    totals.heldBytes += static_cast<std::ptrdiff_t>(size);
    return header + 1;
}

void Free(void* memory)
{
    if (memory == nullptr)
        return;

    Header* const header = static_cast<Header*>(memory) - 1;
    totals.heldBytes -= static_cast<std::ptrdiff_t>(header->size);
    std::free(header);
}

}  // namespace

AllocationCounter::AllocationCounter() : blocks_(totals.blocks), bytes_(totals.bytes), heldBytes_(totals.heldBytes) {}

std::size_t AllocationCounter::Blocks() const
{
    return totals.blocks - blocks_;
}

std::size_t AllocationCounter::Bytes() const
{
    return totals.bytes - bytes_;
}

std::ptrdiff_t AllocationCounter::HeldBytes() const
{
    return totals.heldBytes - heldBytes_;
}

}}  // namespace tovu::test

// They stay functions of their own: an optimiser that sees only one of a pair takes it for a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return tovu::test::Allocate(size);
}

__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* const memory = tovu::test::Allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

// The arrays as well: a sanitizer has functions of its own for them, which do not come here.
__attribute__((noinline)) void* operator new[](std::size_t size)
{
    return operator new(size);
}

__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    tovu::test::Free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    tovu::test::Free(memory);
}

__attribute__((noinline)) void operator delete[](void* memory) noexcept
{
    tovu::test::Free(memory);
}

__attribute__((noinline)) void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    tovu::test::Free(memory);
}
