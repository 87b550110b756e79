#pragma once

#include <string>

namespace tovu { namespace util {

class Stream;

/// Writes whole buffers and whole files to a stream, waiting with a StreamSelector before every write.
/// \code
///     void SendFile(Stream& stream, std::string const& path)
///     {
///         StreamWriter const writer(stream);
///         writer.Write("FILE\n", 5);
///         writer.WriteFile(path);
///     }
/// \endcode
///
/// Ownership: borrows the stream, which must outlive the writer.
/// Threads: no state of its own: as the stream. A reader and a writer of one socket may run on different threads.
/// Errors: what the selector and the stream throw passes through. A stream that takes no more is logged, not thrown.
class StreamWriter
{
public:
    /// A writer for one stream; writes nothing yet.
    explicit StreamWriter(Stream& stream) : stream_(stream) {}

    /// Writes until `length` bytes have gone; blocks without limit, interruptions included.
    /// \return `length`, or less when the stream returned 0 before: then "write failed." is logged as an error.
    unsigned int Write(void const* buffer, unsigned int length) const;

    /// Copies a file into the stream, in pieces of 32768 bytes.
    ///
    /// The size is taken once, at the start, and that many bytes are sent whatever happens to the file meanwhile: where
    /// it has become shorter, the rest is filled with bytes of earlier pieces, or with zeroes in the first one. Throws
    /// when the file cannot be opened or read, or has 2 GiB or more, see FileHandleStream.
    void WriteFile(std::string const& path) const;

private:
    Stream& stream_;
};

}}  // namespace tovu::util
