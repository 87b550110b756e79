#pragma once

#include <sys/select.h>
#include <sys/time.h>

namespace tovu { namespace util {

class Stream;

/// Waits until streams can be read or written, with select(2). Made for one wait: add streams, select, query.
/// \code
///     bool HasInput(Stream const& stream)
///     {
///         StreamSelector selector;
///         selector.AddStreamForReading(stream);
///         StreamSelector::TimeVal timeout(2, 500000);  // two and a half seconds
///         return selector.Select(timeout) && selector.IsStreamReadyForReading(stream);
///     }
/// \endcode
///
/// It works on streams that have a descriptor: Pipe, Socket and FileHandleStream. Descriptors from 1024 on do not fit
/// the sets: a hardened build ends the process, any other is undefined, so a server refuses such descriptors before.
///
/// Ownership: borrows the streams, during each call only.
/// Threads: one thread for each object.
/// Errors: Exception "Invalid stream." for a stream that is closed or of another kind; Exception with the text of
///     `errno` when select(2) fails. An interrupted wait is not an error.
class StreamSelector
{
public:
    /// The longest time to wait. select(2) leaves in it the time that was not used.
    /// \code
    ///     StreamSelector::TimeVal timeout(2, 500000);  // two and a half seconds
    ///     StreamSelector().Select(timeout);            // no stream: sleeps
    /// \endcode
    struct TimeVal : timeval
    {
        /// \param seconds      Whole seconds, from 0.
        /// \param microseconds 0 to 999999 on top.
        TimeVal(long seconds, long microseconds);
    };
    static_assert(sizeof(timeval) == 2 * sizeof(long),
                  "on 32 bits the library takes select(2)'s timeval as it is without _TIME_BITS=64");

    /// A selector that watches nothing.
    StreamSelector();

    /// Watches for bytes to read, for the end of the data, and for a connection to accept.
    void AddStreamForReading(Stream const& stream);

    /// Watches for room to write. One stream may be watched for both.
    void AddStreamForWriting(Stream const& stream);

    /// Waits without limit.
    /// \return True when a stream is ready: only ready streams are set now, so for the next wait make a new selector.
    ///         False when a signal interrupted the wait: nothing is known about any stream.
    bool Select();

    /// Waits at most `timeout`.
    /// \return As Select(); false also when the time is over, and then no stream is set.
    bool Select(TimeVal& timeout);

    /// True for a stream that was added for reading and that the wait found ready. Before the wait: that was added.
    bool IsStreamReadyForReading(Stream const& stream) const;

    /// True for a stream that was added for writing and that the wait found ready. Before the wait: that was added.
    bool IsStreamReadyForWriting(Stream const& stream) const;

private:
    fd_set readSet_;
    fd_set writeSet_;
};

}}  // namespace tovu::util
