#pragma once

#include <memory>

#include "tovu/util/Pipe.h"

namespace volume {

/// Wakes a thread that waits with a StreamSelector: a pipe to itself.
///
/// Threads: Notify may be called from any thread and from a signal handler; the rest belongs to the waiting thread.
class Notifier
{
public:
    /// Throws tovu::util::Exception when the pipe cannot be made.
    Notifier();

    /// Makes Waiter() readable. Leaves `errno` as it was.
    void Notify() noexcept;

    /// The end to add to a selector.
    tovu::util::Pipe const& Waiter() const { return *waiter_; }

    /// Takes every notification so far back, once a selector has found one.
    void Clear();

private:
    std::unique_ptr<tovu::util::Pipe> waiter_;
    std::unique_ptr<tovu::util::Pipe> notifier_;  // non-blocking: when the pipe is full, the waiter is notified already
};

}  // namespace volume
