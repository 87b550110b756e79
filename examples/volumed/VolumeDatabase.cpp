#include "VolumeDatabase.h"

#include <sqlite3.h>

#include <stdexcept>

#include "RealPath.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Path.h"
#include "tovu/util/StatusParams.h"

namespace volume {

using namespace tovu::util;

namespace {

constexpr int BUSY_MILLISECONDS = 1000;    // how long another process may keep the database locked
constexpr int PRIMARY_RESULT_CODE = 0xFF;  // what remains of an extended one

std::string FolderOf(std::string const& path)
{
    std::string const folder = Path(path).GetDirectory();
    return RealPath(folder.empty() ? "." : folder);
}

}  // namespace

VolumeDatabase::VolumeDatabase(std::string const& path) : folder_(FolderOf(path)), database_(nullptr, &sqlite3_close)
{
    sqlite3* database = nullptr;
    int const code = sqlite3_open(path.c_str(), &database);
    database_.reset(database);  // also when it could not be opened
    if (code != SQLITE_OK)
        throw std::runtime_error("cannot open the database " + path + ": " + sqlite3_errstr(code));

    sqlite3_busy_timeout(database, BUSY_MILLISECONDS);
    char const* const create =
        "CREATE TABLE IF NOT EXISTS Volumes (path TEXT PRIMARY KEY, questions INTEGER NOT NULL, action TEXT NOT NULL)";
    if (sqlite3_exec(database, create, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error("cannot use the database " + path + ": " + sqlite3_errmsg(database));
}

VolumeDatabase::~VolumeDatabase() = default;

void VolumeDatabase::CountQuestion(std::string const& volume)
{
    Execute("INSERT INTO Volumes VALUES (?1, 1, ?2) ON CONFLICT (path) DO UPDATE SET questions = questions + 1", volume,
            StatusParams::ACTION_IDLE);
}

void VolumeDatabase::StoreAction(std::string const& volume, std::string const& action)
{
    Execute("INSERT INTO Volumes VALUES (?1, 0, ?2) ON CONFLICT (path) DO UPDATE SET action = ?2", volume, action);
}

// The registry is told outside the lock: it asks the file system, and may have to wait for it.
void VolumeDatabase::Execute(char const* statement, std::string const& volume, std::string const& action)
{
    int code = SQLITE_OK;
    {
        Mutex::Guard const guard(mutex_);
        sqlite3_stmt* prepared = nullptr;
        code = sqlite3_prepare_v2(database_.get(), statement, -1, &prepared, nullptr);
        if (code == SQLITE_OK)
            code = sqlite3_bind_text(prepared, 1, volume.c_str(), -1, SQLITE_STATIC);
        if (code == SQLITE_OK)
            code = sqlite3_bind_text(prepared, 2, action.c_str(), -1, SQLITE_STATIC);
        if (code == SQLITE_OK)
            code = sqlite3_step(prepared);
        sqlite3_finalize(prepared);
    }
    if (code == SQLITE_DONE)
        return;

    bool const stalled = StatusParams::IsSQLiteError_MemoryOrDiskSpace(folder_, code & PRIMARY_RESULT_CODE);
    TOVU_LOG(LoggerMgr::LEVEL_WARNING, "The database is not written: %s%s\n", sqlite3_errstr(code),
             stalled ? ", and work on its volume is stalled" : "");
}

void VolumeHandle::NotifyAction(std::string const& action, std::string const& /*detail*/) const
{
    TOVU_LOG(LoggerMgr::LEVEL_INFO, "Work on %s: %s.\n", volume_.c_str(), action.c_str());
    if (database_ != nullptr)
        database_->StoreAction(volume_, action);
}

}  // namespace volume
