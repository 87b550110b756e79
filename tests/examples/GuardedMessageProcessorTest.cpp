// What a peer may send without doing harm: the guarded processors, over real streams, with the real parser behind them.

#include "common/GuardedMessageProcessor.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <utility>
#include <vector>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "BroadcastSockets.h"
#include "CapturedLog.h"
#include "PipePair.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "common/GuardedBroadcastMessageProcessor.h"
#include "tovu/util/XercesUtils.h"

namespace volume { namespace {

using namespace tovu::util;
using tovu::test::CapturedLog;

using Strings = std::vector<std::string>;

// One entry for each message: its element's name, "error" with the code, or "refused" with the reason.
class Recorder : public GuardedMessageProcessor
{
public:
    using GuardedMessageProcessor::GuardedMessageProcessor;

    bool IsValidMessage(std::string const& name) const override { return name != "unknown"; }

    void HandleMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& element) const override
    {
        std::string const name = XMLCh2string(element.getNodeName());
        seen.push_back(name);
        if (name == "number")
            throw 1;
        if (name == "dom")
            throw xercesc::DOMException();
        if (name == "end")
            EndReading();
    }

    void HandleError(int code, Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/) const override
    {
        seen.push_back("error " + std::to_string(code));
        if (throwing)
            throw std::runtime_error("the peer cannot be told");
    }

    void HandleRefusal(Verdict reason, Stream& /*stream*/, unsigned length) const override
    {
        seen.push_back("refused: " + std::string(Words(reason)));
        lengths.push_back(length);
    }

    mutable Strings seen;
    mutable std::vector<unsigned> lengths;
    bool throwing = false;
};

// Whatever comes over a connection until the peer closes it, in pieces of `piece` bytes. The processor may stop before.
void Serve(Recorder& recorder, std::string const& bytes, std::size_t piece = 1 << 20)
{
    tovu::test::ConnectedPair pair = tovu::test::ConnectLocalPair();
    auto const peer = std::async(std::launch::async, [&] {
        for (std::size_t i = 0; i < bytes.size(); i += piece) {
            std::string const part = bytes.substr(i, piece);
            if (send(pair.far->GetDescriptor(), part.data(), part.size(), MSG_NOSIGNAL) == -1)
                break;
        }
        shutdown(pair.far->GetDescriptor(), SHUT_WR);
    });
    recorder.ReadMessages(*pair.near);
    pair.near->Close();
}

std::string Message(std::string const& document)
{
    return document + '\0';
}

std::string Nested(int depth)
{
    std::string document;
    for (int i = 0; i < depth; ++i)
        document += "<a>";
    for (int i = 0; i < depth; ++i)
        document += "</a>";
    return document;
}

std::string Wide(int attributes)
{
    std::string document = "<a";
    for (int i = 0; i < attributes; ++i)
        document += " a" + std::to_string(i) + "=''";
    return document + "/>";
}

std::string Utf16(std::string const& ascii, bool bigEndian)
{
    std::string bytes;
    for (char const character : ascii) {
        bytes += bigEndian ? '\0' : character;
        bytes += bigEndian ? character : '\0';
    }
    return bytes;
}

// Ten times ten times ... one text: a billion characters from less than a kilobyte.
std::string Bomb()
{
    std::string document = "<!DOCTYPE a [<!ENTITY e0 'lol'>";
    for (int i = 1; i < 10; ++i) {
        document += "<!ENTITY e" + std::to_string(i) + " '";
        for (int j = 0; j < 10; ++j)
            document += "&e" + std::to_string(i - 1) + ";";
        document += "'>";
    }
    return document + "]><a>&e9;</a>";
}

class GuardedMessageProcessorTest : public testing::Test
{
protected:
    MessageGuard guard_{MessageGuard::Limits{4096, 100, 100}};
    Recorder recorder_{guard_};
};

TEST_F(GuardedMessageProcessorTest, HandlesWhatIsHarmless)
{
    Serve(recorder_, Message("<a/>") + Message("") + Message("<b/>") + Message("<unknown/>") + Message("<c>"));
    EXPECT_EQ((Strings{"a", "b", "error 0", "error 3"}), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, AnyChunksGiveTheSameMessages)
{
    std::string const bytes = Message("<a/>") + Message("<!DOCTYPE a><a/>") + Message("<b>text</b>") + "<rest";
    for (std::size_t piece = 1; piece < 12; ++piece) {
        Recorder recorder(guard_);
        Serve(recorder, bytes, piece);
        EXPECT_EQ((Strings{"a", "refused: it has a document type declaration", "b"}), recorder.seen) << piece;
    }
}

// Each with a message behind it, which is handled.
struct Hostile
{
    char const* name;
    std::string document;
    Verdict reason;
};

void PrintTo(Hostile const& item, std::ostream* stream)
{
    *stream << item.name;
}

class HostileDocumentTest : public testing::TestWithParam<Hostile>
{
protected:
    MessageGuard guard_;
    Recorder recorder_{guard_};
};

TEST_P(HostileDocumentTest, IsRefusedCountedAndLoggedAndTheNextMessageIsHandled)
{
    CapturedLog log;
    Serve(recorder_, Message(GetParam().document) + Message("<next/>"));
    std::string const reason = Words(GetParam().reason);
    EXPECT_EQ((Strings{"refused: " + reason, "next"}), recorder_.seen);
    EXPECT_EQ(1u, guard_.GetCount(GetParam().reason));

    std::vector<CapturedLog::Line> const lines = log.Take();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("A message of " + std::to_string(GetParam().document.size()) + " bytes is refused: " + reason +
                  " (1 so far).\n",
              lines.front().message);
    EXPECT_EQ(0u, lines.front().header.find("Warning "));
}

char const* const LOCAL_FILE = "<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>";

INSTANTIATE_TEST_SUITE_P(
    Entities, HostileDocumentTest,
    testing::Values(
        Hostile{"bomb", Bomb(), Verdict::DocumentType}, Hostile{"local file", LOCAL_FILE, Verdict::DocumentType},
        Hostile{"address", "<!DOCTYPE a SYSTEM 'http://127.0.0.1:9/a.dtd'><a/>", Verdict::DocumentType},
        Hostile{"device", "<!DOCTYPE a SYSTEM '/dev/zero'><a/>", Verdict::DocumentType},
        Hostile{"parameter entity", "<!DOCTYPE a [<!ENTITY % p SYSTEM '/etc/passwd'> %p;]><a/>", Verdict::DocumentType},
        Hostile{"recursion", "<!DOCTYPE a [<!ENTITY e '&f;'><!ENTITY f '&e;'>]><a>&e;</a>", Verdict::DocumentType},
        Hostile{"default attributes", "<!DOCTYPE a [<!ATTLIST a b CDATA 'c'>]><a/>", Verdict::DocumentType},
        Hostile{"behind comments", "<!--x--><?y?>\r\n<!DOCTYPE a><a/>", Verdict::DocumentType},
        Hostile{"behind a byte order mark", "\xEF\xBB\xBF<!DOCTYPE a><a/>", Verdict::DocumentType}));

INSTANTIATE_TEST_SUITE_P(
    Encodings, HostileDocumentTest,
    testing::Values(Hostile{"UTF-7", "<?xml version='1.0' encoding='UTF-7'?>+ADwAIQ-DOCTYPE a><a/>", Verdict::Encoding},
                    Hostile{"UTF-16 that is none", "<?xml version='1.0' encoding='UTF-16'?><a/>", Verdict::Encoding},
                    Hostile{"UTF-32", "<?xml version='1.0' encoding='UCS-4'?><a/>", Verdict::Encoding},
                    Hostile{"EBCDIC", "<?xml version='1.0' encoding='IBM037'?><a/>", Verdict::Encoding},
                    Hostile{"EBCDIC in its own bytes", "\x4C\x6F\xA7\x94\x93\x40\xA5", Verdict::Malformed},
                    Hostile{"of a table", "<?xml version='1.0' encoding='Windows-1252'?><a/>", Verdict::Encoding},
                    Hostile{"unknown", "<?xml version='1.0' encoding='none'?><a/>", Verdict::Encoding},
                    Hostile{"hidden in the version", "<?xml version='encoding=\"UTF-8\"' encoding='UTF-7'?><a/>",
                            Verdict::Malformed},
                    Hostile{"twice", "<?xml version='1.0' encoding='UTF-8' encoding='UTF-7'?><a/>",
                            Verdict::Malformed}));

INSTANTIATE_TEST_SUITE_P(Versions, HostileDocumentTest,
                         testing::Values(Hostile{"1.2", "<?xml version=\"1.2\"?><a/>", Verdict::Malformed},
                                         Hostile{"2.0", "<?xml version='2.0'?><a/>", Verdict::Malformed},
                                         Hostile{"none", "<?xml?><a/>", Verdict::Malformed},
                                         Hostile{"empty", "<?xml version=''?><a/>", Verdict::Malformed}));

INSTANTIATE_TEST_SUITE_P(Shapes, HostileDocumentTest,
                         testing::Values(Hostile{"deep", Nested(101), Verdict::TooDeep},
                                         Hostile{"deeper than a stack", Nested(140000), Verdict::TooDeep},
                                         Hostile{"deep and never closed", Nested(140000).substr(0, 420000),
                                                 Verdict::TooDeep},
                                         Hostile{"wide", Wide(101), Verdict::TooManyAttributes},
                                         Hostile{"wider than patience", Wide(100000), Verdict::TooManyAttributes}));

TEST_F(GuardedMessageProcessorTest, DocumentsOfJustTheLimitsAreHandled)
{
    MessageGuard guard;
    Recorder recorder(guard);
    Serve(recorder, Message(Nested(100)) + Message(Wide(100)) +
                        Message("<long>" + std::string((1 << 20) - 13, 'x') + "</long>") + Message("<next/>"));
    EXPECT_EQ((Strings{"a", "a", "long", "next"}), recorder.seen);
}

// In a stream its zero bytes are delimiters: each letter is a message of its own.
TEST_F(GuardedMessageProcessorTest, Utf16FallsApartIntoMessagesThatAreRefused)
{
    Serve(recorder_, Utf16("<!DOCTYPE a>", false) + '\0' + Message("<next/>"));
    EXPECT_EQ("error 3", recorder_.seen.front()) << "the less-than sign";
    EXPECT_EQ((Strings(11, "refused: it is no XML document")),
              Strings(recorder_.seen.begin() + 1, recorder_.seen.end() - 1));
    EXPECT_EQ("next", recorder_.seen.back());
}

TEST_F(GuardedMessageProcessorTest, AMessageThatIsTooLongEndsTheReadingHoweverItIsCut)
{
    std::string const bytes = Message("<a/>") + Message(std::string(4097, 'x')) + Message("<never/>");
    for (std::size_t const piece : {1, 100, 4096, 5000, 100000}) {
        Recorder recorder(guard_);
        Serve(recorder, bytes, piece);
        EXPECT_EQ((Strings{"a", "refused: it is too long"}), recorder.seen) << piece;
    }
    EXPECT_EQ(5u, guard_.GetCount(Verdict::TooLong));
}

TEST_F(GuardedMessageProcessorTest, BytesWithoutADelimiterEndTheReading)
{
    CapturedLog log;
    Serve(recorder_, std::string(64 << 20, 'x'));
    EXPECT_EQ((Strings{"refused: it is too long"}), recorder_.seen);
    ASSERT_EQ(1u, recorder_.lengths.size());
    EXPECT_GT(recorder_.lengths.front(), 4096u);
    EXPECT_LE(recorder_.lengths.front(), 4096u + 16 * 1024) << "no more was taken than one chunk";
    EXPECT_EQ(
        "A message of " + std::to_string(recorder_.lengths.front()) + " bytes is refused: it is too long (1 so far).\n",
        log.Take().front().message);
}

TEST_F(GuardedMessageProcessorTest, AnUnfinishedMessageOfJustTheLimitIsKept)
{
    std::string const start = "<long>" + std::string(4096 - 13, 'x') + "</long>";
    Serve(recorder_, start.substr(0, 4000) + start.substr(4000) + Message("") + Message("<next/>"), 4000);
    EXPECT_EQ((Strings{"long", "next"}), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, ManyMessagesThatTogetherAreLongAreHandled)
{
    std::string bytes;
    for (int i = 0; i < 2000; ++i)
        bytes += Message("<a>text</a>");
    Serve(recorder_, bytes, 777);
    EXPECT_EQ(Strings(2000, "a"), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, AMessageThatWasNotReadDoesNotCountForThoseThatAre)
{
    tovu::util::Pipe closed;
    std::string const message = "<a/>";
    recorder_.ParseMessage(closed, reinterpret_cast<unsigned char const*>(message.data()), 4);
    Serve(recorder_, Message("<b/>") + Message("<next/>"), 1);
    EXPECT_EQ((Strings{"a", "b", "next"}), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, WhatIsNoStandardExceptionEndsTheMessageAlone)
{
    Serve(recorder_, Message("<number/>") + Message("<dom/>") + Message("<next/>"));
    EXPECT_EQ(
        (Strings{"number", "refused: it could not be handled", "dom", "refused: it could not be handled", "next"}),
        recorder_.seen);
    EXPECT_EQ(2u, guard_.GetCount(Verdict::Failed));
}

TEST_F(GuardedMessageProcessorTest, AFailureToTellThePeerPassesOut)
{
    recorder_.throwing = true;
    EXPECT_THROW(Serve(recorder_, Message("<unknown/>")), std::runtime_error);
}

TEST_F(GuardedMessageProcessorTest, AHookMayEndTheReading)
{
    Serve(recorder_, Message("<a/>") + Message("<end/>") + Message("<never/>") + Message("<never/>"));
    EXPECT_EQ((Strings{"a", "end"}), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, OnceEndedNothingIsRead)
{
    recorder_.EndReading();
    Serve(recorder_, Message("<a/>"));
    EXPECT_EQ(Strings{}, recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, AFailingStreamPassesOut)
{
    tovu::test::ConnectedPair pair = tovu::test::ConnectIpv4Pair();
    tovu::test::Reset(*pair.far);
    EXPECT_THROWS_ERRNO(ECONNRESET, recorder_.ReadMessages(*pair.near));
}

TEST_F(GuardedMessageProcessorTest, ReadsFromAPipeAsWell)
{
    tovu::test::PipePair<> pipe;
    std::string const bytes = Message("<a/>") + Message("<!DOCTYPE a><a/>");
    pipe.writer.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    pipe.writer.Close();
    recorder_.ReadMessages(pipe.reader);
    EXPECT_EQ((Strings{"a", "refused: it has a document type declaration"}), recorder_.seen);
}

TEST_F(GuardedMessageProcessorTest, ConnectionsShareTheCount)
{
    Recorder other(guard_);
    Serve(recorder_, Message("<!DOCTYPE a><a/>"));
    CapturedLog log;
    Serve(other, Message("<!DOCTYPE a><a/>"));
    EXPECT_EQ("A message of 16 bytes is refused: it has a document type declaration (2 so far).\n",
              log.Take().front().message);
}

// ---- The twin for datagrams.

class DatagramRecorder : public GuardedBroadcastMessageProcessor
{
public:
    using GuardedBroadcastMessageProcessor::GuardedBroadcastMessageProcessor;

    bool IsValidMessage(std::string const& /*name*/) const override { return true; }

    void HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& element, Socket::Address const& /*sender*/) const override
    {
        seen.push_back(XMLCh2string(element.getNodeName()));
        if (seen.back() == "number")
            throw 1;
    }

    void HandleError(int code, ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                     Socket::Address const& /*sender*/) const override
    {
        seen.push_back("error " + std::to_string(code));
    }

    mutable Strings seen;
};

class GuardedBroadcastMessageProcessorTest : public testing::Test
{
protected:
    void Take(std::string const& bytes)
    {
        peer_.Send(bytes, socket_.GetHostAddress());
        tovu::test::AwaitReadable(socket_);
        recorder_.Take(socket_);
    }

    tovu::test::BroadcastPeer peer_;
    ServerBroadcastSocket socket_{tovu::test::Loopback(), false};
    MessageGuard guard_;
    DatagramRecorder recorder_{guard_};
};

TEST_F(GuardedBroadcastMessageProcessorTest, HandlesWhatIsHarmless)
{
    Take("<a/>");
    Take("<b>");
    EXPECT_EQ((Strings{"a", "error 3"}), recorder_.seen);
}

TEST_F(GuardedBroadcastMessageProcessorTest, AnEmptyDatagramIsReadAway)
{
    Take("");
    Take("<a/>");
    EXPECT_EQ((Strings{"a"}), recorder_.seen);
}

// Here the zero bytes are part of the message, and the parser would read it, without any declaration.
TEST_F(GuardedBroadcastMessageProcessorTest, Utf16IsRefusedInBothOrders)
{
    std::string const document = "<?xml version='1.0'?>" + std::string(LOCAL_FILE);
    Take(Utf16(document, false));
    Take(Utf16(document, true));
    Take("\xFF\xFE" + Utf16(document, false));
    Take("\xFE\xFF" + Utf16(document, true));
    EXPECT_EQ(4u, guard_.GetCount(Verdict::Encoding));
    EXPECT_EQ(Strings{}, recorder_.seen);
}

TEST_F(GuardedBroadcastMessageProcessorTest, HostileDatagramsAreCountedAndTheNextOneIsTaken)
{
    Take(Bomb());
    Take(Nested(5000));
    Take(Wide(5000));
    Take("<number/>");
    Take("<next/>");
    EXPECT_EQ((Strings{"number", "next"}), recorder_.seen);
    for (Verdict const reason : {Verdict::DocumentType, Verdict::TooDeep, Verdict::TooManyAttributes, Verdict::Failed})
        EXPECT_EQ(1u, guard_.GetCount(reason)) << Words(reason);
}

TEST_F(GuardedBroadcastMessageProcessorTest, AFloodOfRefusalsLeavesFewLinesInTheLog)
{
    CapturedLog log;
    for (int i = 0; i < 100; ++i)
        Take("<!DOCTYPE a><a/>");
    std::vector<CapturedLog::Line> const lines = log.Take();
    ASSERT_EQ(7u, lines.size()) << "for the 1st, 2nd, 4th, 8th, 16th, 32nd and 64th";
    std::string const sender = peer_.GetAddress().AddrToString() + ":" + std::to_string(peer_.GetAddress().GetPort());
    EXPECT_EQ(
        "A datagram of 16 bytes from " + sender + " is refused: it has a document type declaration (64 so far).\n",
        lines.back().message);
}

}}  // namespace volume
