#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "Descriptors.h"
#include "MutexCalls.h"
#include "tovu/util/StatusParams.h"

// Includes MutexCalls.h, so include it in one source file only.

namespace tovu { namespace test {

/// One of the registry's static members, by the name that it is exported with.
inline void* Exported(char const* name)
{
    void* const address = dlsym(RTLD_DEFAULT, name);
    EXPECT_NE(nullptr, address) << name;
    return address;
}

/// The registry itself.
inline std::map<std::string, util::StatusParams::DISK_INFO> const& Entries()
{
    typedef std::map<std::string, util::StatusParams::DISK_INFO> Map;
    return *static_cast<Map const*>(Exported("_ZN4tovu4util12StatusParams12_diskInfoMapB5cxx11E"));
}

/// An entry as one text: its action and its status.
constexpr char const* NO_ENTRY = "none";
constexpr char const* IDLE = "idle: normal";
constexpr char const* STALLED_BY_DISK = "stalled: out of disk space";
constexpr char const* STALLED_BY_MEMORY = "stalled: out of memory";

/// The entry of a volume.
inline std::string EntryOf(std::string const& volume)
{
    util::StatusParams::DISK_INFO info;
    return util::StatusParams::GetDiskInfo(volume, info) ? info.action + ": " + info.status : NO_ENTRY;
}

/// Gives a volume an entry, or takes it away.
inline void SetEntry(std::string const& volume, std::string const& text)
{
    if (text == NO_ENTRY) {
        util::StatusParams::RemoveDiskInfo(volume);
        return;
    }
    std::string::size_type const colon = text.find(": ");
    util::StatusParams::DISK_INFO info;
    info.action = text.substr(0, colon);
    info.status = text.substr(colon + 2);
    util::StatusParams::SetDiskInfo(volume, info);
}

/// The mutex calls of an operation in order, and whether all are on the registry's own mutex.
inline std::string LocksOf(std::function<void()> const& operation)
{
    MutexCalls const calls(operation);
    void const* const mutex = Exported("_ZN4tovu4util12StatusParams6_mutexE");
    for (MutexCall const& call : calls.All())
        EXPECT_EQ(mutex, call.mutex) << call.function;
    return calls.Names();
}

/// True while the thread holds a mutex that it took in the action of a MutexCalls.
inline bool HoldsALock()
{
    MutexCalls const* const calls = MutexCalls::Running();
    return calls != nullptr && calls->Count("lock") != calls->Count("unlock");
}

/// A volume that the system does not know; it has an entry only when the test gives it one.
class StatusFixture : public testing::Test
{
protected:
    StatusFixture() { EXPECT_TRUE(Entries().empty()) << "there are entries from the beginning"; }

    ~StatusFixture() override
    {
        while (!Entries().empty())
            util::StatusParams::RemoveDiskInfo(std::string(Entries().begin()->first));
        EXPECT_EQ(descriptors_, CountDescriptors());
    }

    std::size_t const descriptors_ = CountDescriptors();
    std::string const volume_ = "/volumes/photos";
    std::string const other_ = "/volumes/music";
};

}}  // namespace tovu::test
