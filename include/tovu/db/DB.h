#pragma once

#include <string>

namespace tovu { namespace db {

/// A volume's database, as far as tovu::util::StatusParams has to know it: someone to tell when work on the volume
/// stalls, and when it may go on. The database library implements it.
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
    DB() = default;
    DB(DB const&) = default;
    DB& operator=(DB const&) = default;
};

}}  // namespace tovu::db
