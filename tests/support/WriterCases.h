#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "FreshProcess.h"
#include "Interruptions.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "PipePair.h"
#include "SelectCalls.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Socket.h"

// What StreamWriter and MessageWriter promise in the same words. Each one's test instantiates the cases.

namespace tovu { namespace test {

struct WriterKind
{
    char const* name;
    char const* failure;  ///< The line that is logged for a write that fell short.
    unsigned (*write)(util::Stream& stream, void const* buffer, unsigned length);
};

/// A writer into a pipe whose writes are noted. The reading end is there to look at what has come.
class WriterTest : public testing::TestWithParam<WriterKind>
{
protected:
    unsigned WriteTo(util::Stream& stream, std::string const& bytes)
    {
        return GetParam().write(stream, bytes.data(), static_cast<unsigned>(bytes.size()));
    }

    unsigned Write(std::string const& bytes) { return WriteTo(stream_, bytes); }

    std::string Received() { return Drain(pipe_.reader.GetDescriptor()); }

    /// The stream takes at most this many bytes in one call.
    void LimitEachWriteTo(unsigned most)
    {
        stream_.onWrite = [this, most](void const* buffer, unsigned length) {
            return stream_.Pipe::Write(buffer, std::min(most, length));
        };
    }

    /// The stream takes this many bytes, one by one, and then no more.
    void TakeNoMoreThan(unsigned count)
    {
        stream_.onWrite = [this, count](void const* buffer, unsigned) {
            return stream_.lengths.size() > count ? 0 : stream_.Pipe::Write(buffer, 1);
        };
    }

    PipePair<util::Pipe, ScriptedPipe> pipe_;
    ScriptedPipe& stream_ = pipe_.writer;
};

TEST_P(WriterTest, WritesTheWholeBuffer)
{
    std::string const bytes("with a \0 inside", 15);
    EXPECT_EQ(15u, Write(bytes));
    EXPECT_EQ(bytes, Received());
}

TEST_P(WriterTest, AddsNothingToTheBytes)
{
    EXPECT_EQ(1u, Write("x"));
    EXPECT_EQ("x", Received());
}

TEST_P(WriterTest, LogsNothingWhenEverythingHasGone)
{
    CapturedLog log;
    Write("everything");
    EXPECT_TRUE(TakeLines(log).empty());
}

TEST_P(WriterTest, ALengthOfZeroTouchesNeitherStreamNorSelector)
{
    CapturedLog log;
    SelectCalls selects;
    util::Pipe closed;
    EXPECT_EQ(0u, Write(""));
    EXPECT_EQ(0u, GetParam().write(closed, nullptr, 0));
    EXPECT_TRUE(stream_.lengths.empty());
    EXPECT_TRUE(selects.calls.empty());
    EXPECT_TRUE(TakeLines(log).empty());
}

TEST_P(WriterTest, GoesOnWhereAShortWriteStopped)
{
    LimitEachWriteTo(4);
    EXPECT_EQ(10u, Write("0123456789"));
    EXPECT_EQ("0123456789", Received());
    EXPECT_EQ((std::vector<unsigned>{10, 6, 2}), stream_.lengths);
}

TEST_P(WriterTest, AStreamThatTakesOneByteNeedsAsManyPasses)
{
    LimitEachWriteTo(1);
    EXPECT_EQ(200u, Write(std::string(200, 'x')));
    std::vector<unsigned> expected(200);
    std::iota(expected.rbegin(), expected.rend(), 1u);
    EXPECT_EQ(expected, stream_.lengths);
}

TEST_P(WriterTest, WaitsWithAFreshSelectorBeforeEveryWrite)
{
    PipePair<> earlier;
    EXPECT_EQ(1u, WriteTo(earlier.writer, "x"));

    LimitEachWriteTo(2);
    SelectCalls selects;
    Write("012345");
    ASSERT_EQ(3u, selects.calls.size());
    for (SelectCalls::Call const& call : selects.calls) {
        EXPECT_EQ(std::vector<int>{}, Members(call.reading));
        EXPECT_EQ(std::vector<int>{stream_.GetDescriptor()}, Members(call.writing));
        EXPECT_EQ(nullptr, call.timeout);
    }
}

TEST_P(WriterTest, WaitsUntilThereIsRoom)
{
    FillUp(stream_.GetDescriptor());
    SelectCalls selects;
    selects.before = [this] {
        EXPECT_TRUE(stream_.lengths.empty()) << "written before the wait";
        Received();
    };
    EXPECT_EQ(3u, Write("now"));
    EXPECT_EQ("now", Received());
}

TEST_P(WriterTest, WaitsAgainAfterAnInterruption)
{
    FillUp(stream_.GetDescriptor());
    SelectCalls selects;
    unsigned interruptions = 0;
    selects.after = [&](int result, fd_set*, fd_set*) {
        if (result == -1 && ++interruptions == 3)
            Received();
        return result;
    };
    Interruptions const alarms(1000);
    EXPECT_EQ(3u, Write("now"));
    EXPECT_GE(interruptions, 3u);
    EXPECT_EQ(interruptions + 1, selects.calls.size());
    EXPECT_EQ(std::vector<unsigned>{3}, stream_.lengths);
}

TEST_P(WriterTest, WaitsAgainWhenTheStreamIsNotTheOneThatIsReady)
{
    SelectCalls selects;
    selects.after = [&](int result, fd_set*, fd_set* writing) {
        EXPECT_TRUE(stream_.lengths.empty());
        if (selects.calls.size() == 1)
            FD_ZERO(writing);
        return result;
    };
    EXPECT_EQ(3u, Write("now"));
    EXPECT_EQ(2u, selects.calls.size());
}

TEST_P(WriterTest, AStreamThatTakesNoMoreIsLoggedOnceAndCounted)
{
    CapturedLog log;
    TakeNoMoreThan(5);
    EXPECT_EQ(5u, Write("0123456789"));
    EXPECT_EQ("01234", Received());
    EXPECT_EQ(std::vector<std::string>{GetParam().failure}, TakeLines(log));
}

TEST_P(WriterTest, AStreamThatTakesNothingIsLogged)
{
    CapturedLog log;
    TakeNoMoreThan(0);
    EXPECT_EQ(0u, Write("0123456789"));
    EXPECT_EQ(1u, stream_.lengths.size());
    EXPECT_EQ(std::vector<std::string>{GetParam().failure}, TakeLines(log));
}

TEST_P(WriterTest, IsSilentBelowTheThreshold)
{
    ExpectPassesWithIdleLog([this] {
        TakeNoMoreThan(5);
        EXPECT_EQ(5u, Write("0123456789"));
        util::LoggerMgr::Instance().Log(1, "here", 1, "the first line in the queue");
        EXPECT_EQ("the first line in the queue", util::LoggerMgr::Instance().Deq().second);
    });
}

TEST_P(WriterTest, PassesOnWhatTheStreamThrows)
{
    CapturedLog log;
    util::Exception const original("cable.cpp", 7, "unplugged");
    stream_.onWrite = [&](void const*, unsigned) -> int { throw original; };
    util::Exception const thrown = Thrown([&] { Write("x"); });
    EXPECT_EQ(original.Report(), thrown.Report());

    stream_.onWrite = [](void const*, unsigned) -> int { throw std::range_error("of another type"); };
    EXPECT_THROW(Write("x"), std::range_error);
    EXPECT_TRUE(TakeLines(log).empty());
}

TEST_P(WriterTest, AReaderWhoHasGoneIsTheStreamsToTell)
{
    pipe_.reader.Close();
    EXPECT_THROWN_AT("src/util/Pipe.cpp", 126, Write("x"));
    EXPECT_THROWS_ERRNO(EPIPE, Write("x"));
}

TEST_P(WriterTest, AWaitThatFailsThrows)
{
    TakenAway const taken(stream_.GetDescriptor());
    EXPECT_THROWN_AT("src/util/StreamSelector.cpp", 125, Write("x"));
    EXPECT_THROWS_ERRNO(EBADF, Write("x"));
    EXPECT_TRUE(stream_.lengths.empty());
}

TEST_P(WriterTest, AClosedStreamIsRefused)
{
    stream_.Close();
    util::Exception const thrown = Thrown([&] { Write("x"); });
    EXPECT_STREQ("Invalid stream.", thrown.what());
    EXPECT_THROWN_AT("src/util/StreamSelector.cpp", 113, Write("x"));
}

TEST_P(WriterTest, WritesToASocketThatTakesParts)
{
    Ends const ends = MakeSocketPair();
    util::Socket reader(ends.reading);
    util::Socket writer(ends.writing);
    writer.SetBlocking(false);
    std::string const bytes(4 * 1024 * 1024, 'm');

    std::string received;
    SelectCalls selects;
    selects.before = [&] { received += Drain(reader.GetDescriptor()); };
    EXPECT_EQ(bytes.size(), WriteTo(writer, bytes));
    received += Drain(reader.GetDescriptor());
    EXPECT_GT(selects.calls.size(), 1u) << "the socket took everything at once";
    EXPECT_EQ(bytes.size(), received.size());
    EXPECT_TRUE(bytes == received);
}

TEST_P(WriterTest, WritesToAFile)
{
    TemporaryDirectory const folder;
    util::FileHandleStream file;
    file.Open(folder / "file", O_WRONLY | O_CREAT, 0600);
    EXPECT_EQ(5u, WriteTo(file, "bytes"));
    EXPECT_EQ("bytes", ReadFile(folder / "file"));
}

}}  // namespace tovu::test
