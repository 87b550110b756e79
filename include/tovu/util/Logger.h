#pragma once

#include <string>

namespace tovu { namespace util {

/// A sink for log lines. Derive from it, and hand the object to LoggerMgr::AddLogger.
/// \code
///     #include <cstdio>
///     class ErrorOutput : public Logger
///     {
///         void Log(std::string const& header, std::string const& message) override
///         {
///             std::fputs((header + message).c_str(), stderr);
///         }
///     };
/// \endcode
///
/// Ownership: the manager owns every logger that it was given and deletes it through this class.
/// Threads: Log is called from the manager's one thread only, so a sink needs no lock for itself.
/// Errors: a std::exception that leaves Log loses that line for this sink and is ignored; anything else ends
///     the process.
class Logger
{
public:
    Logger() = default;  ///< Holds nothing.
    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;
    virtual ~Logger();

    /// Takes one line. `header` is empty when the manager's flags are 0; `message` is never empty and usually ends in a
    /// line feed. A sink that blocks makes the manager's queue grow: it has no bound.
    virtual void Log(std::string const& header, std::string const& message) = 0;
};

}}  // namespace tovu::util
