// Datagrams from this machine, as they reach the hooks of a BroadcastMessageProcessor. A blank line parts them.

#include <arpa/inet.h>

#include <cstddef>
#include <string>

#include "Fuzz.h"
#include "Outcome.h"
#include "Xml.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ServerBroadcastSocket.h"

namespace tovu { namespace fuzz { namespace {

using util::ServerBroadcastSocket;
using util::Socket;

class Dispatcher : public util::BroadcastMessageProcessor
{
public:
    // What the next datagram is to be, and whose.
    void Expect(std::string const& bytes, Socket::Address const& sender)
    {
        parsed = false;
        bytes_ = bytes;
        sender_ = sender;
    }

    void ParseMessage(ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                      Socket::Address const& sender) const override
    {
        Require(!parsed, "a datagram is parsed once");
        parsed = true;
        RequireTheDatagram(data, length, sender);
        outcome_.Of(length, [&] { BroadcastMessageProcessor::ParseMessage(socket, data, length, sender); });
    }

    bool IsValidMessage(std::string const& name) const override { return outcome_.IsValid(name); }

    void HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element, Socket::Address const& sender) const override
    {
        RequireTheDatagram(data, length, sender);
        outcome_.Handle(element);
    }

    void HandleError(int code, ServerBroadcastSocket& /*socket*/, unsigned char const* data, unsigned length,
                     Socket::Address const& sender) const override
    {
        RequireTheDatagram(data, length, sender);
        outcome_.Fail(code);
    }

    mutable bool parsed = false;

private:
    void RequireTheDatagram(unsigned char const* data, unsigned length, Socket::Address const& sender) const
    {
        RequireEqual(bytes_, std::string(reinterpret_cast<char const*>(data), length), "a hook is given the datagram");
        Require(sender == sender_, "a hook is given the sender");
    }

    mutable Outcome outcome_;
    std::string bytes_;
    Socket::Address sender_ = Socket::Address::Empty;
};

Socket::Address Loopback(unsigned short port)
{
    return Socket::Address(port, htonl(INADDR_LOOPBACK));
}

// Two sockets of this process, and a processor behind them.
class Exchange
{
public:
    Exchange() : server_(Loopback(0), true), client_(Loopback(server_.GetHostAddress().GetPort()), true) {}

    void Pass(std::string const& datagram)
    {
        client_.Write(datagram.data(), static_cast<unsigned>(datagram.size()));
        // The client has its port since it sent something, and is bound to no address.
        dispatcher_.Expect(datagram, Loopback(client_.GetHostAddress().GetPort()));
        Require(dispatcher_.ReadMessage(server_) == !datagram.empty(), "a datagram is processed unless it is empty");
        Require(dispatcher_.parsed == !datagram.empty(), "a datagram is parsed unless it is empty");

        char byte = 0;
        if (datagram.empty())  // it stays queued
            Require(server_.Read(&byte, sizeof(byte)) == 0, "an empty datagram is there to be read");
    }

private:
    ServerBroadcastSocket server_;
    util::ClientBroadcastSocket client_;
    Dispatcher dispatcher_;
};

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    XmlPlatform::Use();
    static Exchange exchange;
    Input input(data, size);
    for (std::ptrdiff_t i = 0; i < MOST_MESSAGES && !input.IsEmpty(); ++i)
        exchange.Pass(input.TakeUntil("\n\n"));
    return 0;
}
