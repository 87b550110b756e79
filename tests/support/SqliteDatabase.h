#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

namespace tovu { namespace test {

/// A database file, open for the length of a scope.
class SqliteDatabase
{
public:
    explicit SqliteDatabase(std::string const& path)
    {
        EXPECT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &database_));
        Execute("PRAGMA synchronous = OFF");
    }
    SqliteDatabase(SqliteDatabase const&) = delete;
    SqliteDatabase& operator=(SqliteDatabase const&) = delete;
    ~SqliteDatabase() { EXPECT_EQ(SQLITE_OK, sqlite3_close(database_)); }

    /// Returns the primary result code.
    unsigned Execute(std::string const& statements)
    {
        return static_cast<unsigned>(sqlite3_exec(database_, statements.c_str(), nullptr, nullptr, nullptr));
    }

    /// Adds this many bytes.
    unsigned Insert(unsigned size)
    {
        return Execute("CREATE TABLE IF NOT EXISTS t (x); INSERT INTO t VALUES (zeroblob(" + std::to_string(size) +
                       "))");
    }

private:
    sqlite3* database_ = nullptr;
};

/// Lets SQLite have no more than these bytes for the length of a scope.
class SqliteHeapLimit
{
public:
    explicit SqliteHeapLimit(sqlite3_int64 bytes) { sqlite3_hard_heap_limit64(bytes); }
    SqliteHeapLimit(SqliteHeapLimit const&) = delete;
    SqliteHeapLimit& operator=(SqliteHeapLimit const&) = delete;
    ~SqliteHeapLimit() { sqlite3_hard_heap_limit64(0); }
};

}}  // namespace tovu::test
