#include "tovu/util/StatusParams.h"

#include <cstdio>
#include <locale>
#include <memory>
#include <sstream>

#include "FileSystem.h"
#include "tovu/db/DB.h"

namespace tovu { namespace util {

char const* const StatusParams::STATUS_NORMAL = "normal";
char const* const StatusParams::STATUS_DISK = "out of disk space";
char const* const StatusParams::STATUS_MEM = "out of memory";
char const* const StatusParams::ACTION_IDLE = "idle";
char const* const StatusParams::ACTION_STALLED = "stalled";

std::map<std::string, StatusParams::DISK_INFO> StatusParams::_diskInfoMap;
Mutex StatusParams::_mutex;
StatusParams::CPU_STATUS StatusParams::_cpuStatus = {};
Mutex StatusParams::_mutexcpu;

namespace {

constexpr unsigned long long LOW_DISK_SPACE = 250ULL * 1024 * 1024;

// Of the result codes at https://sqlite.org/rescode.html those that the registry knows.
constexpr unsigned SQLITE_NOMEM = 7;
constexpr unsigned SQLITE_IOERR = 10;
constexpr unsigned SQLITE_FULL = 13;

constexpr std::size_t READ_SIZE = 128;  // of one read from a command's output

bool IsMemoryError(unsigned code)
{
    return code == SQLITE_NOMEM;
}

bool IsDiskError(unsigned code)
{
    return code == SQLITE_IOERR || code == SQLITE_FULL;
}

StatusParams::DISK_INFO DefaultInfo()
{
    StatusParams::DISK_INFO info;
    StatusParams::InitDiskInfoStruct(info);
    return info;
}

StatusParams::DISK_INFO StalledInfo(char const* status)
{
    StatusParams::DISK_INFO info;
    info.action = StatusParams::ACTION_STALLED;
    info.status = status;
    return info;
}

void Trim(std::string& text)
{
    char const* const whiteSpace = " \t\n\v\f\r";
    text.erase(text.find_last_not_of(whiteSpace) + 1);  // all of it where there is nothing else
    text.erase(0, text.find_first_not_of(whiteSpace));
}

}  // namespace

void StatusParams::InitDiskInfoStruct(DISK_INFO& info)
{
    info.status = STATUS_NORMAL;
    info.action = ACTION_IDLE;
}

bool StatusParams::GetDiskInfo(std::string const& volume, DISK_INFO& info)
{
    Mutex::Guard const guard(_mutex);
    auto const entry = _diskInfoMap.find(volume);
    if (entry == _diskInfoMap.end())
        return false;

    info = entry->second;
    return true;
}

void StatusParams::SetDiskInfo(std::string const& volume, DISK_INFO const& info)
{
    Mutex::Guard const guard(_mutex);
    _diskInfoMap[volume] = info;
}

void StatusParams::InsertNewEntry(std::string const& volume)
{
    DISK_INFO const info = DefaultInfo();
    Mutex::Guard const guard(_mutex);
    _diskInfoMap.emplace(volume, info);
}

void StatusParams::AddNewDiskInfoEntry(std::string const& volume)
{
    InsertNewEntry(volume);
}

void StatusParams::RemoveDiskInfo(std::string const& volume)
{
    Mutex::Guard const guard(_mutex);
    _diskInfoMap.erase(volume);
}

unsigned long long StatusParams::GetRemainingDiskSpace(std::string const& volume)
{
    return internal::CountFreeBytes(volume);
}

bool StatusParams::IsLowDiskSpace(std::string const& volume)
{
    return GetRemainingDiskSpace(volume) <= LOW_DISK_SPACE;
}

std::string StatusParams::GetFreeDiskSpace(std::string const& volume)
{
    return std::to_string(GetRemainingDiskSpace(volume)) + " bytes";
}

// The disk is blamed only while it is low on space: an I/O error has other causes as well.
bool StatusParams::IsSQLiteError_MemoryOrDiskSpace(std::string const& volume, unsigned int code)
{
    DISK_INFO info;
    bool const known = GetDiskInfo(volume, info);

    bool stalled = true;
    if (IsMemoryError(code))
        info = StalledInfo(STATUS_MEM);
    else if (IsDiskError(code) && IsLowDiskSpace(volume))
        info = StalledInfo(STATUS_DISK);
    else
        stalled = false;

    if (stalled)
        SetDiskInfo(volume, info);
    else if (!known)
        SetDiskInfo(volume, DefaultInfo());
    return stalled;
}

bool StatusParams::ResetStatusIfStalled(std::string const& volume)
{
    DISK_INFO info;
    if (!GetDiskInfo(volume, info)) {
        InsertNewEntry(volume);
        return false;
    }
    if (info.action == ACTION_IDLE)
        return false;

    SetDiskInfo(volume, DefaultInfo());
    return true;
}

bool StatusParams::CheckVolumeDiskSpaceStatus(tovu::db::DB const& db, std::string const& volume)
{
    if (IsLowDiskSpace(volume))
        return false;

    if (ResetStatusIfStalled(volume))
        db.NotifyAction(ACTION_IDLE, "");
    return true;
}

bool StatusParams::IsVolumeLowOnDiskSpace(tovu::db::DB const& db, std::string const& volume)
{
    if (CheckVolumeDiskSpaceStatus(db, volume))
        return false;

    SetDiskInfo(volume, StalledInfo(STATUS_DISK));
    db.NotifyAction(ACTION_STALLED, "");
    return true;
}

std::string StatusParams::GetStatusFlag(std::string const& volume)
{
    DISK_INFO info;
    if (GetDiskInfo(volume, info))
        return info.status;

    InsertNewEntry(volume);
    return STATUS_NORMAL;
}

bool StatusParams::IsStatusNormal(std::string const& volume)
{
    return GetStatusFlag(volume) == STATUS_NORMAL;
}

std::string StatusParams::DoPopen(std::string const& command)
{
    std::string output;
    // NOLINTNEXTLINE(cert-env33-c): a command for the shell is what this operation is for
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen(command.c_str(), "r"), &pclose);
    if (!pipe)
        return output;

    char buffer[READ_SIZE];
    while (std::feof(pipe.get()) == 0 && std::ferror(pipe.get()) == 0)
        output.append(buffer, std::fread(buffer, 1, sizeof(buffer), pipe.get()));
    return output;
}

unsigned long long StatusParams::ParseMemInfo(std::string const& key, std::string& text)
{
    std::string::size_type const found = text.find(key);
    if (found == std::string::npos)
        return 0;
    text.erase(0, found + key.size());

    std::string::size_type const unit = text.find("kB");
    if (unit == std::string::npos)
        return 0;
    text.erase(unit);
    Trim(text);

    unsigned long long value = 0;
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    stream >> value;
    return value;
}

}}  // namespace tovu::util
