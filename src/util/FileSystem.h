#pragma once

#include <dirent.h>

#include <cstdint>
#include <string>

namespace tovu { namespace util { namespace internal {

/// Questions to the file system that get an answer for files, inodes and volumes of any size, also on a 32-bit build.
/// Their source alone is compiled with 64-bit offsets and dates: in the public headers `dirent` stays what the user's
/// program takes it for.

/// What is known of a file. Dates are seconds since the Unix epoch; what 32 bits cannot hold becomes their first or
/// last second.
struct FileStatus
{
    unsigned mode;
    unsigned long long size;
    std::int32_t lastStatusDate;
    std::int32_t lastAccessedDate;
    std::int32_t lastModifiedDate;
};

/// See stat(2). \return False when it failed, with `status` unchanged.
bool QueryFile(std::string const& path, FileStatus& status) __attribute__((visibility("hidden")));

/// See lstat(2): a link is not followed. \return False when it failed, with `status` unchanged.
bool QueryLink(std::string const& path, FileStatus& status) __attribute__((visibility("hidden")));

/// The name of the next item of an open folder, see readdir(3), valid until the next call; null at its end.
char const* NextName(DIR* folder) __attribute__((visibility("hidden")));

/// The bytes that are free on a volume, those kept for the superuser included. See statvfs(3), whose result is not
/// looked at: a path that it refuses has 0 bytes free.
unsigned long long CountFreeBytes(std::string const& path) __attribute__((visibility("hidden")));

}}}  // namespace tovu::util::internal
