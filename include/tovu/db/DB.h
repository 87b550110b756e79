#pragma once

#include <string>

namespace tovu { namespace db {

/// A volume's database, as far as tovu::util::StatusParams has to know it: someone to tell when work on the volume
/// stalls, and when it may go on. The database library implements it.
/// \code
///     #include "tovu/util/LoggerMgr.h"
///     class Database : public tovu::db::DB
///     {
///         void NotifyAction(std::string const& action, std::string const& /*detail*/) const override
///         {
///             TOVU_LOG(LoggerMgr::LEVEL_WARNING, "Work on the volume is %s.\n", action.c_str());
///         }
///     };
/// \endcode
///
/// Ownership: callers borrow it for the length of one call.
/// Threads: StatusParams calls it on the thread that called StatusParams, and without holding a lock.
class DB
{
public:
    virtual ~DB() = default;

    /// Takes notice of an action word, StatusParams::ACTION_IDLE or ACTION_STALLED. `detail` is empty today. What an
    /// implementation throws passes through StatusParams to its caller.
    virtual void NotifyAction(std::string const& action, std::string const& detail) const = 0;

protected:
    DB() = default;                      ///< Holds nothing.
    DB(DB const&) = default;             ///< Copied as the derived class likes.
    DB& operator=(DB const&) = default;  ///< Copied as the derived class likes.
};

}}  // namespace tovu::db
