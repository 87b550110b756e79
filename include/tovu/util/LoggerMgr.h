#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "tovu/util/Logger.h"
#include "tovu/util/OwnerList.h"
#include "tovu/util/Singleton.h"
#include "tovu/util/Thread.h"

/// \file
/// The log manager, and the macro that calls it.

/// Logs one line when `level` is at most the manager's threshold: TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s\n", text).
///
/// Takes a printf(3) format and its arguments, which are evaluated only when the line is kept. Usable wherever one
/// statement is. May throw what LoggerMgr::Log throws, and may change `errno`.
#define TOVU_LOG(level, ...)                                                                        \
    do {                                                                                            \
        unsigned const tovuLogLevel = static_cast<unsigned>(level);                                 \
        if (tovuLogLevel <= ::tovu::util::LoggerMgr::Instance().GetLevel())                         \
            ::tovu::util::LoggerMgr::Instance().Log(tovuLogLevel, __FILE__, __LINE__, __VA_ARGS__); \
    } while (false)

namespace tovu { namespace util {

/// The process's log manager: formats lines on the caller's thread, queues them, and hands them to its sinks on a
/// thread of its own.
/// \code
///     #include "tovu/util/FileLogger.h"
///     LoggerMgr& manager = LoggerMgr::Instance();
///     manager.AddLogger(std::auto_ptr<Logger>(new FileLogger("")));
///     manager.Init("volumed", LoggerMgr::LEVEL_INFO, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION, 0);
///     TOVU_LOG(LoggerMgr::LEVEL_INFO, "%d volumes are mounted.\n", 3);
/// \endcode
///
/// Guarantees:
///   - lines reach the sinks in the order in which their callers took the manager's mutex, each sink in the order in
///     which it was added;
///   - sinks are called outside the mutex, so they may log;
///   - a change of TZ or of the locale shows in the next line, one of the system's own time zone from the next second on.
///
/// Requirements:
///   - all sinks are added before Init, and Init is called once;
///   - the queue has no bound: a sink that blocks makes it grow. Lines still queued when the process ends are lost;
///   - other threads log no more when `main` returns: while static objects are destroyed, Instance begins to throw.
///
/// Ownership: owns its sinks, which live as long as the process.
/// Threads: any may log, and ask for the level. Init and AddLogger are called by one.
/// Errors: std::bad_alloc; boost::lock_error from the mutex, boost::thread_resource_error when it cannot be made.
class LoggerMgr : public Thread, public Singleton<LoggerMgr>
{
public:
    /// \name Levels
    /// The lower, the more severe.
    /// \{

    static constexpr unsigned LEVEL_ERROR = 1;    ///< "Error"
    static constexpr unsigned LEVEL_WARNING = 2;  ///< "Warning"
    static constexpr unsigned LEVEL_INFO = 3;     ///< "Info"
    static constexpr unsigned LEVEL_DEBUG = 4;    ///< "Debug"

    /// \}
    /// \name Header flags
    /// The elements stand in this order, whatever the values: banner, time, host, name, ids, level, location.
    /// \{

    static constexpr unsigned HEADER_BANNER = 0x01;    ///< One hundred asterisks and a line feed.
    static constexpr unsigned HEADER_LEVEL = 0x02;     ///< The level's name.
    static constexpr unsigned HEADER_TIME = 0x04;      ///< The local time as "%b %d %T" of strftime(3).
    static constexpr unsigned HEADER_HOST = 0x08;      ///< The host name.
    static constexpr unsigned HEADER_NAME = 0x10;      ///< The name given to Init.
    static constexpr unsigned HEADER_PROCESS = 0x20;   ///< "[PID]", or "[PID:THREAD]" together with HEADER_THREAD.
    static constexpr unsigned HEADER_THREAD = 0x40;    ///< "[THREAD]", the calling thread's pthread_self(3).
    static constexpr unsigned HEADER_LOCATION = 0x80;  ///< "FILE:LINE " of the caller.

    /// \}

    /// An idle manager: no name, threshold 0 (so that TOVU_LOG keeps nothing), flags 0, no sinks, no thread. Programs
    /// use Instance() instead.
    LoggerMgr();
    ~LoggerMgr() override;

    /// Stores the settings and starts the thread that feeds the sinks. Lines that were queued before are delivered.
    ///
    /// \param name     What HEADER_NAME shows.
    /// \param level    The threshold that TOVU_LOG compares with: 0 keeps nothing, LEVEL_DEBUG everything.
    /// \param flags    HEADER_ values, or-ed; 0 leaves the header empty.
    /// \param priority The nice value of the thread, see Thread::Create. Whether it started is not checked.
    void Init(std::string const& name, unsigned level, unsigned flags, int priority);

    /// Adds a sink behind the others and owns it from now on. A null pointer is ignored. Takes no lock: call it before
    /// Init.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    void AddLogger(std::auto_ptr<Logger> logger);
#pragma GCC diagnostic pop

    /// The threshold; any thread may ask at any time.
    unsigned GetLevel() const
    {
        return __atomic_load_n(&level_, __ATOMIC_RELAXED);
    }

    /// Formats one line and queues it, whatever its level: TOVU_LOG is the call that tests first. Takes 16 KiB of the
    /// calling thread's stack; a longer message is formatted on the heap.
    ///
    /// \param level     Only named in the header.
    /// \param file,line The caller's `__FILE__` and `__LINE__`; read during the call only.
    /// \param format    A printf(3) format, followed by its arguments.
    void Log(unsigned level, char const* file, unsigned line, char const* format, ...)
        __attribute__((format(printf, 5, 6)));

    /// Blocks until a line is queued, and takes it out: its header, then its message.
    std::pair<std::string, std::string> Deq();

    /// The body of the manager's thread: hands every line to every sink and never returns. A line with an empty message
    /// is dropped. A std::exception from a sink is ignored.
    void Run() override;

    /// "Error", "Warning", "Info" or "Debug" for 1 to 4, "Invalid" for any other number.
    static std::string level2string(unsigned level);

    /// The level of an exact name, 0 for any other text, "Invalid" included.
    static unsigned string2level(std::string const& name);

private:
    std::string BuildHeader(unsigned level, char const* file, unsigned line) const;
    void Deliver(std::pair<std::string, std::string> const& entry) const;

    std::string name_;    // written by Init under mutex_, like flags_
    unsigned level_ = 0;  // read without a lock, by atomic loads
    unsigned flags_ = 0;
    OwnerList<Logger> loggers_;                             // complete before Init; then only read by the thread
    std::list<std::pair<std::string, std::string>> queue_;  // guarded by mutex_; oldest line first
    boost::mutex mutex_;
    boost::condition_variable condition_;  // notified once for each line appended
};

// The one instance lives in the library, not in every program that includes this header.
extern template class Singleton<LoggerMgr>;

}}  // namespace tovu::util
