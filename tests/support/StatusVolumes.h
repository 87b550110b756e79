#pragma once

#include <sys/statvfs.h>

#include <functional>
#include <string>
#include <vector>

#include "CFunction.h"
#include "StatusRegistry.h"
#include "tovu/db/DB.h"

// Defines statvfs(3) for the program, so include it in one source file only. On a 32-bit build, where that file is to be
// compiled with 64-bit offsets like the library's, this is statvfs64.

namespace tovu { namespace test {

using StatvfsFunction = CFunction<int(char const*, struct statvfs*)>;

inline StatvfsFunction& StatvfsCall()
{
    static StatvfsFunction call(sizeof(long) == 4 ? "statvfs64" : "statvfs");
    return call;
}

/// The most free bytes that a volume is low on space with, and the least that are enough.
constexpr unsigned long long LOW = 262144000;
constexpr unsigned long long ENOUGH = 262144001;

/// Every volume has this many bytes free for the length of a scope. The other numbers that statvfs(3) gives are
/// misleading.
class FreeSpace
{
public:
    explicit FreeSpace(unsigned long long bytes) : FreeSpace(1, bytes) {}

    FreeSpace(unsigned long blockSize, unsigned long long blocks)
        : replacement_(StatvfsCall(), [this, blockSize, blocks](char const* path, struct statvfs* volume) {
              asked.emplace_back(path);
              underALock = underALock || HoldsALock();
              if (during)
                  during();
              *volume = {};
              volume->f_bsize = blockSize;
              volume->f_frsize = 3;
              volume->f_blocks = 5;
              volume->f_bfree = blocks;
              volume->f_bavail = 7;
              volume->f_favail = 11;
              volume->f_ffree = 13;
              return result;
          })
    {}

    std::vector<std::string> asked;  ///< The path of each call.
    bool underALock = false;         ///< True when a call was made with a mutex held.
    std::function<void()> during;    ///< Runs in each call.
    int result = 0;                  ///< What the calls return.

private:
    StatvfsFunction::Replacement const replacement_;
};

/// A volume's database that writes down what it is told, and how the volume's entry is at that time.
class RecordingDatabase : public db::DB
{
public:
    explicit RecordingDatabase(std::string volume) : volume_(std::move(volume)) {}

    void NotifyAction(std::string const& action, std::string const& detail) const override
    {
        underALock = underALock || HoldsALock();
        told.push_back("'" + action + "' '" + detail + "' with " + EntryOf(volume_));
        if (after)
            after();
    }

    mutable std::vector<std::string> told;
    mutable bool underALock = false;  ///< True when it was told something with a mutex held.
    std::function<void()> after;      ///< Runs in each call, at the end.

private:
    std::string const volume_;
};

}}  // namespace tovu::test

extern "C" int statvfs(char const* path, struct statvfs* volume) noexcept
{
    return tovu::test::StatvfsCall()(path, volume);
}
