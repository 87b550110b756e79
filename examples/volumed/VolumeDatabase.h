#pragma once

#include <memory>
#include <string>

#include "tovu/db/DB.h"
#include "tovu/util/Mutex.h"

struct sqlite3;

namespace volume {

/// The volumes that the service was asked about, in an SQLite database:
/// \code
///     CREATE TABLE Volumes (path TEXT PRIMARY KEY, questions INTEGER NOT NULL, action TEXT NOT NULL)
/// \endcode
///
/// A call that fails is logged, and its result code reported to tovu::util::StatusParams, for the folder that the
/// database is in. The service goes on without the record.
///
/// Threads: any may call everything.
class VolumeDatabase
{
public:
    /// Opens the database, which is made when there is none. Throws std::runtime_error when that is not possible.
    explicit VolumeDatabase(std::string const& path);
    VolumeDatabase(VolumeDatabase const&) = delete;
    VolumeDatabase& operator=(VolumeDatabase const&) = delete;
    ~VolumeDatabase();

    /// Counts one more question about a volume.
    void CountQuestion(std::string const& volume);

    /// Notes the action word of a volume.
    void StoreAction(std::string const& volume, std::string const& action);

private:
    void Execute(char const* statement, std::string const& volume, std::string const& action);

    std::string const folder_;
    tovu::util::Mutex mutex_;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> database_;  // guarded by mutex_
};

/// The handle of one volume, for tovu::util::StatusParams: notes actions in the database, if there is one, and in the
/// log.
class VolumeHandle : public tovu::db::DB
{
public:
    /// \param database Null for a service without one.
    VolumeHandle(VolumeDatabase* database, std::string const& volume) : database_(database), volume_(volume) {}

    void NotifyAction(std::string const& action, std::string const& detail) const override;

private:
    VolumeDatabase* const database_;
    std::string const& volume_;
};

}  // namespace volume
