#include "tovu/util/LoggerMgr.h"

#include <sched.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "FormatBuffer.h"
#include "HostName.h"
#include "TimeText.h"

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

using Entries = std::list<std::pair<std::string, std::string>>;

constexpr std::size_t FIELD_SIZE = 100;      // of the buffer for ids
constexpr std::size_t MESSAGE_SIZE = 16384;  // of the buffer for the first pass over a message

constexpr char BANNER[] =
    "****************************************************************************************************\n";
constexpr char const* LEVEL_NAMES[] = {"Error", "Warning", "Info", "Debug"};

char const* LevelName(unsigned level)
{
    return level >= LoggerMgr::LEVEL_ERROR && level <= LoggerMgr::LEVEL_DEBUG
               ? LEVEL_NAMES[level - LoggerMgr::LEVEL_ERROR]
               : "Invalid";
}

unsigned ProcessId()
{
    return static_cast<unsigned>(getpid());
}

void* ThreadId()
{
    return reinterpret_cast<void*>(pthread_self());  // NOLINT(performance-no-int-to-ptr): printed, not used
}

// The texts that make up a header, with blanks between them. They are borrowed until they are joined into a string that
// has their size from the start.
class HeaderTexts
{
public:
    void Append(char const* text, std::size_t size)
    {
        texts_[count_++] = {text, size, size_};
        size_ += size;
    }

    void Append(char const* text) { Append(text, std::strlen(text)); }
    void AppendBlank() { ++size_; }

    // A blank, unless the header begins here.
    void Separate()
    {
        if (size_ != 0)
            AppendBlank();
    }

    std::string Join() const
    {
        std::string header(size_, ' ');
        for (std::size_t i = 0; i < count_; ++i)
            std::memcpy(&header[texts_[i].place], texts_[i].text, texts_[i].size);
        return header;
    }

private:
    struct Text
    {
        char const* text;
        std::size_t size;
        std::size_t place;
    };

    // cppcheck-suppress uninitMemberVarPrivate ; only what was appended is read
    Text texts_[8];  // so many are in a header of all elements
    std::size_t count_ = 0;
    std::size_t size_ = 0;
};

// Both ids, the one that is asked for, or an empty text.
void FormatIds(char (&field)[FIELD_SIZE], unsigned flags)
{
    bool const process = (flags & LoggerMgr::HEADER_PROCESS) != 0;
    bool const thread = (flags & LoggerMgr::HEADER_THREAD) != 0;
    if (process && thread)
        std::snprintf(field, sizeof(field), "[%u:%p]", ProcessId(), ThreadId());
    else if (process)
        std::snprintf(field, sizeof(field), "[%u]", ProcessId());
    else if (thread)
        std::snprintf(field, sizeof(field), "[%p]", ThreadId());
    else
        field[0] = '\0';
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
    Entries entry(1);  // made before the lock is taken
    boost::unique_lock<boost::mutex> lock(mutex_);

    entry.front().first = BuildHeader(level, file, line);

    char buffer[MESSAGE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    entry.front().second = internal::FormatGrowing(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);

    queue_.splice(queue_.end(), entry);
    condition_.notify_one();
}

std::pair<std::string, std::string> LoggerMgr::Deq()
{
    Entries entry;  // freed after the lock is released
    boost::unique_lock<boost::mutex> lock(mutex_);
    if (queue_.empty()) {  // lines come in bursts: let those who log go on, before each line has to wake this thread
        lock.unlock();
        sched_yield();
        lock.lock();
    }
    while (queue_.empty())
        condition_.wait(lock);

    entry.splice(entry.end(), queue_, queue_.begin());
    std::pair<std::string, std::string> line = std::move(entry.front());
    return line;
}

void LoggerMgr::Run()
{
    for (;;)
        Deliver(Deq());
}

std::string LoggerMgr::level2string(unsigned level)
{
    return LevelName(level);
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
    if (flags_ == 0)
        return std::string();

    HeaderTexts texts;
    char host[internal::HOST_NAME_SIZE];  // cppcheck-suppress variableScope ; borrowed by the texts, like the next two
    char ids[FIELD_SIZE];
    std::string number;  // cppcheck-suppress variableScope
    if ((flags_ & HEADER_BANNER) != 0)
        texts.Append(BANNER);
    if ((flags_ & HEADER_TIME) != 0) {
        texts.Separate();
        texts.Append(internal::CurrentTimeText());
    }
    if ((flags_ & HEADER_HOST) != 0) {
        internal::ReadHostName(host);
        texts.Separate();
        texts.Append(host);
    }
    if ((flags_ & HEADER_NAME) != 0) {
        texts.Separate();
        texts.Append(name_.data(), name_.size());
    }
    // The separator stands here even when neither id is asked for: monitors know the header by its blanks.
    FormatIds(ids, flags_);
    texts.Separate();
    texts.Append(ids);
    if ((flags_ & HEADER_LEVEL) != 0) {
        texts.Separate();
        texts.Append(LevelName(level));
    }
    texts.AppendBlank();
    if ((flags_ & HEADER_LOCATION) != 0) {
        number = ':' + std::to_string(static_cast<int>(line));
        texts.Append(file != nullptr ? file : "(null)");
        texts.Append(number.data(), number.size());
        texts.AppendBlank();
    }
    return texts.Join();
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
