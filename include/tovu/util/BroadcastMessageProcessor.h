#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

#include "tovu/util/Socket.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace tovu { namespace util {

class ServerBroadcastSocket;

/// Reads XML messages from datagrams, one document in each, and hands them to virtual hooks with their sender's address.
/// \code
///     #include <cstdio>
///     #include "tovu/util/ServerBroadcastSocket.h"
///     class Discovery : public BroadcastMessageProcessor
///     {
///         bool IsValidMessage(std::string const& name) const override { return name == "Discover"; }
///         void HandleMessage(ServerBroadcastSocket&, unsigned char const*, unsigned, xercesc::DOMNode const&,
///                            Socket::Address const& sender) const override
///         {
///             std::printf("%s is there.\n", sender.AddrToString().c_str());
///         }
///     };
///     ServerBroadcastSocket socket(Socket::Address(4711, INADDR_ANY), true);
///     Discovery().ReadMessages(socket);
/// \endcode
///
/// The counterpart of MessageProcessor: derive, name the messages that you expect, and handle them. A datagram ends
/// where it ends: there is no delimiter, and a NUL byte at its end goes to the parser like the rest.
///
/// Ownership: owns nothing. Sockets are borrowed during each call.
/// Threads: one thread and one socket for each processor; every hook runs on that thread. Any may call SetStop.
/// Errors: a broken or refused message goes to HandleError. A failing socket throws Exception. What is thrown and is no
///     std::exception, the parser's own exceptions included, passes out as well.
///
/// An empty datagram is read by nothing here: it ends ReadMessages and stays queued, so that the next call ends at once.
/// A server that is to go on reads it with ServerBroadcastSocket::Read.
///
/// The parser keeps its defaults, so a document may carry a DTD with external entities. A server that reads from
/// strangers refuses those first, by overriding ParseMessage.
class BroadcastMessageProcessor
{
public:
    BroadcastMessageProcessor();                                                       ///< The stop flag is not set.
    BroadcastMessageProcessor(BroadcastMessageProcessor const&) = default;             ///< The stop flag is copied.
    BroadcastMessageProcessor& operator=(BroadcastMessageProcessor const&) = default;  ///< The stop flag is copied.
    virtual ~BroadcastMessageProcessor();

    /// Reads and processes datagrams until the stop flag is set or one cannot be read. Blocks in between.
    void ReadMessages(ServerBroadcastSocket& socket);

    /// Waits once, and processes one datagram.
    /// \return False when a signal interrupted the wait, or as ProcessMessage.
    bool ReadMessage(ServerBroadcastSocket& socket);

    /// Reads one datagram, of whatever size, and processes it.
    /// \return False when none waits, or an empty one.
    bool ProcessMessage(ServerBroadcastSocket& socket);

    /// With true, makes ReadMessages return. It looks when its wait returns: after the next datagram or a signal.
    void SetStop(bool stop);

    /// \name Hooks
    /// Each is called on the reading thread, without a lock.
    ///
    /// | Hook           | Called                                                  | What it throws
    /// |----------------|---------------------------------------------------------|------------------------------------
    /// | ParseMessage   | for each datagram that is not empty                     | anything: passes out of ReadMessages
    /// | IsValidMessage | by ParseMessage, with the name of the document element  | std::exception: HandleError with 3
    /// | HandleMessage  | by ParseMessage, for a name that IsValidMessage accepts | std::exception: HandleError with 3
    /// | HandleError    | by ParseMessage, after the parser is gone               | anything: passes out of ReadMessages
    /// \{

    /// Parses one message and calls IsValidMessage and then HandleMessage or HandleError. An empty message is dropped.
    virtual void ParseMessage(ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                              Socket::Address const& sender) const;

    /// Tells whether a message of that name is handled; here none is.
    virtual bool IsValidMessage(std::string const& name) const;

    /// Handles a message: its bytes, its document element and its sender, which live until the hook returns. Does
    /// nothing here.
    virtual void HandleMessage(ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                               xercesc::DOMNode const& element, Socket::Address const& sender) const;

    /// Learns of a message that was not handled: 0 its name was refused, 1 it has no document element, 3 a
    /// std::exception came out of parsing or handling it, which has been logged. Does nothing here.
    virtual void HandleError(int code, ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                             Socket::Address const& sender) const;

    /// \}

private:
    bool stop_ = false;  // shared between threads by atomic loads and stores
};

}}  // namespace tovu::util
