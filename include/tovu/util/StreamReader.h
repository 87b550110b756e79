#pragma once

namespace tovu { namespace util {

class Stream;

/// Reads whole buffers from a stream, waiting with a StreamSelector before every read.
/// \code
///     bool ReadHeader(Stream& stream, unsigned char (&header)[16])
///     {
///         return StreamReader(stream).Read(header, sizeof(header)) == sizeof(header);
///     }
/// \endcode
///
/// Ownership: borrows the stream, which must outlive the reader.
/// Threads: no state of its own: as the stream. A reader and a writer of one socket may run on different threads.
/// Errors: what the selector and the stream throw passes through. A stream that ends early is logged, not thrown.
class StreamReader
{
public:
    /// A reader for one stream; reads nothing yet.
    explicit StreamReader(Stream& stream) : stream_(stream) {}

    /// Reads until `length` bytes have come; blocks without limit, interruptions included.
    /// \return `length`, or less when the stream returned 0 before: then "read failed." is logged as an error.
    unsigned int Read(void* buffer, unsigned int length) const;

private:
    Stream& stream_;
};

}}  // namespace tovu::util
