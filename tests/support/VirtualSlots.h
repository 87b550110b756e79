#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

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

/// A `Base` that can note which operations are called, with an operation behind all of its base's.
template <typename Base>
class Noting : public Base
{
public:
    using Base::Base;

    virtual void Added() { Note("Added"); }

    mutable std::vector<std::string> notes;

protected:
    bool Note(char const* operation) const
    {
        notes.push_back(operation);
        return false;
    }
};

/// An operation, and a call of the slot that it is expected in.
struct Slot
{
    char const* operation;
    std::function<void(void* object, std::size_t number)> call;
};

/// What stands for an argument that is taken by reference and not looked at.
constexpr void const* ANY = nullptr;

template <typename Result, typename... Arguments>
Slot SlotOf(char const* operation, Arguments... arguments)
{
    return {operation,
            [=](void* object, std::size_t number) { CallVirtualSlot<Result>(object, number, arguments...); }};
}

/// Expects the destructors, then the operations in this order, and nothing behind them. `Class` is a Noting of the class
/// in question that overrides each of them, and needs no arguments.
template <typename Class>
void ExpectSlots(std::vector<Slot> slots)
{
    ExpectDestructorsInSlots0And1<Class>();

    Class object;
    std::size_t number = 2;
    slots.push_back(SlotOf<void>("Added"));
    for (Slot const& slot : slots) {
        object.notes.clear();
        slot.call(&object, number);
        EXPECT_EQ(std::vector<std::string>{slot.operation}, object.notes) << "in slot " << number;
        ++number;
    }
}

}}  // namespace tovu::test
