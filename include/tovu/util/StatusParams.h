#pragma once

#include <map>
#include <string>

#include "tovu/util/Mutex.h"

namespace tovu { namespace db {
class DB;
}}  // namespace tovu::db

namespace tovu { namespace util {

/// The process's registry of volumes: whether work on each is stalled, by a lack of disk space or of memory. With it
/// come the probes that feed it.
/// \code
///     bool MayGoOn(tovu::db::DB const& database, std::string const& volume, unsigned sqliteError)
///     {
///         if (StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, sqliteError))
///             return false;
///         return !StatusParams::IsVolumeLowOnDiskSpace(database, volume);
///     }
/// \endcode
///
/// The database code reports each SQLite result code that is a failure; a timer asks whether work may go on.
///
/// A volume is known by the path that it is mounted at. It gets an entry from the first call that names it, except by
/// the operations that say otherwise, and keeps it until RemoveDiskInfo.
///
/// Threads: any. Each access to an entry is guarded, but an operation that reads and then writes does so in two steps:
///     of two threads that do so for one volume, the last one to write wins. The file system and the database handle
///     are asked without the lock.
/// Errors: none are thrown beyond std::bad_alloc and what the database handle throws.
class StatusParams
{
public:
    static char const* const STATUS_NORMAL;   ///< "normal"
    static char const* const STATUS_DISK;     ///< "out of disk space"
    static char const* const STATUS_MEM;      ///< "out of memory"
    static char const* const ACTION_IDLE;     ///< "idle"
    static char const* const ACTION_STALLED;  ///< "stalled"

    /// What is known of one volume.
    /// \code
    ///     StatusParams::DISK_INFO info;
    ///     if (StatusParams::GetDiskInfo("/srv/volumes/photos", info) && info.action == StatusParams::ACTION_STALLED)
    ///         std::string const reason = info.status;  // "out of disk space" or "out of memory"
    /// \endcode
    struct DISK_INFO
    {
        std::string action;  ///< ACTION_IDLE, or ACTION_STALLED when work has stopped.
        std::string status;  ///< STATUS_NORMAL, or why it stopped.
    };

    StatusParams() = delete;

    /// Sets STATUS_NORMAL and ACTION_IDLE.
    static void InitDiskInfoStruct(DISK_INFO& info);

    /// Copies a volume's entry. Makes none.
    /// \return False, with `info` unchanged, when the volume has none.
    static bool GetDiskInfo(std::string const& volume, DISK_INFO& info);

    /// Stores a volume's entry, over the one that it may have.
    static void SetDiskInfo(std::string const& volume, DISK_INFO const& info);

    /// Gives a volume an entry with the defaults, unless it has one.
    static void InsertNewEntry(std::string const& volume);

    /// Another name of InsertNewEntry.
    static void AddNewDiskInfoEntry(std::string const& volume);

    /// Forgets a volume.
    static void RemoveDiskInfo(std::string const& volume);

    /// The bytes that are free on a volume, including those kept for the superuser; 0 for a path that statvfs(3)
    /// refuses. Touches no entry.
    static unsigned long long GetRemainingDiskSpace(std::string const& volume);

    /// True when at most 250 MiB (262144000 bytes) are free, and so also for a path that is not there. Touches no entry.
    static bool IsLowDiskSpace(std::string const& volume);

    /// The free bytes as text: "1048576 bytes". Touches no entry.
    static std::string GetFreeDiskSpace(std::string const& volume);

    /// Takes note of a failed SQLite call. SQLITE_NOMEM (7) always stalls the volume; SQLITE_IOERR (10) and SQLITE_FULL
    /// (13) do when it is low on space. Nothing else does.
    /// \param volume Its mount point.
    /// \param code   A primary result code: of an extended one pass the low eight bits.
    /// \return True when the volume is stalled by this.
    static bool IsSQLiteError_MemoryOrDiskSpace(std::string const& volume, unsigned int code);

    /// Sets a stalled volume back to the defaults.
    /// \return True when it was stalled.
    static bool ResetStatusIfStalled(std::string const& volume);

    /// Tells whether work on a volume may go on: true unless it is low on space. A volume that was stalled, by a lack of
    /// memory too, is set back then, and `db` told ACTION_IDLE.
    ///
    /// While space is low no entry is touched or made.
    static bool CheckVolumeDiskSpaceStatus(tovu::db::DB const& db, std::string const& volume);

    /// As CheckVolumeDiskSpaceStatus, with the opposite result; and a volume that is low on space is stalled by this, and
    /// `db` told ACTION_STALLED at every call.
    static bool IsVolumeLowOnDiskSpace(tovu::db::DB const& db, std::string const& volume);

    /// The volume's status word.
    static std::string GetStatusFlag(std::string const& volume);

    /// True when the status word is STATUS_NORMAL.
    static bool IsStatusNormal(std::string const& volume);

    /// Runs a shell command, see popen(3), and waits for it.
    /// \return Everything that it wrote to its standard output; nothing when it could not be started. How it ended is
    ///         not told.
    static std::string DoPopen(std::string const& command);

    /// Takes one value out of a text like that of /proc/meminfo: the number between `key` and the next "kB".
    ///
    /// \param key  Searched for as it is, anywhere: pass it with its colon, "MemFree:".
    /// \param text Cut down to the number's text. Without the key it is unchanged; without a "kB" behind it, what
    ///             follows the key is left.
    /// \return The number, in kB; 0 when there is none.
    static unsigned long long ParseMemInfo(std::string const& key, std::string& text);

private:
    // Reserved: processor time since the start of the system, as proc(5) counts it.
    struct CPU_STATUS
    {
        unsigned long long busy;
        unsigned long long total;
    };

    static std::map<std::string, DISK_INFO> _diskInfoMap;  // guarded by _mutex
    static Mutex _mutex;
    static CPU_STATUS _cpuStatus;
    static Mutex _mutexcpu;  // reserved for _cpuStatus
};

}}  // namespace tovu::util
