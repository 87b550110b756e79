#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>

namespace tovu { namespace test {

/// Calls whatever stands in a slot of an object's table of virtual operations, as a program does that was built against
/// an earlier header.
template <typename Result, typename... Arguments>
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
Result
CallVirtualSlot(void* object, std::size_t slot, Arguments... arguments)
{
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    Result (*operation)(void*, Arguments...) = nullptr;
    std::memcpy(&operation, table + slot, sizeof(operation));
    return operation(object, arguments...);
}

/// A `Base` that counts how many of its kind were destroyed, and how many of those were freed.
template <typename Base>
class CountedObject : public Base
{
public:
    struct Counts
    {
        unsigned destroyed;
        unsigned freed;
    };

    using Base::Base;
    ~CountedObject() override { ++counts.destroyed; }

    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* memory)
    {
        ++counts.freed;
        ::operator delete(memory);
    }

    static Counts counts;
};

template <typename Base>
typename CountedObject<Base>::Counts CountedObject<Base>::counts = {};

/// Expects the destructor in slot 0, and in slot 1 the one that also frees the object.
template <typename Class>
void ExpectDestructorsInSlots0And1()
{
    using Counted = CountedObject<Class>;
    Counted::counts = {};

    alignas(Counted) unsigned char memory[sizeof(Counted)];
    CallVirtualSlot<void>(::new (static_cast<void*>(memory)) Counted, 0);
    EXPECT_EQ(1u, Counted::counts.destroyed);
    EXPECT_EQ(0u, Counted::counts.freed);

    CallVirtualSlot<void>(new Counted, 1);
    EXPECT_EQ(2u, Counted::counts.destroyed);
    EXPECT_EQ(1u, Counted::counts.freed);
}

/// Where a member stands in its object, in bytes.
template <typename Object, typename Member>
std::size_t OffsetOf(Object const& object, Member const& member)
{
    return static_cast<std::size_t>(reinterpret_cast<unsigned char const*>(&member) -
                                    reinterpret_cast<unsigned char const*>(&object));
}

/// The member that stands at an offset.
template <typename Member, typename Object>
Member const& MemberAt(Object const& object, std::size_t offset)
{
    return *reinterpret_cast<Member const*>(reinterpret_cast<unsigned char const*>(&object) + offset);
}

}}  // namespace tovu::test
