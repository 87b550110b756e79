#include <xercesc/dom/DOMNode.hpp>

#include "FaultFixture.h"
#include "Sockets.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/ServerBroadcastSocket.h"

namespace tovu { namespace test {

namespace {

using util::BroadcastMessageProcessor;
using util::ClientBroadcastSocket;
using util::MessageProcessor;
using util::Pipe;
using util::ServerBroadcastSocket;
using util::Socket;
using util::Stream;

std::string const WAIT = "src/util/StreamSelector.cpp:125";

// Notes what it is told, without any memory.
class NotingProcessor : public MessageProcessor
{
public:
    explicit NotingProcessor(Text& out) : out_(out) {}

    bool IsValidMessage(std::string const& /*name*/) const override { return true; }

    void HandleMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned length,
                       xercesc::DOMNode const& /*element*/) const override
    {
        out_ << "message" << length;
    }

    void HandleError(int code, Stream& /*stream*/, unsigned char const* /*data*/, unsigned length) const override
    {
        out_ << "error" << code << length;
    }

private:
    Text& out_;
};

char const MESSAGES[] = "<a/>\0<bb/>";  // the NUL of the text ends the second one

// What an allocation that fails makes of them: one of the two is refused with code 3.
std::vector<std::string> const MESSAGES_WITHOUT_MEMORY = {"error 3 4 message 5", "message 4 error 3 5"};

void RunMessageProcessor(Run& run)
{
    int ends[2] = {0, 0};
    EXPECT_EQ(0, Pipe::CreatePipe(ends));
    Pipe reader(ends[0]);
    Pipe writer(ends[1]);
    writer.Write(MESSAGES, sizeof(MESSAGES));
    writer.Close();

    FaultScope const scope(run.fault);
    NotingProcessor(run.out).ReadMessages(reader);
}

Scenario MessageProcessorScenario()
{
    std::string const seen = " src/util/MessageProcessor.cpp:45";
    return {"MessageProcessor",
            {"MessageProcessor"},
            RunMessageProcessor,
            "message 4 message 5",
            {
                FailsWith({EINTR}, Call::select, Times(2, Ignored())),
                Fails(Call::select, Times(2, Throws(WAIT + seen))),
                Fails(Call::ioctl, {Gives(""), Ignored()}),
                Fails(Call::read, Throws("src/util/Pipe.cpp:116" + seen)),
                MovesOneByte(Call::read, {Ignored()}),
                MovesHalf(Call::read, {Ignored()}),
            },
            MESSAGES_WITHOUT_MEMORY,
            true};
}

void RunMessageProcessorOnSocket(Run& run)
{
    ConnectedPair pair = ConnectLocalPair();
    pair.near->Write(MESSAGES, sizeof(MESSAGES));
    pair.near->Close();

    FaultScope const scope(run.fault);
    NotingProcessor(run.out).ReadMessages(*pair.far);
}

Scenario MessageProcessorOnSocketScenario()
{
    std::string const trail = "src/util/Socket.cpp src/util/MessageProcessor.cpp:45";
    return {"MessageProcessorOnASocket",
            {"MessageProcessor"},
            RunMessageProcessorOnSocket,
            "message 4 message 5",
            {
                FailsWith({EINTR}, Call::select, Times(2, Ignored())),
                Fails(Call::select, Times(2, Throws(WAIT + " src/util/MessageProcessor.cpp:45"))),
                Fails(Call::ioctl, Times(2, Throws(trail))),
                Fails(Call::recv, Throws(trail)),
                MovesOneByte(Call::recv, {Ignored()}),
                MovesHalf(Call::recv, {Ignored()}),
            },
            MESSAGES_WITHOUT_MEMORY,
            true};
}

// As NotingProcessor.
class NotingBroadcastProcessor : public BroadcastMessageProcessor
{
public:
    explicit NotingBroadcastProcessor(Text& out) : out_(out) {}

    bool IsValidMessage(std::string const& /*name*/) const override { return true; }

    void HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned length,
                       xercesc::DOMNode const& /*element*/, Socket::Address const& sender) const override
    {
        out_ << "message" << length << sender.AddrToString();
    }

    void HandleError(int code, ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned length,
                     Socket::Address const& sender) const override
    {
        out_ << "error" << code << length << sender.AddrToString();
    }

private:
    Text& out_;
};

// The second datagram is empty, which ends the reading.
void RunBroadcastMessageProcessor(Run& run)
{
    ServerBroadcastSocket server(Loopback(), true);
    ClientBroadcastSocket client(server.GetHostAddress(), true);
    client.Write("<a/>", 4);
    client.Write("", 0);

    FaultScope const scope(run.fault);
    NotingBroadcastProcessor(run.out).ReadMessages(server);
}

Scenario BroadcastMessageProcessorScenario()
{
    std::string const source = "src/util/BroadcastMessageProcessor.cpp";
    std::string const trail = "src/util/Socket.cpp " + source + ":43";
    std::string const brokenOff = source + ":117 Error in: ";
    return {"BroadcastMessageProcessor",
            {"BroadcastMessageProcessor"},
            RunBroadcastMessageProcessor,
            "message 4 127.0.0.1",
            {
                FailsWith({EINTR}, Call::select, Times(2, Ignored())),
                Fails(Call::select, Times(2, Throws(WAIT + " " + source + ":43"))),
                Fails(Call::ioctl, Times(2, Throws(trail))),
                Fails(Call::getsockname, Times(2, Throws(trail))),
                Fails(Call::getsockopt, Throws(trail)),
                Fails(Call::recvfrom, Throws("src/util/ServerBroadcastSocket.cpp " + source + ":43")),
                MovesOneByte(Call::recvfrom, {Gives("error 3 1 127.0.0.1").Logging(brokenOff)}),
                MovesHalf(Call::recvfrom, {Gives("error 3 2 127.0.0.1").Logging(brokenOff)}),
            },
            {"error 3 4 127.0.0.1"},
            true};
}

void RunReadMessage(Run& run)
{
    ServerBroadcastSocket server(Loopback(), true);
    ClientBroadcastSocket client(server.GetHostAddress(), true);
    client.Write("<a/>", 4);

    FaultScope const scope(run.fault);
    run.out << NotingBroadcastProcessor(run.out).ReadMessage(server);
}

Scenario ReadMessageScenario()
{
    std::string const source = "src/util/BroadcastMessageProcessor.cpp";
    std::string const trail = "src/util/Socket.cpp " + source + ":67";
    return {"BroadcastReadMessage",
            {"BroadcastMessageProcessor"},
            RunReadMessage,
            "message 4 127.0.0.1 true",
            {
                FailsWith({EINTR}, Call::select, Gives("false")),
                Fails(Call::select, Throws(WAIT + " " + source + ":67")),
                Fails(Call::ioctl, Throws(trail)),
                Fails(Call::getsockname, Times(2, Throws(trail))),
                Fails(Call::getsockopt, Throws(trail)),
                Fails(Call::recvfrom, Throws("src/util/ServerBroadcastSocket.cpp " + source + ":67")),
            },
            {"error 3 4 127.0.0.1 true"},
            true};
}

}  // namespace

std::vector<Scenario> MessageScenarios()
{
    return {MessageProcessorScenario(), MessageProcessorOnSocketScenario(), BroadcastMessageProcessorScenario(),
            ReadMessageScenario()};
}

}}  // namespace tovu::test
