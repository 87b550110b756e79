#pragma once

#include "tovu/util/Stream.h"

namespace tovu { namespace util {

/// One end of an anonymous pipe, as a Stream. See pipe(7).
/// \code
///     #include <cerrno>
///     #include "tovu/util/Exception.h"
///     int ends[2];
///     if (Pipe::CreatePipe(ends) == -1)
///         throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
///     Pipe reader(ends[0]);
///     Pipe writer(ends[1]);
/// \endcode
///
/// Ownership: adopts the descriptor and closes it; not copyable. The destructor logs a failure instead of throwing.
/// Threads: one thread at a time; the two ends may be used by different threads or processes.
/// Errors: Read, Write and Close throw Exception with the text of `errno`. Nothing throws on a closed Pipe.
class Pipe : public Stream
{
public:
    /// Adopts one end of a pipe; -1 makes a closed Pipe.
    explicit Pipe(int descriptor = -1) : descriptor_(descriptor) {}

    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;
    ~Pipe() noexcept override;

    /// Makes a pipe: `fds[0]` receives its reading end and `fds[1]` its writing end, owned by the caller. The ends are
    /// inherited by child processes.
    /// \return 0, or -1 with `errno` set and both ends -1.
    static int CreatePipe(int* fds);

    bool IsOpen() const override;

    /// Flushes, then close(2). When that fails the Pipe keeps its descriptor.
    void Close() override;

    /// Does nothing: a pipe has nothing to push.
    bool Flush() override;

    /// Stores the number of bytes waiting. True whenever the kernel could say, also for 0 bytes: look at the count to
    /// learn whether bytes wait. False, without touching `count`, on a closed Pipe or when the query failed.
    bool IsDataAvailable(unsigned long long* count) override;

    /// One read(2). Returns 0 once the writing end is closed everywhere, and on a closed Pipe. An interrupted call
    /// throws; it is not retried.
    int Read(void* buffer, unsigned int length) override;

    /// One write(2), which must take all of `length`: a short write throws, with whatever `errno` holds. On a closed
    /// Pipe 0.
    int Write(void const* buffer, unsigned int length) override;

    /// The descriptor, still owned by the Pipe; -1 when closed.
    int GetDescriptor() const { return descriptor_; }

private:
    int descriptor_;  // -1 when closed
};

}}  // namespace tovu::util
