#include "tovu/util/StreamReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "FreshProcess.h"
#include "Interruptions.h"
#include "LogLines.h"
#include "PipePair.h"
#include "SelectCalls.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using test::CapturedLog;
using test::ScriptedPipe;
using test::SelectCalls;

static_assert(std::is_constructible<StreamReader, Stream&>::value, "");
static_assert(!std::is_convertible<Stream&, StreamReader>::value, "borrowing a stream is said in words");
static_assert(!std::is_polymorphic<StreamReader>::value, "no virtual operations");
static_assert(
    std::is_same<decltype(&StreamReader::Read), unsigned int (StreamReader::*)(void*, unsigned int) const>::value, "");

char const* const FAILURE = "Error src/util/StreamReader.cpp:35 read failed.\n";

// A reader of a pipe whose reads are noted.
class StreamReaderTest : public testing::Test
{
protected:
    void Send(std::string const& bytes)
    {
        EXPECT_EQ(static_cast<int>(bytes.size()), writer_.Write(bytes.data(), static_cast<unsigned>(bytes.size())));
    }

    // Reads `length` bytes; what is returned has the length that the reader reported.
    static std::string ReadFrom(Stream& stream, unsigned length)
    {
        std::string bytes(length, '?');
        bytes.resize(StreamReader(stream).Read(&bytes[0], length));
        return bytes;
    }

    std::string Read(unsigned length) { return ReadFrom(stream_, length); }

    // The stream brings at most this many bytes in one call.
    void LimitEachReadTo(unsigned most)
    {
        stream_.onRead = [this, most](void* buffer, unsigned length) {
            return stream_.Pipe::Read(buffer, std::min(most, length));
        };
    }

    test::PipePair<ScriptedPipe, Pipe> pipe_;
    ScriptedPipe& stream_ = pipe_.reader;
    Pipe& writer_ = pipe_.writer;
};

TEST_F(StreamReaderTest, ReadsTheWholeBuffer)
{
    std::string const bytes("with a \0 inside", 15);
    Send(bytes);
    EXPECT_EQ(bytes, Read(15));
}

TEST_F(StreamReaderTest, LeavesWhatItWasNotAskedFor)
{
    Send("0123456789");
    EXPECT_EQ("0123", Read(4));
    EXPECT_EQ("456789", test::Drain(stream_.GetDescriptor()));
}

TEST_F(StreamReaderTest, LogsNothingWhenEverythingHasCome)
{
    CapturedLog log;
    Send("everything");
    Read(10);
    EXPECT_TRUE(test::TakeLines(log).empty());
}

TEST_F(StreamReaderTest, ALengthOfZeroTouchesNeitherStreamNorSelector)
{
    CapturedLog log;
    SelectCalls selects;
    Pipe closed;
    EXPECT_EQ(0u, StreamReader(stream_).Read(nullptr, 0));
    EXPECT_EQ(0u, StreamReader(closed).Read(nullptr, 0));
    EXPECT_TRUE(stream_.lengths.empty());
    EXPECT_TRUE(selects.calls.empty());
    EXPECT_TRUE(test::TakeLines(log).empty());
}

TEST_F(StreamReaderTest, GoesOnWhereAShortReadStopped)
{
    LimitEachReadTo(4);
    Send("0123456789");
    EXPECT_EQ("0123456789", Read(10));
    EXPECT_EQ((std::vector<unsigned>{10, 6, 2}), stream_.lengths);
}

TEST_F(StreamReaderTest, AStreamThatBringsOneByteNeedsAsManyPasses)
{
    LimitEachReadTo(1);
    Send(std::string(200, 'x'));
    EXPECT_EQ(std::string(200, 'x'), Read(200));
    std::vector<unsigned> expected(200);
    std::iota(expected.rbegin(), expected.rend(), 1u);
    EXPECT_EQ(expected, stream_.lengths);
}

TEST_F(StreamReaderTest, WaitsWithAFreshSelectorBeforeEveryRead)
{
    test::PipePair<> earlier;
    EXPECT_EQ(1, earlier.writer.Write("x", 1));
    EXPECT_EQ("x", ReadFrom(earlier.reader, 1));

    LimitEachReadTo(2);
    Send("012345");
    SelectCalls selects;
    Read(6);
    ASSERT_EQ(3u, selects.calls.size());
    for (SelectCalls::Call const& call : selects.calls) {
        EXPECT_EQ(std::vector<int>{stream_.GetDescriptor()}, test::Members(call.reading));
        EXPECT_EQ(std::vector<int>{}, test::Members(call.writing));
        EXPECT_EQ(nullptr, call.timeout);
    }
}

TEST_F(StreamReaderTest, WaitsForTheBytesThatAreStillMissing)
{
    SelectCalls selects;
    selects.before = [&] {
        EXPECT_EQ(selects.calls.size(), stream_.lengths.size() + 1) << "a read without a wait";
        Send("ab");
    };
    EXPECT_EQ("ababab", Read(6));
    EXPECT_EQ((std::vector<unsigned>{6, 4, 2}), stream_.lengths);
}

TEST_F(StreamReaderTest, WaitsAgainAfterAnInterruption)
{
    SelectCalls selects;
    unsigned interruptions = 0;
    selects.after = [&](int result, fd_set*, fd_set*) {
        if (result == -1 && ++interruptions == 3)
            Send("now");
        return result;
    };
    test::Interruptions const alarms(1000);
    EXPECT_EQ("now", Read(3));
    EXPECT_GE(interruptions, 3u);
    EXPECT_EQ(interruptions + 1, selects.calls.size());
    EXPECT_EQ(std::vector<unsigned>{3}, stream_.lengths);
}

TEST_F(StreamReaderTest, WaitsAgainWhenTheStreamIsNotTheOneThatIsReady)
{
    Send("now");
    SelectCalls selects;
    selects.after = [&](int result, fd_set* reading, fd_set*) {
        EXPECT_TRUE(stream_.lengths.empty());
        if (selects.calls.size() == 1)
            FD_ZERO(reading);
        return result;
    };
    EXPECT_EQ("now", Read(3));
    EXPECT_EQ(2u, selects.calls.size());
}

TEST_F(StreamReaderTest, APeerThatClosesAfterHalfIsLoggedOnceAndCounted)
{
    CapturedLog log;
    Send("half");
    writer_.Close();
    EXPECT_EQ("half", Read(8));
    EXPECT_EQ(std::vector<std::string>{FAILURE}, test::TakeLines(log));
}

TEST_F(StreamReaderTest, APeerThatSendsNothingIsLogged)
{
    CapturedLog log;
    writer_.Close();
    EXPECT_EQ("", Read(8));
    EXPECT_EQ(1u, stream_.lengths.size());
    EXPECT_EQ(std::vector<std::string>{FAILURE}, test::TakeLines(log));
}

TEST_F(StreamReaderTest, BytesPastTheEndAreLeftAlone)
{
    Send("half");
    writer_.Close();
    char buffer[] = "????????";
    StreamReader(stream_).Read(buffer, 8);
    EXPECT_STREQ("half????", buffer);
}

TEST_F(StreamReaderTest, IsSilentBelowTheThreshold)
{
    test::ExpectPassesWithIdleLog([this] {
        Send("x");
        stream_.onRead = [](void*, unsigned) { return 0; };
        EXPECT_EQ("", Read(8));
        LoggerMgr::Instance().Log(1, "here", 1, "the first line in the queue");
        EXPECT_EQ("the first line in the queue", LoggerMgr::Instance().Deq().second);
    });
}

TEST_F(StreamReaderTest, PassesOnWhatTheStreamThrows)
{
    CapturedLog log;
    Send("x");
    Exception const original("cable.cpp", 7, "unplugged");
    stream_.onRead = [&](void*, unsigned) -> int { throw original; };
    EXPECT_EQ(original.Report(), test::Thrown([&] { Read(1); }).Report());

    stream_.onRead = [](void*, unsigned) -> int { throw std::range_error("of another type"); };
    EXPECT_THROW(Read(1), std::range_error);
    EXPECT_TRUE(test::TakeLines(log).empty());
}

TEST_F(StreamReaderTest, APeerThatResetsTheConnectionIsTheStreamsToTell)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket near(ends.reading);
    std::unique_ptr<Socket> far(new Socket(ends.writing));
    EXPECT_EQ(6, near.Write("unread", 6));
    far.reset();
    Exception const thrown = test::Thrown([&] { ReadFrom(near, 1); });
    EXPECT_EQ(test::ErrnoText(ECONNRESET), thrown.what());
    EXPECT_EQ(1u, thrown.locations.size());
}

TEST_F(StreamReaderTest, AWaitThatFailsThrows)
{
    test::TakenAway const taken(stream_.GetDescriptor());
    EXPECT_THROWN_AT("src/util/StreamSelector.cpp", 125, Read(1));
    EXPECT_THROWS_ERRNO(EBADF, Read(1));
    EXPECT_TRUE(stream_.lengths.empty());
}

TEST_F(StreamReaderTest, AClosedStreamIsRefused)
{
    stream_.Close();
    Exception const thrown = test::Thrown([&] { Read(1); });
    EXPECT_STREQ("Invalid stream.", thrown.what());
    EXPECT_THROWN_AT("src/util/StreamSelector.cpp", 105, Read(1));
}

TEST_F(StreamReaderTest, ReadsFromASocket)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket reader(ends.reading);
    Socket writer(ends.writing);
    SelectCalls selects;
    selects.before = [&] { writer.Write("piece ", 6); };
    EXPECT_EQ("piece piece ", ReadFrom(reader, 12));
    EXPECT_EQ(2u, selects.calls.size());
}

TEST_F(StreamReaderTest, ReadsFromAFileUpToItsEnd)
{
    CapturedLog log;
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "file", "0123456789");
    FileHandleStream file;
    file.Open(folder / "file", O_RDONLY, 0);
    EXPECT_EQ("012345", ReadFrom(file, 6));
    EXPECT_EQ("6789", ReadFrom(file, 6));
    EXPECT_EQ(std::vector<std::string>{FAILURE}, test::TakeLines(log));
}

}}}  // namespace tovu::util
