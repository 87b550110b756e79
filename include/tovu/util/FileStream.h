#pragma once

#include <cstdio>
#include <string>

#include "tovu/util/RandomSeekStream.h"

namespace tovu { namespace util {

/// A buffered, seekable file: a RandomSeekStream over a FILE of stdio(3). For whole files, read or written in order.
/// \code
///     FileStream file;
///     file.Open("/srv/volumes/photos/readme", "w");
///     file.Write("Photos.\n", 8);
///     file.Flush();  // a full device shows here, not in the destructor
///     file.Close();
/// \endcode
///
/// Positions are those of the 32-bit file interfaces on every build: offsets are cut to their low 32 bits, and a
/// position from 2 GiB on fails with EOVERFLOW. There is no descriptor, so a StreamSelector refuses it, and there are no
/// record locks.
///
/// Ownership: owns its file; not copyable. The destructor closes it, and an error of that leaves the destructor: bytes
///     that are still buffered may not find room on the device. To learn of that in time, call Flush and then Close.
/// Threads: one thread at a time.
/// Errors: a failed call throws Exception with the text of `errno`. Read, Write, Tell, Seek and IsDataAvailable need an
///     open stream.
class FileStream : public RandomSeekStream
{
public:
    /// A closed stream whose 64-bit values are stored most significant byte first on every host.
    FileStream() : FileStream(!IsBigEndian()) {}

    /// A closed stream that reverses 64-bit values when `swapBytes` is true, and stores them as the host does
    /// otherwise.
    explicit FileStream(bool swapBytes) : RandomSeekStream(swapBytes), file_(nullptr) {}

    FileStream(FileStream const&) = delete;
    FileStream& operator=(FileStream const&) = delete;
    ~FileStream() noexcept(false) override;  // NOLINT(bugprone-exception-escape): see above

    bool IsOpen() const override;

    /// See fclose(3). When that fails, the system has released the file all the same, but the stream still counts as
    /// open: it must not be used again, nor destroyed.
    void Close() override;

    /// Hands what is buffered to the system, see fflush(3). When that fails, what was buffered is given up, and Close has
    /// nothing left to fail on.
    bool Flush() override;

    /// Stores size minus position, and returns whether that is not 0. Once a read has met the end of the file, this is
    /// 0 until the next Seek. Costs seeks to the end and back, which drop what is buffered.
    bool IsDataAvailable(unsigned long long* count) override;

    /// Reads `length` bytes, fewer only at the end of the file; 0 there. See fread(3).
    int Read(void* buffer, unsigned int length) override;

    /// Writes all of `length`, into the buffer first: an error of the device may show in a later call. See fwrite(3).
    int Write(void const* buffer, unsigned int length) override;

    /// See ftell(3).
    unsigned long long Tell() override;

    /// See fseek(3).
    /// \return 0, not the position: ask Tell.
    unsigned long long Seek(long long offset, int whence) override;

    /// Does nothing, and succeeds.
    void LockRegion(Region const& region, bool exclusive) override;

    /// Does nothing, and succeeds.
    void UnlockRegion(Region const& region) override;

    /// Opens a file with the mode of fopen(3). Requires a closed stream: the file of an open one is forgotten without
    /// being closed, also when this fails.
    void Open(std::string const& path, std::string const& mode);

private:
    std::FILE* file_;  // null when closed
};

}}  // namespace tovu::util
