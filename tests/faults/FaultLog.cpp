#include "FaultLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "AddLogger.h"
#include "Latch.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

namespace {

using util::Logger;
using util::LoggerMgr;

// Short enough for the library to pass it on without any memory: nothing of it is left when it has arrived.
char const* const MARK = "mark";

bool _installed = false;

// Where the log thread puts lines and the test takes them. Both live as long as the process.
struct Store
{
    std::mutex mutex;
    std::condition_variable changed;
    Text lines;
    bool marked = false;
    long thread = 0;
};

Store& TheStore()
{
    static Store* const store = new Store;
    return *store;
}

void AppendLine(Text& lines, char const* header, char const* message)
{
    char line[512] = "; ";
    std::size_t length = std::strlen(line);
    for (char const* from = std::strchr(header, ' ') + 1; *from != '\0' && length < sizeof(line) - 1; ++from)
        line[length++] = *from;
    for (char const* from = message; *from != '\0' && *from != '\n' && length < sizeof(line) - 1; ++from)
        line[length++] = *from;
    line[length] = '\0';
    lines.Append(line);
}

class StoringLogger : public Logger
{
public:
    void Log(std::string const& header, std::string const& message) override
    {
        Store& store = TheStore();
        std::lock_guard<std::mutex> const lock(store.mutex);
        store.thread = syscall(SYS_gettid);
        if (message == MARK)
            store.marked = true;
        else if (header.compare(0, 6, "Error ") == 0)
            AppendLine(store.lines, header.c_str(), message.c_str());
        store.changed.notify_all();
    }
};

bool Sleeps(long thread)
{
    char path[64];
    std::snprintf(path, sizeof(path), "/proc/self/task/%ld/stat", thread);
    int const file = open(path, O_RDONLY | O_CLOEXEC);
    char status[256] = "";
    ssize_t const length = read(file, status, sizeof(status) - 1);
    close(file);
    if (length <= 0)
        return false;
    status[length] = '\0';
    char const* const name = std::strrchr(status, ')');
    return name != nullptr && std::strncmp(name, ") S", 3) == 0;
}

}  // namespace

void FaultLog::Install()
{
    if (_installed)
        return;
    _installed = true;

    AddLogger(new StoringLogger);
    LoggerMgr::Instance().Init("faults", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION,
                               0);
}

void FaultLog::Take(Text& text)
{
    if (!_installed)
        return;

    LoggerMgr::Instance().Log(LoggerMgr::LEVEL_ERROR, "", 0, "%s", MARK);

    Store& store = TheStore();
    std::unique_lock<std::mutex> lock(store.mutex);
    ASSERT_TRUE(store.changed.wait_for(lock, DEADLINE, [&] { return store.marked; })) << "the log thread is silent";
    store.marked = false;
    text.Append(store.lines.Get());
    store.lines.Clear();
}

void FaultLog::AwaitSleep()
{
    if (!_installed)
        return;

    Text ignored;
    Take(ignored);
    while (!Sleeps(TheStore().thread))
        sched_yield();
}

}}  // namespace tovu::test
