#include "CapturedLog.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "AddLogger.h"
#include "Latch.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

namespace {

using util::Logger;
using util::LoggerMgr;

char const* const MARK = "CapturedLog: everything before this line has come through";

// Where the log thread puts lines and the test takes them.
struct Store
{
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<CapturedLog::Line> lines;
};

Store& TheStore()
{
    static Store* const store = new Store;  // the log thread may still use it when the process ends
    return *store;
}

class CapturingLogger : public Logger
{
public:
    void Log(std::string const& header, std::string const& message) override
    {
        Store& store = TheStore();
        std::lock_guard<std::mutex> lock(store.mutex);
        store.lines.push_back({header, message});
        store.changed.notify_all();
    }
};

bool Install()
{
    AddLogger(new CapturingLogger);
    LoggerMgr::Instance().Init("test", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION, 0);
    return true;
}

}  // namespace

CapturedLog::CapturedLog()
{
    static bool const installed = Install();
    static_cast<void>(installed);
    Take();
}

std::vector<CapturedLog::Line> CapturedLog::Take()
{
    TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s", MARK);

    Store& store = TheStore();
    std::unique_lock<std::mutex> lock(store.mutex);
    bool const arrived = store.changed.wait_for(
        lock, DEADLINE, [&] { return !store.lines.empty() && store.lines.back().message == MARK; });
    EXPECT_TRUE(arrived) << "the log thread did not deliver the mark";

    std::vector<Line> lines;
    lines.swap(store.lines);
    if (arrived)
        lines.pop_back();
    return lines;
}

}}  // namespace tovu::test
