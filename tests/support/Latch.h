#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tovu { namespace test {

/// The longest that a test waits for something that must happen. Generous: it is only ever used up by a failure.
constexpr std::chrono::seconds DEADLINE{60};

/// Lets one thread wait for events of another: `Arrive` counts up, `WaitFor` waits until the count is reached.
class Latch
{
public:
    void Arrive()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        condition_.notify_all();
    }

    /// False when the deadline came first: the caller fails the test and names the event.
    bool WaitFor(unsigned count = 1)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return condition_.wait_for(lock, DEADLINE, [&] { return count_ >= count; });
    }

    unsigned Count()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    unsigned count_ = 0;
};

}}  // namespace tovu::test
