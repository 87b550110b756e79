#include "FileSystem.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <limits>

namespace tovu { namespace util { namespace internal {

namespace {

static_assert(sizeof(off_t) == 8 && sizeof(fsblkcnt_t) == 8, "compiled with 64-bit offsets");

std::int32_t Date(long long seconds)
{
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::min<long long>(std::max<long long>(seconds, Limits::min()), Limits::max()));
}

bool Query(int (*query)(char const*, struct stat*), std::string const& path, FileStatus& status)
{
    struct stat answer = {};
    if (query(path.c_str(), &answer) != 0)
        return false;

    status.mode = answer.st_mode;
    status.size = static_cast<unsigned long long>(answer.st_size);
    status.lastStatusDate = Date(answer.st_ctime);
    status.lastAccessedDate = Date(answer.st_atime);
    status.lastModifiedDate = Date(answer.st_mtime);
    return true;
}

}  // namespace

bool QueryFile(std::string const& path, FileStatus& status)
{
    return Query(&stat, path, status);
}

bool QueryLink(std::string const& path, FileStatus& status)
{
    return Query(&lstat, path, status);
}

char const* NextName(DIR* folder)
{
    // cppcheck-suppress readdirCalled ; one thread for each open folder, and readdir_r is given up
    dirent const* const item = readdir(folder);  // NOLINT(concurrency-mt-unsafe): one thread for each open folder
    return item != nullptr ? item->d_name : nullptr;
}

unsigned long long CountFreeBytes(std::string const& path)
{
    struct statvfs volume = {};
    static_cast<void>(statvfs(path.c_str(), &volume));
    return static_cast<unsigned long long>(volume.f_bsize) * volume.f_bfree;
}

}}}  // namespace tovu::util::internal
