// How BroadcastMessageProcessor reads datagrams.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BroadcastRecorder.h"
#include "BroadcastRecvfrom.h"
#include "BroadcastSockets.h"
#include "ChildOrSkip.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "Latch.h"
#include "NetworkPair.h"
#include "ParameterName.h"
#include "SelectCalls.h"
#include "TakenAway.h"
#include "Throws.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using namespace std::string_literals;
using test::BroadcastPeer;
using test::BroadcastRecorder;
using test::Loopback;
using test::NetworkPair;
using test::ReadText;
using test::SelectCalls;
using test::Thrown;

using Address = Socket::Address;
using Arguments = BroadcastRecorder::Arguments;
using Calls = BroadcastRecorder::Calls;

// ---- One datagram: a processor with a socket, and a peer that sends to it.

class ProcessBroadcastTest : public testing::Test
{
protected:
    void Send(std::string const& bytes) { peer_.Send(bytes, test::ReachedAt(server_)); }

    test::DescriptorCensus const census_;
    BroadcastPeer const peer_;
    ServerBroadcastSocket server_{Loopback(), true};
    BroadcastRecorder recorder_;
};

TEST_F(ProcessBroadcastTest, ADatagramIsOneMessage)
{
    Send("<a/>");
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, DatagramsSentBackToBackAreMessagesOfTheirOwn)
{
    Send("<a>");
    Send("</a>");
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ(Calls{"HandleError 3 <a>"}, recorder_.Take());
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ(Calls{"HandleError 3 </a>"}, recorder_.Take());
}

TEST_F(ProcessBroadcastTest, ADatagramIsNeverCutAtAZeroByte)
{
    Send("<a/>\0<b/>\0"s);
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_FALSE(recorder_.ProcessMessage(server_));
    ASSERT_FALSE(recorder_.calls.empty());
    EXPECT_EQ("HandleMessage <a/>\0<b/>\0"s, recorder_.calls.back());
}

TEST_F(ProcessBroadcastTest, WithoutADatagramNothingIsRead)
{
    EXPECT_FALSE(recorder_.ProcessMessage(server_));
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, AnEmptyDatagramIsNotReadAndStaysQueued)
{
    Send("");
    Send("<a/>");
    EXPECT_FALSE(recorder_.ProcessMessage(server_));
    EXPECT_FALSE(recorder_.ProcessMessage(server_));
    EXPECT_EQ("", ReadText(server_));
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, ADatagramOfTheLargestSizeIsProcessedWhole)
{
    std::string const message = "<a>" + std::string(test::LARGEST_DATAGRAM - 7, 'x') + "</a>";
    Send(message);
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage " + message}), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, TheHooksGetTheSenderOfTheirDatagram)
{
    BroadcastPeer const other;
    Send("<a/>");
    other.Send("<broken>", test::ReachedAt(server_));
    recorder_.ProcessMessage(server_);
    recorder_.ProcessMessage(server_);
    EXPECT_EQ((std::vector<Address>{peer_.GetAddress(), other.GetAddress()}), recorder_.senders);
    EXPECT_NE(server_.GetHostAddress(), recorder_.senders[0]);
}

TEST_F(ProcessBroadcastTest, TheHooksGetTheSocket)
{
    Send("<a/>");
    ServerBroadcastSocket* seen = nullptr;
    recorder_.onMessage = [&](Arguments const& arguments) { seen = &arguments.socket; };
    recorder_.ProcessMessage(server_);
    EXPECT_EQ(&server_, seen);
}

// Records the datagrams, unparsed.
class UnparsedRecorder : public BroadcastMessageProcessor
{
public:
    void ParseMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* data, unsigned length,
                      Address const& /*sender*/) const override
    {
        datagrams.emplace_back(reinterpret_cast<char const*>(data), length);
    }

    mutable std::vector<std::string> datagrams;
};

TEST_F(ProcessBroadcastTest, ADerivedClassMayTakeTheParsingOver)
{
    UnparsedRecorder recorder;
    Send("no\0XML"s);
    EXPECT_TRUE(recorder.ProcessMessage(server_));
    EXPECT_EQ(std::vector<std::string>{"no\0XML"s}, recorder.datagrams);
}

TEST_F(ProcessBroadcastTest, ReadsIntoZeroedBytesOfTheDatagramsSize)
{
    test::WatchedRecvfrom const watch([](test::RecvfromArguments const& call) { EXPECT_EQ("\0\0\0\0"s, call.buffer); });
    Send("<a/>");
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
}

TEST_F(ProcessBroadcastTest, OffersAllTheRoomOfAnEmptyAddressForTheSender)
{
    test::WatchedRecvfrom const watch([](test::RecvfromArguments const& call) {
        EXPECT_EQ(sizeof(Address::Storage), call.length);
        std::string const room(reinterpret_cast<char const*>(call.address), call.length);
        EXPECT_EQ(std::string(call.length, '\0'), room);
    });
    Send("<a/>");
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
}

// The port is taken for an address family, which shows for the numbers of the two families that addresses know.
TEST_F(ProcessBroadcastTest, OffersAnAddressOfTheFamilyThatIsNumberedLikeThePort)
{
    test::ExpectPassesInChildOrSkips([] {
        test::EnterOwnLoopback();
        BroadcastPeer const peer;
        for (unsigned short const port : {AF_LOCAL, AF_INET}) {
            ServerBroadcastSocket server(Loopback(port), true);
            test::WatchedRecvfrom const watch([port](test::RecvfromArguments const& call) {
                EXPECT_EQ(port, call.address->sa_family);
                EXPECT_EQ(sizeof(Address::Storage), call.length);
            });
            peer.Send("<a/>", server.GetHostAddress());
            BroadcastRecorder recorder;
            EXPECT_TRUE(recorder.ProcessMessage(server));
            EXPECT_EQ(std::vector<Address>{peer.GetAddress()}, recorder.senders);
        }
    });
}

// Another reader of the same socket, who takes a datagram right after the processor was told of it.
class FasterReader
{
public:
    FasterReader()
        : replacement_(test::IoctlCall(), [](int descriptor, unsigned long request, void* argument) {
              int const result = test::IoctlCall().System(descriptor, request, argument);
              char byte = 0;
              EXPECT_EQ(1, recv(descriptor, &byte, 1, MSG_DONTWAIT));
              return result;
          })
    {}

private:
    test::IoctlReplacement const replacement_;
};

TEST_F(ProcessBroadcastTest, AReadOfNothingEndsInFalse)
{
    Send("<taken/>");
    Send("");
    FasterReader const reader;
    EXPECT_FALSE(recorder_.ProcessMessage(server_));
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, AShorterDatagramCountsOnlyWhatWasRead)
{
    Send("<taken/>");
    Send("<a/>");
    FasterReader const reader;
    EXPECT_TRUE(recorder_.ProcessMessage(server_));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), recorder_.calls);
}

TEST_F(ProcessBroadcastTest, AFailureIsNotTracedHere)
{
    server_.SetBlocking(false);
    Send("<taken/>");
    FasterReader const reader;
    EXPECT_EQ(test::Failure(EAGAIN, {"src/util/ServerBroadcastSocket.cpp"}),
              test::FailureOf([&] { recorder_.ProcessMessage(server_); }));
}

// A socket that answers as the test says when it is asked what waits.
class ScriptedServer : public ServerBroadcastSocket
{
public:
    ScriptedServer() : ServerBroadcastSocket(Loopback(), false) {}

    bool IsDataAvailable(unsigned long long* count) override
    {
        EXPECT_EQ(0u, *count);
        *count = available;
        return answer;
    }

    bool answer = true;
    unsigned long long available = 0;
};

// A socket that a message waits in, which the processor reads only when the answer says so.
class ScriptedServerTest : public testing::Test
{
protected:
    ScriptedServerTest() { peer_.Send("<a/>", test::ReachedAt(server_)); }

    bool Process(bool answer, unsigned long long available)
    {
        server_.answer = answer;
        server_.available = available;
        return recorder_.ProcessMessage(server_);
    }

    BroadcastPeer const peer_;
    ScriptedServer server_;
    BroadcastRecorder recorder_;
};

TEST_F(ScriptedServerTest, IsNotReadWhenItSaysNo)
{
    EXPECT_FALSE(Process(false, 4));
    EXPECT_EQ("<a/>", ReadText(server_));
}

TEST_F(ScriptedServerTest, IsNotReadWhenItHoldsNothing)
{
    EXPECT_FALSE(Process(true, 0));
    EXPECT_EQ("<a/>", ReadText(server_));
}

TEST_F(ScriptedServerTest, ItsCountIsTakenAsTheLow32Bits)
{
    EXPECT_TRUE(Process(true, 0x700000004ULL));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), recorder_.calls);
}

TEST_F(ScriptedServerTest, IsReadAsNothingWhenTheLow32BitsAreZero)
{
    EXPECT_FALSE(Process(true, 0x100000000ULL));
    EXPECT_EQ(Calls(), recorder_.calls);
    EXPECT_THROWS_ERRNO(EAGAIN, ReadText(server_));
}

TEST_F(ProcessBroadcastTest, DiscoversAClientOnAnotherMachine)
{
    test::ExpectPassesInChildOrSkips([] {
        NetworkPair network;
        network.EnterFar();
        ServerBroadcastSocket server(Address(0, INADDR_ANY), true);
        network.EnterNear();
        ClientBroadcastSocket client(Address(server.GetHostAddress().GetPort(), INADDR_BROADCAST), true);
        test::WriteText(client, "<Discover/>");

        test::AwaitReadable(server);
        BroadcastRecorder recorder;
        EXPECT_TRUE(recorder.ReadMessage(server));
        EXPECT_EQ((Calls{"IsValidMessage Discover", "HandleMessage <Discover/>"}), recorder.calls);
        Address const sender(client.GetHostAddress().GetPort(), inet_addr(NetworkPair::NearAddress()));
        EXPECT_EQ(std::vector<Address>{sender}, recorder.senders);
    });
}

// ---- Waiting for one datagram.

class ReadBroadcastTest : public ProcessBroadcastTest
{
protected:
    // The calls for messages that are handled.
    static Calls Handled(std::vector<std::string> const& names)
    {
        Calls calls;
        for (std::string const& name : names) {
            calls.push_back("IsValidMessage " + name);
            calls.push_back("HandleMessage <" + name + "/>");
        }
        return calls;
    }

    // Reads until an empty datagram ends the loop, and takes that.
    void ReadAll()
    {
        Send("");
        recorder_.ReadMessages(server_);
        EXPECT_EQ("", ReadText(server_));
    }

    void ExpectWaitsForTheSocketOnly(SelectCalls const& select)
    {
        for (SelectCalls::Call const& call : select.calls) {
            EXPECT_EQ(std::vector<int>{server_.GetDescriptor()}, test::Members(call.reading));
            EXPECT_TRUE(test::Members(call.writing).empty());
            EXPECT_EQ(nullptr, call.timeout);
        }
    }
};

TEST_F(ReadBroadcastTest, ReadMessageProcessesOneDatagram)
{
    Send("<a/>");
    Send("<b/>");
    EXPECT_TRUE(recorder_.ReadMessage(server_));
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
    EXPECT_EQ("<b/>", ReadText(server_));
}

TEST_F(ReadBroadcastTest, ReadMessageWaitsForADatagramWithoutATimeLimit)
{
    SelectCalls select;
    select.before = [this] { Send("<a/>"); };
    EXPECT_TRUE(recorder_.ReadMessage(server_));
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
    EXPECT_EQ(1u, select.calls.size());
    ExpectWaitsForTheSocketOnly(select);
}

TEST_F(ReadBroadcastTest, ReadMessageReturnsFalseForAnEmptyDatagram)
{
    Send("");
    EXPECT_FALSE(recorder_.ReadMessage(server_));
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ReadBroadcastTest, ReadMessageReturnsFalseAfterASignal)
{
    test::Interruptions const interruptions(1000);
    EXPECT_FALSE(recorder_.ReadMessage(server_));
    EXPECT_LT(0u, interruptions.Count());
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ReadBroadcastTest, ReadMessageReturnsFalseWhenTheSocketIsNotReady)
{
    Send("<a/>");
    SelectCalls select;
    select.after = [](int result, fd_set* reading, fd_set*) {
        FD_ZERO(reading);
        return result;
    };
    EXPECT_FALSE(recorder_.ReadMessage(server_));
    EXPECT_EQ(1u, select.calls.size());
    EXPECT_EQ("<a/>", ReadText(server_));
}

TEST_F(ReadBroadcastTest, ReadMessageDoesNotLookAtTheStopFlag)
{
    recorder_.SetStop(true);
    Send("<a/>");
    EXPECT_TRUE(recorder_.ReadMessage(server_));
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
}

// ---- The loop.

TEST_F(ReadBroadcastTest, ReadMessagesProcessesOneDatagramAfterAnother)
{
    Send("<a/>");
    Send("<b/>");
    ReadAll();
    EXPECT_EQ(Handled({"a", "b"}), recorder_.calls);
}

TEST_F(ReadBroadcastTest, AnEmptyDatagramEndsTheLoopUntilItIsRead)
{
    Send("");
    Send("<a/>");
    recorder_.ReadMessages(server_);
    recorder_.ReadMessages(server_);
    EXPECT_EQ(Calls(), recorder_.calls);
    EXPECT_EQ("", ReadText(server_));
    ReadAll();
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
}

TEST_F(ReadBroadcastTest, TheLoopGoesOnAfterMessagesThatAreNotHandled)
{
    Send("<broken>");
    Send("<refused/>");
    Send("<last/>");
    recorder_.accepts = false;
    ReadAll();
    EXPECT_EQ((Calls{"HandleError 3 <broken>", "IsValidMessage refused", "HandleError 0 <refused/>",
                     "IsValidMessage last", "HandleError 0 <last/>"}),
              recorder_.calls);
}

TEST_F(ReadBroadcastTest, AReadOfNothingEndsTheLoop)
{
    Send("<taken/>");
    Send("");
    FasterReader const reader;
    recorder_.ReadMessages(server_);
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ReadBroadcastTest, EachWaitOfTheLoopIsForTheSocketOnly)
{
    SelectCalls select;
    select.after = [this](int result, fd_set* reading, fd_set* writing) {
        FD_SET(STDIN_FILENO, reading);  // a selector that is used again would keep it
        FD_SET(server_.GetDescriptor(), writing);
        return result;
    };
    Send("<a/>");
    ReadAll();
    EXPECT_EQ(2u, select.calls.size());
    ExpectWaitsForTheSocketOnly(select);
}

TEST_F(ReadBroadcastTest, TheLoopWaitsAgainWhenTheSocketIsNotReady)
{
    Send("<a/>");
    SelectCalls select;
    select.after = [&](int result, fd_set* reading, fd_set*) {
        EXPECT_EQ(select.calls.size() > 2, !recorder_.calls.empty());
        if (select.calls.size() == 1)
            FD_ZERO(reading);
        return result;
    };
    ReadAll();
    EXPECT_EQ(3u, select.calls.size());
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
}

TEST_F(ReadBroadcastTest, TheLoopGoesOnWaitingAfterASignal)
{
    SelectCalls select;
    unsigned interruptions = 0;
    select.after = [&](int result, fd_set*, fd_set*) {
        if (result == -1 && ++interruptions == 3)
            Send("<a/>");
        return result;
    };
    recorder_.onMessage = [this](Arguments const&) { Send(""); };
    test::Interruptions const alarms(1000);
    recorder_.ReadMessages(server_);
    EXPECT_LE(3u, interruptions);
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
}

TEST_F(ReadBroadcastTest, ASetFlagStopsBeforeTheSocketIsTouched)
{
    server_.Close();
    recorder_.SetStop(true);
    EXPECT_NO_THROW(recorder_.ReadMessages(server_));
    recorder_.SetStop(false);
    EXPECT_THROW(recorder_.ReadMessages(server_), Exception);
}

TEST_F(ReadBroadcastTest, AStopTakesEffectAfterTheDatagramThatIsWaitedFor)
{
    SelectCalls select;
    select.before = [this] {
        recorder_.SetStop(true);
        Send("<a/>");
        Send("<b/>");
    };
    recorder_.ReadMessages(server_);
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
    EXPECT_EQ("<b/>", ReadText(server_));
}

TEST_F(ReadBroadcastTest, AStopTakesEffectAfterASignal)
{
    SelectCalls select;
    select.before = [this] { recorder_.SetStop(true); };
    test::Interruptions const interruptions(1000);
    recorder_.ReadMessages(server_);
    EXPECT_EQ(1u, select.calls.size());
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(ReadBroadcastTest, AStopInAHookLeavesTheNextDatagramQueued)
{
    Send("<a/>");
    Send("<b/>");
    recorder_.onMessage = [this](Arguments const&) { recorder_.SetStop(true); };
    recorder_.ReadMessages(server_);
    EXPECT_EQ(Handled({"a"}), recorder_.calls);
    EXPECT_EQ("<b/>", ReadText(server_));
}

TEST_F(ReadBroadcastTest, AnotherThreadStopsItWithTheNextDatagram)
{
    test::Latch first;
    recorder_.onMessage = [&first](Arguments const&) { first.Arrive(); };
    std::future<void> const reader = std::async(std::launch::async, [this] { recorder_.ReadMessages(server_); });
    Send("<a/>");
    EXPECT_TRUE(first.WaitFor()) << "the first message";
    recorder_.SetStop(true);
    Send("<b/>");
    ASSERT_EQ(std::future_status::ready, reader.wait_for(test::DEADLINE)) << "the end of the loop";
}

TEST_F(ReadBroadcastTest, TheHooksRunOnTheReadingThread)
{
    Send("<a/>");
    std::thread::id seen;
    recorder_.onMessage = [&seen](Arguments const&) { seen = std::this_thread::get_id(); };
    ReadAll();
    EXPECT_EQ(std::this_thread::get_id(), seen);
}

// ---- The place that an exception passes on its way out.

struct Reading
{
    char const* name;
    unsigned line;
    void (*read)(BroadcastMessageProcessor& processor, ServerBroadcastSocket& socket);
};

class BroadcastTraceTest : public ProcessBroadcastTest, public testing::WithParamInterface<Reading>
{
protected:
    void Read() { GetParam().read(recorder_, server_); }

    static void ExpectTraced(Exception const& exception)
    {
        ASSERT_EQ(2u, exception.locations.size());
        EXPECT_STREQ("src/util/BroadcastMessageProcessor.cpp", exception.locations[1].file);
        EXPECT_EQ(GetParam().line, exception.locations[1].line);
    }

    void ExpectFailure(std::string const& what, char const* file)
    {
        Exception const exception = Thrown([this] { Read(); });
        EXPECT_EQ(what, exception.what());
        EXPECT_STREQ(file, exception.locations[0].file);
        ExpectTraced(exception);
        EXPECT_EQ(Calls(), recorder_.calls);
    }
};

INSTANTIATE_TEST_SUITE_P(Readings, BroadcastTraceTest,
                         testing::Values(Reading{"ReadMessages", 43,
                                                 [](BroadcastMessageProcessor& processor,
                                                    ServerBroadcastSocket& socket) { processor.ReadMessages(socket); }},
                                         Reading{"ReadMessage", 67,
                                                 [](BroadcastMessageProcessor& processor,
                                                    ServerBroadcastSocket& socket) { processor.ReadMessage(socket); }}),
                         test::ParameterName());

TEST_P(BroadcastTraceTest, AClosedSocket)
{
    server_.Close();
    ExpectFailure("Invalid stream.", "src/util/StreamSelector.cpp");
}

TEST_P(BroadcastTraceTest, AWaitThatFails)
{
    test::TakenAway const away(server_.GetDescriptor());
    ExpectFailure(test::ErrnoText(EBADF), "src/util/StreamSelector.cpp");
}

TEST_P(BroadcastTraceTest, AQuestionThatFails)
{
    int const null = open("/dev/null", O_RDONLY);
    ASSERT_EQ(server_.GetDescriptor(), dup2(null, server_.GetDescriptor()));
    close(null);
    ExpectFailure(test::ErrnoText(ENOTTY), "src/util/Socket.cpp");
}

TEST_P(BroadcastTraceTest, AReadThatFails)
{
    server_.SetBlocking(false);
    Send("<taken/>");
    FasterReader const reader;
    ExpectFailure(test::ErrnoText(EAGAIN), "src/util/ServerBroadcastSocket.cpp");
}

// An exception of a program's own, which must come out as itself.
class OwnException : public Exception
{
public:
    OwnException() : Exception("own.cpp", 7, "own") {}
};

TEST_P(BroadcastTraceTest, ADerivedExceptionComesOutAsItself)
{
    recorder_.onError = [](Arguments const&) { throw OwnException(); };
    Send("<broken>");
    try {
        Read();
        FAIL() << "nothing was thrown";
    } catch (OwnException const& exception) {
        EXPECT_EQ(7u, exception.locations[0].line);
        ExpectTraced(exception);
    }
}

TEST_P(BroadcastTraceTest, OtherTypesPassThroughUntouched)
{
    recorder_.onError = [](Arguments const&) { throw std::range_error("of another type"); };
    Send("<broken>");
    EXPECT_THROW(Read(), std::range_error);
    recorder_.onError = [](Arguments const&) { throw 7; };
    Send("<broken>");
    EXPECT_THROW(Read(), int);
}

}}}  // namespace tovu::util
