#pragma once

namespace tovu { namespace util { namespace internal {

/// Logs, as an error of `file` and `line`, the exception that a destructor has just caught. Requires: called inside
/// `catch (...)`. Nothing leaves it: when even the log call fails, there is nobody left to tell.
void LogDestructorFailure(char const* file, unsigned line) noexcept __attribute__((visibility("hidden")));

}}}  // namespace tovu::util::internal
