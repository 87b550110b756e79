#pragma once

#include <functional>
#include <string>
#include <vector>
#include <xercesc/dom/DOMNode.hpp>

#include "BroadcastSockets.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace test {

inline unsigned char const* Bytes(std::string const& text)
{
    return reinterpret_cast<unsigned char const*>(text.data());
}

/// Hands a message to a processor as if it had come from somebody on this machine.
inline void Parse(util::BroadcastMessageProcessor const& processor, std::string const& message)
{
    util::ServerBroadcastSocket socket(Loopback(), true);
    processor.ParseMessage(socket, Bytes(message), static_cast<unsigned>(message.size()), Loopback(4711));
}

/// Records the calls of the hooks, and lets a test act in them.
class BroadcastRecorder : public util::BroadcastMessageProcessor
{
public:
    typedef std::vector<std::string> Calls;
    typedef util::ServerBroadcastSocket Server;
    typedef util::Socket::Address Address;

    /// What a hook is given.
    struct Arguments
    {
        Server& socket;
        unsigned char const* data;
        xercesc::DOMNode const* element;  ///< Null in HandleError.
        Address const& sender;
    };
    typedef std::function<void(Arguments const&)> Action;

    bool IsValidMessage(std::string const& name) const override
    {
        calls.push_back("IsValidMessage " + name);
        if (onName)
            onName();
        return accepts;
    }

    void HandleMessage(Server& socket, unsigned char const* data, unsigned length, xercesc::DOMNode const& element,
                       Address const& sender) const override
    {
        calls.push_back("HandleMessage " + Text(data, length));
        senders.push_back(sender);
        if (onMessage)
            onMessage({socket, data, &element, sender});
    }

    void HandleError(int code, Server& socket, unsigned char const* data, unsigned length,
                     Address const& sender) const override
    {
        calls.push_back("HandleError " + std::to_string(code) + " " + Text(data, length));
        senders.push_back(sender);
        if (onError)
            onError({socket, data, nullptr, sender});
    }

    /// The calls since the last time.
    Calls Take()
    {
        Calls taken;
        taken.swap(calls);
        return taken;
    }

    /// The calls of the hooks for one message.
    Calls CallsFor(std::string const& message)
    {
        calls.clear();
        Parse(*this, message);
        return Take();
    }

    mutable Calls calls;
    mutable std::vector<Address> senders;  ///< The sender given to each HandleMessage and HandleError.
    bool accepts = true;
    std::function<void()> onName;
    Action onMessage;
    Action onError;

private:
    static std::string Text(unsigned char const* data, unsigned length)
    {
        return std::string(reinterpret_cast<char const*>(data), length);
    }
};

}}  // namespace tovu::test
