#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "AllocationCounter.h"

namespace tovu { namespace test {

/// What something takes from operator new: how many blocks, and how many bytes in all.
struct Cost
{
    std::size_t blocks;
    std::size_t bytes;
};

constexpr Cost NO_COST = {0, 0};

inline bool operator==(Cost const& left, Cost const& right)
{
    return left.blocks == right.blocks && left.bytes == right.bytes;
}

inline Cost operator+(Cost const& left, Cost const& right)
{
    return {left.blocks + right.blocks, left.bytes + right.bytes};
}

inline std::ostream& operator<<(std::ostream& stream, Cost const& cost)
{
    return stream << cost.blocks << " blocks of " << cost.bytes << " bytes in all";
}

/// What the calling thread takes while it runs `action`.
template <typename Action>
Cost CostOf(Action action)
{
    AllocationCounter const counter;
    action();
    return {counter.Blocks(), counter.Bytes()};
}

/// What a text takes that is made in its final size: nothing when the string object has room for it.
inline Cost CostOfText(std::string const& text)
{
    return text.size() <= std::string().capacity() ? NO_COST : Cost{1, text.size() + 1};
}

/// What one entry of a std::list takes.
template <typename Element>
Cost CostOfListEntry()
{
    struct Node
    {
        void* links[2];
        Element element;
    };
    return {1, sizeof(Node)};
}

}}  // namespace tovu::test
