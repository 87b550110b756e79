#pragma once

#include <string>
#include <utility>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace tovu { namespace util {

class Stream;

/// Reads XML messages from a stream and hands them to virtual hooks.
/// \code
///     #include "tovu/util/MessageWriter.h"
///     #include "tovu/util/ServerSocket.h"
///     class Answers : public MessageProcessor
///     {
///         bool IsValidMessage(std::string const& name) const override { return name == "Ping"; }
///         void HandleMessage(Stream& stream, unsigned char const*, unsigned, xercesc::DOMNode const&) const override
///         {
///             MessageWriter(stream).Write("<Pong/>", sizeof("<Pong/>"));
///         }
///     };
///     ServerSocket listener(Socket::Address("/run/volumed.sock"), SOMAXCONN, true);
///     Answers().ReadMessages(*listener.Accept());
/// \endcode
///
/// On the wire every document is followed by one delimiter, a 0x00 byte. Derive, name the messages that you expect, and
/// handle them. The program has initialised the parser's platform before (xercesc::XMLPlatformUtils::Initialize).
///
/// Ownership: owns the bytes of an unfinished message, nothing else. Streams are borrowed during each call.
/// Threads: one thread and one stream for each processor; every hook runs on that thread. Any may call SetStop.
/// Errors: a broken or refused message goes to HandleError. A failing stream throws Exception out of ReadMessages. What
///     is thrown and is no std::exception, the parser's own exceptions included, passes out as well.
///
/// The parser keeps its defaults, so a document may carry a DTD with external entities. A server that reads from
/// strangers refuses those first, by overriding ParseMessage.
class MessageProcessor
{
public:
    /// Bytes and how many of them there are.
    typedef std::pair<unsigned char const*, unsigned> ByteSpan;  // NOLINT(modernize-use-using): as users spell it

    MessageProcessor();                                              ///< The stop flag is not set.
    MessageProcessor(MessageProcessor const&) = default;             ///< Copies the unfinished message as well.
    MessageProcessor& operator=(MessageProcessor const&) = default;  ///< Copies the unfinished message as well.
    virtual ~MessageProcessor();

    /// Reads and processes messages until the stop flag is set or the stream has nothing more to read. Blocks in
    /// between. Bytes of an unfinished message stay, and a later call continues with them.
    void ReadMessages(Stream& stream);

    /// Reads what is available and processes it.
    /// \return False when nothing could be read. After a read that brought nothing an unfinished message is dropped.
    bool ProcessMessages(Stream& stream);

    /// Processes one chunk of bytes, however it cuts the messages: every message that it completes is parsed, the rest
    /// is kept for the next chunk.
    /// \return False for an empty chunk or a null pointer.
    bool ProcessMessages(Stream& stream, unsigned char const* data, unsigned length);

    /// With true, makes ReadMessages return. It looks when its wait returns: after the next byte, at the end of the
    /// stream, or after a signal.
    void SetStop(bool stop);

    /// The first complete delimiter in the bytes, or null.
    unsigned char const* FindDelimiter(unsigned char const* data, unsigned length) const;

    /// True when the bytes end in a delimiter. What stands before it is not looked at.
    bool WellFormedMessage(std::vector<unsigned char> const& message) const;

    /// \name Hooks
    /// Each is called on the reading thread, without a lock. None may call ProcessMessages of its own processor, but
    /// for a message that has come within one chunk: any other still lies in the buffer that the call would add to.
    ///
    /// | Hook           | Called                                                  | What it throws
    /// |----------------|---------------------------------------------------------|------------------------------------
    /// | ParseMessage   | for each complete message, also an empty one            | anything: passes out of ReadMessages
    /// | IsValidMessage | by ParseMessage, with the name of the document element  | std::exception: HandleError with 3
    /// | HandleMessage  | by ParseMessage, for a name that IsValidMessage accepts | std::exception: HandleError with 3
    /// | HandleError    | by ParseMessage, after the parser is gone               | anything: passes out of ReadMessages
    /// | GetDelimiter   | at least once for each chunk                            | nothing: it must not throw
    /// \{

    /// Parses one message, given without its delimiter, and calls IsValidMessage and then HandleMessage or HandleError.
    /// An empty message is dropped.
    /// \return How many bytes after the delimiter are to be skipped, within the chunk being processed; here 0.
    virtual unsigned ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const;

    /// Tells whether a message of that name is handled; here none is.
    virtual bool IsValidMessage(std::string const& name) const;

    /// Handles a message: its bytes and its document element, which live until the hook returns. Does nothing here.
    virtual void HandleMessage(Stream& stream, unsigned char const* data, unsigned length,
                               xercesc::DOMNode const& element) const;

    /// Learns of a message that was not handled: 0 its name was refused, 1 it has no document element, 3 a
    /// std::exception came out of parsing or handling it, which has been logged. Does nothing here.
    virtual void HandleError(int code, Stream& stream, unsigned char const* data, unsigned length) const;

    /// The delimiter, at least one byte that lives as long as the processor; here one 0x00.
    virtual ByteSpan GetDelimiter() const;

    /// \}

private:
    bool stop_ = false;                   // shared between threads by atomic loads and stores
    std::vector<unsigned char> pending_;  // the start of an unfinished message; empty between messages
};

}}  // namespace tovu::util
