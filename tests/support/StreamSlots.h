#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "VirtualSlots.h"
#include "tovu/util/RandomSeekStream.h"
#include "tovu/util/Stream.h"

namespace tovu { namespace test {

/// A stream that only notes which operations are called.
template <typename Base>
class NotingStream : public Base
{
public:
    using Base::Base;

    bool IsOpen() const override { return Note("IsOpen"); }
    void Close() override { Note("Close"); }
    bool Flush() override { return Note("Flush"); }
    bool IsDataAvailable(unsigned long long* /*count*/) override { return Note("IsDataAvailable"); }
    int Read(void* /*buffer*/, unsigned int /*length*/) override { return Note("Read"); }
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return Note("Write"); }

    mutable std::vector<std::string> notes;

protected:
    bool Note(char const* operation) const
    {
        notes.push_back(operation);
        return false;
    }
};

/// The same for a stream that can be positioned.
template <typename Base>
class NotingSeekStream : public NotingStream<Base>
{
public:
    using NotingStream<Base>::NotingStream;

    unsigned long long Tell() override { return this->Note("Tell"); }
    unsigned long long Seek(long long /*offset*/, int /*whence*/) override { return this->Note("Seek"); }
    void LockRegion(util::RandomSeekStream::Region const& /*region*/, bool /*exclusive*/) override
    {
        this->Note("LockRegion");
    }
    void UnlockRegion(util::RandomSeekStream::Region const& /*region*/) override { this->Note("UnlockRegion"); }
};

/// The operation that is expected in a slot, and a call of it.
template <typename Class>
struct Slot
{
    std::size_t number;
    char const* operation;
    void (*call)(Class& stream, std::size_t slot);
};

template <typename Class>
std::vector<Slot<Class>> StreamSlots()
{
    return {
        {2, "IsOpen", [](Class& stream, std::size_t slot) { CallVirtualSlot<bool>(&stream, slot); }},
        {3, "Close", [](Class& stream, std::size_t slot) { CallVirtualSlot<void>(&stream, slot); }},
        {4, "Flush", [](Class& stream, std::size_t slot) { CallVirtualSlot<bool>(&stream, slot); }},
        {5, "IsDataAvailable",
         [](Class& stream, std::size_t slot) {
             CallVirtualSlot<bool>(&stream, slot, static_cast<unsigned long long*>(nullptr));
         }},
        {6, "Read",
         [](Class& stream, std::size_t slot) { CallVirtualSlot<int>(&stream, slot, static_cast<void*>(nullptr), 0u); }},
        {7, "Write",
         [](Class& stream, std::size_t slot) {
             CallVirtualSlot<int>(&stream, slot, static_cast<void const*>(nullptr), 0u);
         }},
    };
}

template <typename Class>
std::vector<Slot<Class>> SeekStreamSlots()
{
    static util::RandomSeekStream::Region const region = {0, 0};
    return {
        {8, "Tell", [](Class& stream, std::size_t slot) { CallVirtualSlot<unsigned long long>(&stream, slot); }},
        {9, "Seek",
         [](Class& stream, std::size_t slot) { CallVirtualSlot<unsigned long long>(&stream, slot, 0LL, 0); }},
        {10, "LockRegion",
         [](Class& stream, std::size_t slot) { CallVirtualSlot<void>(&stream, slot, &region, false); }},
        {11, "UnlockRegion", [](Class& stream, std::size_t slot) { CallVirtualSlot<void>(&stream, slot, &region); }},
    };
}

/// Expects each of the slots to hold its operation.
template <typename Class>
void ExpectSlots(std::vector<Slot<Class>> const& slots, Class& stream)
{
    for (Slot<Class> const& slot : slots) {
        stream.notes.clear();
        slot.call(stream, slot.number);
        EXPECT_EQ(std::vector<std::string>{slot.operation}, stream.notes) << "in slot " << slot.number;
    }
}

}}  // namespace tovu::test
