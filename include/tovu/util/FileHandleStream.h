#pragma once

#include <string>

#include "tovu/util/RandomSeekStream.h"

namespace tovu { namespace util {

/// An unbuffered, seekable file: a RandomSeekStream over one descriptor, with record locks.
/// \code
///     #include <fcntl.h>
///     FileHandleStream file;
///     file.Open("/srv/volumes/photos/index", O_RDWR | O_CREAT, 0644);
///     RandomSeekStream::Region const counter = {0, 8};  // the bytes 0 to 7
///     file.LockRegion(counter, true);
///     file.WritePtr(0, file.ReadPtr(0) + 1);
///     file.UnlockRegion(counter);
/// \endcode
///
/// Positions, sizes and regions are those of the 32-bit file interfaces on every build: values are cut to their low 32
/// bits on the way down and sign-extended on the way up, and a position from 2 GiB on fails with EOVERFLOW. So files
/// stay below 2 GiB.
///
/// Ownership: owns its descriptor; not copyable. The destructor closes it and logs a failure instead of throwing.
/// Threads: one thread at a time. Record locks belong to the process and do not keep its own threads apart.
/// Errors: a failed system call throws Exception with the text of `errno` and leaves the object as it was. A closed
///     stream has an answer for each operation; only Open, PlatformSeek, LockRegion and UnlockRegion make their system
///     call then as well.
class FileHandleStream : public RandomSeekStream
{
public:
    /// A closed stream whose 64-bit values are stored most significant byte first on every host.
    FileHandleStream() : FileHandleStream(!IsBigEndian()) {}

    /// A closed stream that reverses 64-bit values when `swapBytes` is true, and stores them as the host does
    /// otherwise.
    explicit FileHandleStream(bool swapBytes) : RandomSeekStream(swapBytes), descriptor_(-1) {}

    FileHandleStream(FileHandleStream const&) = delete;
    FileHandleStream& operator=(FileHandleStream const&) = delete;
    ~FileHandleStream() noexcept override;

    bool IsOpen() const override;

    /// See close(2). When that fails, the stream stays open and keeps its path. Does not flush.
    void Close() override;

    /// See fsync(2).
    bool Flush() override;

    /// Stores size minus position, and returns whether that is not 0; a position past the end gives a huge number. On a
    /// closed stream the number is 1 and the result true.
    bool IsDataAvailable(unsigned long long* count) override;

    /// One read(2). On a closed stream 0.
    int Read(void* buffer, unsigned int length) override;

    /// One write(2), which must take all of `length`: a short write throws, with whatever `errno` holds. On a closed
    /// stream 0.
    int Write(void const* buffer, unsigned int length) override;

    /// The position, or 0xFFFFFFFFFFFFFFFF on a closed stream.
    unsigned long long Tell() override;

    /// Moves to a position and returns it; 0xFFFFFFFFFFFFFFFF on a closed stream.
    unsigned long long Seek(long long offset, int whence) override;

    /// See fcntl(2), F_SETLK. Never waits: throws at once when another process holds a lock in the way.
    void LockRegion(Region const& region, bool exclusive) override;

    /// See fcntl(2), F_SETLK with F_UNLCK.
    void UnlockRegion(Region const& region) override;

    /// Opens a file with the flags and the mode of open(2). Throws the current `errno` when the stream is already open,
    /// and leaves it as it was.
    virtual void Open(std::string const& path, int flags, int mode);

    /// The size in bytes, found by seeking to the end and back; 0 on a closed stream.
    virtual unsigned long long GetSize();

    /// Cuts or extends the file, see ftruncate(2). The position stays, even past the new end. On a closed stream
    /// nothing.
    virtual void SetSize(unsigned long long size);

    /// One lseek(2), also on a closed stream, which throws then. Returns the new position.
    unsigned long long PlatformSeek(long long offset, int whence);

    /// The descriptor, still owned by the stream; -1 when closed.
    int GetDescriptor() const { return descriptor_; }

    /// The path of the last successful Open; empty when closed.
    std::string const& GetPath() const { return path_; }

private:
    int descriptor_;  // -1 when closed
    std::string path_;
};

}}  // namespace tovu::util
