#pragma once

#include <vector>

#include "VirtualSlots.h"
#include "tovu/util/RandomSeekStream.h"
#include "tovu/util/Stream.h"

namespace tovu { namespace test {

/// A stream that only notes which operations are called.
template <typename Base>
class NotingStream : public Noting<Base>
{
public:
    using Noting<Base>::Noting;

    bool IsOpen() const override { return this->Note("IsOpen"); }
    void Close() override { this->Note("Close"); }
    bool Flush() override { return this->Note("Flush"); }
    bool IsDataAvailable(unsigned long long* /*count*/) override { return this->Note("IsDataAvailable"); }
    int Read(void* /*buffer*/, unsigned int /*length*/) override { return this->Note("Read"); }
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return this->Note("Write"); }
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

/// The operations of a stream, in the order of their slots.
inline std::vector<Slot> StreamSlots()
{
    return {SlotOf<bool>("IsOpen"),       SlotOf<void>("Close"),
            SlotOf<bool>("Flush"),        SlotOf<bool>("IsDataAvailable", ANY),
            SlotOf<int>("Read", ANY, 0u), SlotOf<int>("Write", ANY, 0u)};
}

/// Those of a stream that can be positioned.
inline std::vector<Slot> SeekStreamSlots()
{
    std::vector<Slot> slots = StreamSlots();
    slots.push_back(SlotOf<unsigned long long>("Tell"));
    slots.push_back(SlotOf<unsigned long long>("Seek", 0LL, 0));
    slots.push_back(SlotOf<void>("LockRegion", ANY, false));
    slots.push_back(SlotOf<void>("UnlockRegion", ANY));
    return slots;
}

}}  // namespace tovu::test
