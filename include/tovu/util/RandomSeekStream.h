#pragma once

#include <string>

#include "tovu/util/Stream.h"

namespace tovu { namespace util {

/// A Stream that can be positioned, and whose regions can be locked: the interface of the file streams.
/// \code
///     std::string Rename(RandomSeekStream& index, std::string const& name)
///     {
///         std::string const old = index.Readstring(8);
///         index.Writestring(8, name);
///         return old;
///     }
/// \endcode
///
/// It also reads and writes two kinds of values at absolute offsets: 64-bit values (eight bytes, most significant first
/// when the stream swaps on a little-endian host) and strings (their bytes and one NUL byte).
///
/// Threads: one thread at a time for each object: an offset operation is a seek and then a transfer.
/// Errors: what the seek and the transfer of the concrete class throw. Their results are not examined.
class RandomSeekStream : public Stream
{
public:
    /// A range of bytes in a file.
    /// \code
    ///     bool IsInside(RandomSeekStream::Region const& region, unsigned long long offset)
    ///     {
    ///         return offset >= region.offset && offset - region.offset < region.length;
    ///     }
    /// \endcode
    struct Region
    {
        unsigned long long offset;  ///< The first byte, counted from the start of the file.
        unsigned long long length;  ///< The number of bytes.
    };

    ~RandomSeekStream() noexcept(false) override;

    /// The current position, in bytes from the start.
    virtual unsigned long long Tell() = 0;

    /// Moves the position. `whence` is SEEK_SET, SEEK_CUR or SEEK_END. What is returned differs, see each class.
    virtual unsigned long long Seek(long long offset, int whence) = 0;

    /// Takes a record lock, exclusive or shared, without waiting for it.
    virtual void LockRegion(Region const& region, bool exclusive) = 0;

    /// Gives a record lock back.
    virtual void UnlockRegion(Region const& region) = 0;

    /// Reads from `offset` on.
    /// \return What Read returned.
    int ReadAtOffset(unsigned long long offset, void* buffer, unsigned int length);

    /// Writes from `offset` on.
    /// \return What Write returned.
    int WriteAtOffset(unsigned long long offset, void const* buffer, unsigned int length);

    /// The 64-bit value at `offset`. The caller vouches for the offset: past the end of the file the result means nothing,
    /// and no error is raised.
    unsigned long long ReadPtr(unsigned long long offset);

    /// Writes a 64-bit value at `offset`.
    /// \return What Write returned.
    int WritePtr(unsigned long long offset, unsigned long long value);

    /// The string at `offset`, without its NUL. Only for strings that Writestring wrote: when the data ends before a
    /// NUL, the last byte is appended again and again, without end.
    std::string Readstring(unsigned long long offset);

    /// Writes `text` and one NUL byte at `offset`. `text` must not hold a NUL itself.
    /// \return What Write returned.
    int Writestring(unsigned long long offset, std::string const& text);

protected:
    /// \param swapBytes True to reverse the eight bytes of 64-bit values between memory and file.
    explicit RandomSeekStream(bool swapBytes);

private:
    void SeekTo(unsigned long long offset);

    bool swapBytes_;
};

}}  // namespace tovu::util
