#include "tovu/util/LoggerMgr.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "FormatBuffer.h"
#include "TimeText.h"
#include "tovu/util/Format.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util {

constexpr unsigned LoggerMgr::LEVEL_ERROR;
constexpr unsigned LoggerMgr::LEVEL_WARNING;
constexpr unsigned LoggerMgr::LEVEL_INFO;
constexpr unsigned LoggerMgr::LEVEL_DEBUG;
constexpr unsigned LoggerMgr::HEADER_BANNER;
constexpr unsigned LoggerMgr::HEADER_LEVEL;
constexpr unsigned LoggerMgr::HEADER_TIME;
constexpr unsigned LoggerMgr::HEADER_HOST;
constexpr unsigned LoggerMgr::HEADER_NAME;
constexpr unsigned LoggerMgr::HEADER_PROCESS;
constexpr unsigned LoggerMgr::HEADER_THREAD;
constexpr unsigned LoggerMgr::HEADER_LOCATION;

template class Singleton<LoggerMgr>;

namespace {

constexpr std::size_t FIELD_SIZE = 100;      // of the buffer for ids
constexpr std::size_t MESSAGE_SIZE = 16384;  // of the buffer for the first pass over a message
constexpr std::size_t TYPICAL_HEADER = 256;  // reserved while a header grows; what is queued has its own size
constexpr std::size_t BANNER_ASTERISKS = 100;

constexpr char const* LEVEL_NAMES[] = {"Error", "Warning", "Info", "Debug"};

void Separate(std::string& header)
{
    if (!header.empty())
        header += ' ';
}

unsigned ProcessId()
{
    return static_cast<unsigned>(getpid());
}

void* ThreadId()
{
    return reinterpret_cast<void*>(pthread_self());  // NOLINT(performance-no-int-to-ptr): printed, not used
}

// The separator stands here even when neither id is asked for: monitors know the header by its blanks.
void AppendIds(std::string& header, unsigned flags)
{
    bool const process = (flags & LoggerMgr::HEADER_PROCESS) != 0;
    bool const thread = (flags & LoggerMgr::HEADER_THREAD) != 0;
    char field[FIELD_SIZE] = "";
    if (process && thread)
        std::snprintf(field, sizeof(field), "[%u:%p]", ProcessId(), ThreadId());
    else if (process)
        std::snprintf(field, sizeof(field), "[%u]", ProcessId());
    else if (thread)
        std::snprintf(field, sizeof(field), "[%p]", ThreadId());

    Separate(header);
    header += field;
}

}  // namespace

LoggerMgr::LoggerMgr() = default;

LoggerMgr::~LoggerMgr() = default;

void LoggerMgr::Init(std::string const& name, unsigned level, unsigned flags, int priority)
{
    {
        boost::unique_lock<boost::mutex> lock(mutex_);
        name_ = name;
        __atomic_store_n(&level_, level, __ATOMIC_RELAXED);
        flags_ = flags;
    }
    Create(priority, 0, false);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
void LoggerMgr::AddLogger(std::auto_ptr<Logger> logger)
{
    if (logger.get() == nullptr)
        return;

    loggers_.push_back(logger.get());
    logger.release();
}
#pragma GCC diagnostic pop

// NOLINTNEXTLINE(cert-dcl50-cpp): the text is made as printf makes it
void LoggerMgr::Log(unsigned level, char const* file, unsigned line, char const* format, ...)
{
    boost::unique_lock<boost::mutex> lock(mutex_);

    std::string const header = BuildHeader(level, file, line);

    char buffer[MESSAGE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    std::string message = internal::FormatGrowing(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);

    queue_.emplace_back(header, std::move(message));
    condition_.notify_one();
}

std::pair<std::string, std::string> LoggerMgr::Deq()
{
    boost::unique_lock<boost::mutex> lock(mutex_);
    while (queue_.empty())
        condition_.wait(lock);

    std::pair<std::string, std::string> entry = std::move(queue_.front());
    queue_.pop_front();
    return entry;
}

void LoggerMgr::Run()
{
    for (;;)
        Deliver(Deq());
}

std::string LoggerMgr::level2string(unsigned level)
{
    return level >= LEVEL_ERROR && level <= LEVEL_DEBUG ? LEVEL_NAMES[level - LEVEL_ERROR] : "Invalid";
}

unsigned LoggerMgr::string2level(std::string const& name)
{
    for (unsigned level = LEVEL_ERROR; level <= LEVEL_DEBUG; ++level) {
        if (name == LEVEL_NAMES[level - LEVEL_ERROR])
            return level;
    }
    return 0;
}

std::string LoggerMgr::BuildHeader(unsigned level, char const* file, unsigned line) const
{
    std::string header;
    if (flags_ == 0)
        return header;

    header.reserve(TYPICAL_HEADER);
    if ((flags_ & HEADER_BANNER) != 0)
        header.append(BANNER_ASTERISKS, '*').append(1, '\n');
    if ((flags_ & HEADER_TIME) != 0) {
        Separate(header);
        header += internal::CurrentTimeText();
    }
    if ((flags_ & HEADER_HOST) != 0) {
        Separate(header);
        header += Socket::GetHostName();
    }
    if ((flags_ & HEADER_NAME) != 0) {
        Separate(header);
        header += name_;
    }
    AppendIds(header, flags_);
    if ((flags_ & HEADER_LEVEL) != 0) {
        Separate(header);
        header += level2string(level);
    }
    header += ' ';
    if ((flags_ & HEADER_LOCATION) != 0)
        header += FormatString("%s:%d ", file, static_cast<int>(line));
    return header;
}

void LoggerMgr::Deliver(std::pair<std::string, std::string> const& entry) const
{
    if (entry.second.empty())
        return;

    for (Logger* logger : loggers_) {
        try {
            logger->Log(entry.first, entry.second);
        } catch (std::exception const&) {
            continue;  // a sink that fails loses this line; the next one still gets it
        }
    }
}

}}  // namespace tovu::util
