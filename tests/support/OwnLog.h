#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AddLogger.h"
#include "Latch.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// The lines of a process that has its log for itself, a child: it gives the one log manager a sink, which can be held
/// up, and starts it at level Info. One for each process.
class OwnLog
{
public:
    explicit OwnLog(unsigned flags = 0)
    {
        AddLogger(new Sink(store_));
        util::LoggerMgr::Instance().Init("test", util::LoggerMgr::LEVEL_INFO, flags, 0);
    }

    /// Logs a line, "held", and keeps the log thread inside the sink with it.
    void Hold()
    {
        SetHeld(true);
        TOVU_LOG(util::LoggerMgr::LEVEL_ERROR, "held");
        std::unique_lock<std::mutex> lock(store_->mutex);
        EXPECT_TRUE(store_->changed.wait_for(lock, DEADLINE, [this] { return store_->inside; }))
            << "the log thread did not come to the sink";
    }

    void LetGo() { SetHeld(false); }

    /// The lines logged since the last call, each with its header. Waits until all of them have come through.
    std::vector<std::string> Take()
    {
        char const* const mark = "OwnLog: everything before this line has come through";
        util::LoggerMgr::Instance().Log(util::LoggerMgr::LEVEL_ERROR, "", 0, "%s", mark);

        std::unique_lock<std::mutex> lock(store_->mutex);
        bool const arrived = store_->changed.wait_for(lock, DEADLINE, [&] { return store_->last == mark; });
        EXPECT_TRUE(arrived) << "the log thread did not deliver the mark";
        std::vector<std::string> lines;
        lines.swap(store_->lines);
        if (arrived)
            lines.pop_back();
        store_->last.clear();
        return lines;
    }

private:
    // Where the log thread puts lines and the test takes them. The sink keeps it, as long as the process lives.
    struct Store
    {
        std::mutex mutex;
        std::condition_variable changed;
        bool held = false;
        bool inside = false;  // the log thread waits in the sink
        std::vector<std::string> lines;
        std::string last;  // the last message, without its header
    };

    class Sink : public util::Logger
    {
    public:
        explicit Sink(std::shared_ptr<Store> const& store) : store_(store) {}

        void Log(std::string const& header, std::string const& message) override
        {
            std::unique_lock<std::mutex> lock(store_->mutex);
            store_->inside = true;
            store_->changed.notify_all();
            EXPECT_TRUE(store_->changed.wait_for(lock, DEADLINE, [this] { return !store_->held; }))
                << "the sink was not let go";
            store_->inside = false;
            store_->lines.push_back(header + message);
            store_->last = message;
            store_->changed.notify_all();
        }

    private:
        std::shared_ptr<Store> const store_;
    };

    void SetHeld(bool held)
    {
        std::lock_guard<std::mutex> lock(store_->mutex);
        store_->held = held;
        store_->changed.notify_all();
    }

    std::shared_ptr<Store> const store_ = std::make_shared<Store>();
};

}}  // namespace tovu::test
