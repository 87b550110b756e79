#include "tovu/util/Pipe.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "DestructorGuard.h"
#include "tovu/util/Exception.h"

namespace tovu { namespace util {

// A pipe that cannot be closed is told to the log: nobody could catch an exception here, and one that leaves a
// destructor while another is on its way would end the process.
Pipe::~Pipe() noexcept
{
    try {
        Pipe::Close();
    } catch (...) {
        internal::LogDestructorFailure(__FILE__, __LINE__);
    }
}

bool Pipe::IsOpen() const
{
    return descriptor_ != -1;
}

// Flush comes through the virtual operation, so a derived class that collects bytes gets its chance to write them; it
// may even close the pipe itself. From the destructor it is this class's own.
//
// The descriptor is kept when close(2) fails, although Linux has then released it in most cases: the owner sees which
// one it was. Closing again reports EBADF, or hits whatever has been opened under that number since, so an owner who
// sees this exception gives the object up.
void Pipe::Close()
{
    if (!IsOpen())  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
        return;

    Flush();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
    if (descriptor_ != -1 && close(descriptor_) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    descriptor_ = -1;
}

// Answers of a closed pipe, none of which is an error:
//
//   Read, Write        0, and nothing is moved
//   IsDataAvailable    false, and the count is left alone
//   Flush              false
//   Close              nothing happens

bool Pipe::Flush()
{
    return IsOpen();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
}

// Index 0 is the end to read from, 1 the end to write to, as descriptors 0 and 1 are a process's input and output.
// The caller decides what a failure means: EMFILE, no descriptors left in the process, or ENFILE, none left in the
// system. pipe(2) leaves the array alone then, so the -1 set before stays: two closed Pipes can be made of it.
//
// The ends are inherited by children, which is what pipes are mostly for. A reader sees the end of the data only when
// every copy of the writing end is closed, so each side closes the end that it does not use.
int Pipe::CreatePipe(int* fds)
{
    fds[0] = -1;
    fds[1] = -1;
    return pipe(fds);
}

// True means that the question could be answered. A reader that took it for "bytes are waiting" would still be right
// to go on: after a selector has found the pipe readable, no bytes means that the writing end is closed, and the read
// that follows returns 0.
bool Pipe::IsDataAvailable(unsigned long long* count)
{
    if (!IsOpen())
        return false;

    int waiting = 0;
    if (ioctl(descriptor_, FIONREAD, &waiting) == -1)
        return false;

    if (count != nullptr)
        *count = static_cast<unsigned>(waiting);
    return true;
}

// Each transfer is one system call, on a pipe that holds 65536 bytes unless it was resized (F_SETPIPE_SZ):
//
//   read     waits for the first byte, then delivers what there is; when nothing is left and every copy of the writing
//            end is closed, 0, and 0 again on each further call
//   write    of at most PIPE_BUF (4096) bytes is never cut in two, nor mixed with those of another writer; a larger one
//            waits until all of it has gone
//
// A pipe is a stream of bytes: one read may deliver those of several writes, or a part of one. Whoever sends messages
// frames them, as MessageProcessor does with its delimiter, or reads counted bytes with a StreamReader. Whoever must
// not wait asks a StreamSelector before.
//
// What fails, or seems to:
//
//   EAGAIN   the pipe is in non-blocking mode, and empty or full
//   EBADF    this is the other end
//   EINTR    a signal came before the first byte; the call is not repeated
//   EPIPE    nobody reads any more; the system sends SIGPIPE as well, which ends a process that does not ignore it
//
// A write in non-blocking mode that found room for a part only has no errno of its own. It throws all the same, with
// whatever errno holds, and the part stays in the pipe.

int Pipe::Read(void* buffer, unsigned int length)
{
    if (!IsOpen())
        return 0;

    ssize_t const result = read(descriptor_, buffer, length);
    if (result < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(result);
}

int Pipe::Write(void const* buffer, unsigned int length)
{
    if (!IsOpen())
        return 0;
    ssize_t const result = write(descriptor_, buffer, length);
    if (result < 0 || static_cast<size_t>(result) != length)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(length);
}

}}  // namespace tovu::util
