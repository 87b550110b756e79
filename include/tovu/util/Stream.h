#pragma once

namespace tovu { namespace util {

/// The one interface of every byte channel: files, pipes and sockets.
/// \code
///     void Greet(Stream& stream)
///     {
///         if (stream.IsOpen())
///             stream.Write("Hello\n", 6);
///     }
/// \endcode
///
/// A Read or a Write is one system call: there is no buffer between, no loop over partial transfers, no retry after an
/// interruption. FileStream alone has a buffer, and goes on after a part. StreamReader, StreamWriter and MessageWriter
/// move whole buffers over any stream that has a descriptor.
///
/// Ownership: a stream owns its descriptor, and its destructor closes it. TenantSocket alone borrows its own.
/// Threads: one thread at a time for each object.
/// Errors: a failed system call throws Exception with the text of `errno`. A result of 0 is never an error code.
class Stream
{
public:
    virtual ~Stream() noexcept(false);  // FileStream may fail to close in its destructor

    /// True while the stream holds a live descriptor or handle.
    virtual bool IsOpen() const = 0;

    /// Releases the descriptor. Nothing happens on a stream that is not open.
    virtual void Close() = 0;

    /// Pushes what is cached towards the device.
    /// \return IsOpen().
    virtual bool Flush() = 0;

    /// Tells whether a read can proceed now. What "can proceed" means differs, see each class.
    /// \param count Where the number of pending bytes is stored; null when it is not wanted.
    virtual bool IsDataAvailable(unsigned long long* count) = 0;

    /// Reads at most `length` bytes; may block.
    /// \return The number of bytes read; 0 at the end of the data. What a closed stream does differs, see each class.
    virtual int Read(void* buffer, unsigned int length) = 0;

    /// Writes `length` bytes; a Socket may take fewer. May block.
    /// \return The number of bytes written. What a closed stream does differs, see each class.
    virtual int Write(void const* buffer, unsigned int length) = 0;

    /// True on a host that stores the most significant byte first.
    static bool IsBigEndian()
    {
        static short const endianTest = 1;
        return *reinterpret_cast<unsigned char const*>(&endianTest) == 0;
    }
};

}}  // namespace tovu::util
