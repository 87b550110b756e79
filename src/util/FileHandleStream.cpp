#include "tovu/util/FileHandleStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "DestructorGuard.h"
#include "tovu/util/Exception.h"

namespace tovu { namespace util {

FileHandleStream::~FileHandleStream() noexcept
{
    try {
        FileHandleStream::Close();
    } catch (...) {
        internal::LogDestructorFailure(__FILE__, __LINE__);
    }
}

// A close that fails leaves the stream open with its path, so that its owner can still tell which file it was.
// Nothing is flushed: whoever needs the bytes on the device calls Flush before.
void FileHandleStream::Close()
{
    if (!IsOpen())  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
        return;
    if (close(descriptor_) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    descriptor_ = -1;
    path_.clear();
}

bool FileHandleStream::IsOpen() const
{
    return descriptor_ != -1;
}

// Waits for the device: that can take seconds where a disk has to spin up first.
bool FileHandleStream::Flush()
{
    if (!IsOpen())
        return false;
    if (fsync(descriptor_) < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return true;
}

// Answers of a closed stream, none of which is an error:
//
//   Read, Write, GetSize    0, and nothing is moved
//   Tell, Seek              NO_POSITION
//   IsDataAvailable         true with a count of 1, see there
//   Flush                   false
//   Close, SetSize          nothing happens
//
// The two lock operations ask the system instead, which refuses the descriptor -1.

namespace {

// What Tell and Seek answer on a closed stream: all bits set.
constexpr unsigned long long NO_POSITION = 0xFFFFFFFFFFFFFFFFULL;

}  // namespace

// Both numbers come through the virtual operations, the size first. A closed stream has size 0 and no position: 0 minus
// all bits set is 1, so it reports one byte. With the position past the end the difference wraps around as well.
//
// The answer takes five system calls, four for the size and one for the position. A reader of whole files does better
// to read until it gets 0.
bool FileHandleStream::IsDataAvailable(unsigned long long* count)
{
    unsigned long long const size = GetSize();
    unsigned long long const remaining = size - Tell();
    if (count != nullptr)
        *count = remaining;
    return remaining != 0;
}

// Each transfer is one system call. A read tells how much it delivered. A write has no such answer: it took everything,
// or it failed, and what a short one had already taken stays written. On a regular file that happens when the device is
// full or a size limit is reached. A short write leaves errno alone, so what is thrown then may describe an older
// error; the next write would get the right one.
//
// Interrupted calls are not repeated. They do not happen on regular files; on slow devices, a terminal or a named pipe
// for example, the caller is to know.
//
// What else a caller may meet:
//
//   EBADF            the file is open for the other direction only
//   EISDIR           a folder, which open(2) does open for reading
//   EAGAIN           O_NONBLOCK was asked for, and the device is not ready
//   EFBIG            the size limit of the process; the system sends SIGXFSZ as well
//   EINTR            a signal came before the first byte
//   EIO              the device failed, perhaps in an earlier write that only now reached it
//   ENOSPC, EDQUOT   no room on the device, or no more for this user

int FileHandleStream::Read(void* buffer, unsigned int length)
{
    if (!IsOpen())
        return 0;

    ssize_t const result = read(descriptor_, buffer, length);
    if (result < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(result);
}

int FileHandleStream::Write(void const* buffer, unsigned int length)
{
    if (!IsOpen())
        return 0;
    ssize_t const result = write(descriptor_, buffer, length);
    if (result < 0 || static_cast<size_t>(result) != length)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(length);
}

// The size is found by going to the end and back, so it also holds for devices, whose file status has no size. It takes
// four steps; when one of them fails, the position is where the steps before it left it. So for a file of 2 GiB or
// more, which has no size here: EOVERFLOW, and the position is at its end.
unsigned long long FileHandleStream::GetSize()
{
    if (!IsOpen())
        return 0;

    unsigned long long const saved = PlatformSeek(0, SEEK_CUR);
    PlatformSeek(0, SEEK_END);
    unsigned long long const size = PlatformSeek(0, SEEK_CUR);
    PlatformSeek(static_cast<long long>(saved), SEEK_SET);
    return size;
}

namespace {

// The interface speaks of 64-bit positions, sizes and regions, but files stay below 2 GiB on every build. On the way
// down a value loses its high half, and the rest is taken as a signed number:
//
//   0x00000005     5
//   0x100000000    0
//   0x100000005    5
//   0x7FFFFFFF     the last position that there is
//   0x80000000     -2147483648, which SEEK_SET, ftruncate and the locks refuse with EINVAL
//   0xFFFFFFFF     -1; a step back for SEEK_CUR and SEEK_END, like all bits set
//
// A negative length of a region is not refused: the system takes it for the bytes in front of the offset.
int CutTo32Bits(unsigned long long value)
{
    static_assert(sizeof(int) == 4, "offsets are cut to 32 bits");
    return static_cast<int>(value & 0xFFFFFFFFU);
}

}  // namespace

// Record locks, see fcntl(2). What users of LockRegion and UnlockRegion should know:
//
//   - they are advisory: only those who ask are kept out;
//   - they belong to the process, not to the stream. A second stream on the same file in the same process is not kept
//     out, and closing any descriptor of the file gives up every lock that the process holds on it;
//   - a child process does not inherit them, and a process that ends, in whatever way, gives its own up;
//   - they are not counted: one call gives back what any number of calls took;
//   - a region may lie past the end of the file, so that room can be taken before it is written to;
//   - an exclusive lock needs a file opened for writing, a shared one a file opened for reading (EBADF);
//   - a length of 0 means up to the end of the file, however far it grows. Its bytes are then all those from the offset
//     on, also for the one who gives it back;
//   - a new lock replaces those of the same process where they overlap: taking a shared one over an exclusive one
//     lets the other readers in.
//
// They never wait: whoever wants to asks again later, and decides how long. So two processes that take regions in a
// different order do not lock each other up. What fails:
//
//   EAGAIN, EACCES   another process holds a lock in the way; which of the two depends on the file system
//   EBADF            the stream is closed, or not open for the direction that the lock is for
//   EINVAL           the region starts before the file, or this kind of file has no locks
//   ENOLCK           the system has no room for more locks, or the lock service of a network file system is away

namespace {

struct flock RecordLock(int type, RandomSeekStream::Region const& region)
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = CutTo32Bits(region.offset);
    lock.l_len = CutTo32Bits(region.length);
    return lock;
}

int SetLock(int descriptor, int type, RandomSeekStream::Region const& region)
{
    struct flock lock = RecordLock(type, region);
    return fcntl(descriptor, F_SETLK, &lock);
}

}  // namespace

// Also the way to turn an exclusive lock into a shared one and back. On the way back it can fail, while the shared lock
// is kept.
void FileHandleStream::LockRegion(Region const& region, bool exclusive)
{
    if (SetLock(descriptor_, exclusive ? F_WRLCK : F_RDLCK, region) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

// A part of a locked region may be given back: what stands before and behind it stays locked. Giving back what was
// never taken is no error.
//
// Nothing is flushed here. Another process that takes the region next sees every byte written before, since both look
// at the same cached pages; the device may not have them yet.
void FileHandleStream::UnlockRegion(Region const& region)
{
    if (SetLock(descriptor_, F_UNLCK, region) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

// Opening twice is an error, not a reopening: the stream keeps its file, and what is thrown describes the errno of some
// earlier call, which may well be "Success".
//
// The flags and the mode go to open(2) as they are. So the descriptor is inherited by child processes unless the caller
// adds O_CLOEXEC, and the mode, which counts only with O_CREAT, is reduced by the process's umask.
//
//   reading              O_RDONLY                          0
//   updating in place    O_RDWR                            0
//   writing anew         O_WRONLY | O_CREAT | O_TRUNC      0644
//   writing, never over  O_WRONLY | O_CREAT | O_EXCL       0644, EEXIST when there is such a file
//   appending            O_WRONLY | O_CREAT | O_APPEND     0644, every write goes to the end, whatever Seek said
//   a named pipe         O_RDONLY | O_NONBLOCK             0, does not wait for the other side to open it
//
// O_LARGEFILE changes nothing on a 64-bit build. On a 32-bit one it lets a file past 2 GiB be opened as it can be
// there: it is the position past that limit which fails, on both.
void FileHandleStream::Open(std::string const& path, int flags, int mode)
{
    if (IsOpen())
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    std::string opened(path);
    int const descriptor = open(path.c_str(), flags | O_LARGEFILE, static_cast<mode_t>(mode));
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    descriptor_ = descriptor;
    path_.swap(opened);
}

// The position is the kernel's, and shared with every copy of the descriptor, also with those of child processes.
unsigned long long FileHandleStream::Tell()
{
    if (!IsOpen())
        return NO_POSITION;
    return PlatformSeek(0, SEEK_CUR);
}

// Returns the new position, where FileStream returns 0: who works on any RandomSeekStream asks Tell. Going past the end
// is no error and does not change the file.
unsigned long long FileHandleStream::Seek(long long offset, int whence)
{
    if (!IsOpen())
        return NO_POSITION;
    return PlatformSeek(offset, whence);
}

// A file that grows reads as zeroes there, and takes no room on the device for them: that it was extended does not mean
// that it can be filled. The position is left alone: past a new end, a read delivers nothing and a write leaves a gap.
//
// A size of 2 GiB or more is negative once it is cut (EINVAL), or stands for what its low 32 bits say: 0x100000000
// empties the file. Record locks behind a new end stay.
//
// A file that is open for reading only cannot be resized (EINVAL), and neither can a folder, a pipe or a device.
void FileHandleStream::SetSize(unsigned long long size)
{
    if (!IsOpen())
        return;
    if (ftruncate(descriptor_, CutTo32Bits(size)) < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

namespace {

// On the way up a position is widened with its sign. One that needs more than 32 bits is an error on every build, the
// one that a system call with 32-bit positions gives. As there, the file has then moved all the same: what follows on
// the stream happens at a position that it cannot tell. Seek to a place that it can name first.
off_t SeekWithin32Bits(int descriptor, int offset, int whence)
{
    off_t const position = lseek(descriptor, offset, whence);
    if (position == static_cast<off_t>(static_cast<int>(position)))
        return position;
    errno = EOVERFLOW;
    return -1;
}

}  // namespace

// Whether the stream is open is not asked: the system refuses the descriptor -1 (EBADF). What else fails:
//
//   EINVAL      the position would lie before the start, or `whence` is none of the three
//   EOVERFLOW   it is 2 GiB or more
//   ESPIPE      the file is a pipe, a socket or a terminal, which have no positions
//
// GetSize and IsDataAvailable come here too, so they fail on such files in the same way. A reader of a named pipe waits
// with a StreamSelector instead.
unsigned long long FileHandleStream::PlatformSeek(long long offset, int whence)
{
    off_t const position = SeekWithin32Bits(descriptor_, CutTo32Bits(static_cast<unsigned long long>(offset)), whence);
    if (position < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<unsigned long long>(position);
}

}}  // namespace tovu::util
