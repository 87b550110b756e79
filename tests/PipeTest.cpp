#include "tovu/util/Pipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "FailingAllocation.h"
#include "FreshProcess.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "PipePair.h"
#include "Sanitizers.h"
#include "TakenAway.h"
#include "ThrowingClose.h"
#include "Throws.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/RandomSeekStream.h"

namespace tovu { namespace util { namespace {

using test::CapturedLog;
using test::TakenAway;

static_assert(std::is_base_of<Stream, Pipe>::value, "a Pipe is a Stream");
static_assert(!std::is_base_of<RandomSeekStream, Pipe>::value, "a Pipe has no positions");
static_assert(!std::is_copy_constructible<Pipe>::value && !std::is_copy_assignable<Pipe>::value, "one owner");
static_assert(!std::is_convertible<int, Pipe>::value, "adopting a descriptor is said in words");
static_assert(std::is_nothrow_destructible<Pipe>::value, "the destructor never throws");
static_assert(std::is_same<decltype(&Pipe::CreatePipe), int (*)(int*)>::value, "CreatePipe belongs to the class");

class PipeTest : public testing::Test
{
protected:
    // Writes into a pipe that has room for a part only, with EDOM left over from something else.
    void WriteMoreThanFits()
    {
        test::FillUp(writer_.GetDescriptor());
        char page[4096];
        EXPECT_EQ(4096, read(reader_.GetDescriptor(), page, sizeof(page)));
        test::SetNonBlocking(writer_.GetDescriptor(), true);
        std::string const twoPages(8192, 'x');
        errno = EDOM;
        writer_.Write(twoPages.data(), 8192);
    }

    test::PipePair<> pipe_;
    Pipe& reader_ = pipe_.reader;
    Pipe& writer_ = pipe_.writer;
};

// ---- Making one.

TEST_F(PipeTest, CreatePipeMakesTheReadingAndTheWritingEnd)
{
    int ends[2] = {-2, -2};
    ASSERT_EQ(0, Pipe::CreatePipe(ends));
    EXPECT_EQ(O_RDONLY, fcntl(ends[0], F_GETFL) & O_ACCMODE);
    EXPECT_EQ(O_WRONLY, fcntl(ends[1], F_GETFL) & O_ACCMODE);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(PipeTest, CreatePipeMakesEndsThatChildrenInherit)
{
    EXPECT_EQ(0, fcntl(reader_.GetDescriptor(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, fcntl(writer_.GetDescriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(PipeTest, CreatePipeLeavesMinusOnesAndErrnoWhenItFails)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck has made a pipe already when it refuses it";

    test::ExpectPassesInChild([] {
        test::ForbidDescriptorsFrom(0);
        int ends[2] = {17, 18};
        EXPECT_EQ(-1, Pipe::CreatePipe(ends));
        EXPECT_EQ(EMFILE, errno);
        EXPECT_EQ(-1, ends[0]);
        EXPECT_EQ(-1, ends[1]);
    });
}

TEST_F(PipeTest, CreatePipeTakesNoDescriptorWhenOnlyOneIsLeft)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck has made a pipe already when it refuses it";

    test::ExpectPassesInChild([] {
        int const lowestFree = dup(STDOUT_FILENO);
        close(lowestFree);
        test::ForbidDescriptorsFrom(lowestFree + 1);
        int ends[2] = {17, 18};
        EXPECT_EQ(-1, Pipe::CreatePipe(ends));
        EXPECT_EQ(-1, ends[0]);
        EXPECT_EQ(-1, ends[1]);
        EXPECT_FALSE(test::IsDescriptorOpen(lowestFree));
    });
}

TEST_F(PipeTest, IsClosedWithoutADescriptor)
{
    EXPECT_FALSE(Pipe().IsOpen());
    EXPECT_FALSE(Pipe(-1).IsOpen());
    EXPECT_EQ(-1, Pipe().GetDescriptor());
}

TEST_F(PipeTest, AdoptsTheDescriptor)
{
    int const descriptor = dup(reader_.GetDescriptor());
    {
        Pipe const adopted(descriptor);
        EXPECT_TRUE(adopted.IsOpen());
        EXPECT_EQ(descriptor, adopted.GetDescriptor());
    }
    EXPECT_FALSE(test::IsDescriptorOpen(descriptor));
}

// ---- Asking what waits.

TEST_F(PipeTest, IsDataAvailableIsTrueForAnEmptyOpenPipe)
{
    unsigned long long count = ULLONG_MAX;
    EXPECT_TRUE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
}

TEST_F(PipeTest, IsDataAvailableStaysTrueWhenTheWriterHasGone)
{
    writer_.Close();
    unsigned long long count = ULLONG_MAX;
    EXPECT_TRUE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
}

TEST_F(PipeTest, IsDataAvailableNeedsNoCount)
{
    EXPECT_TRUE(reader_.IsDataAvailable(nullptr));
}

TEST_F(PipeTest, IsDataAvailableIsFalseAndStoresNothingOnAClosedPipe)
{
    reader_.Close();
    unsigned long long count = 77;
    EXPECT_FALSE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(77u, count);
    EXPECT_FALSE(reader_.IsDataAvailable(nullptr));
}

TEST_F(PipeTest, IsDataAvailableIsFalseAndStoresNothingWhenTheQueryFails)
{
    TakenAway const taken(reader_.GetDescriptor());
    unsigned long long count = 77;
    EXPECT_FALSE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(77u, count);
}

TEST_F(PipeTest, IsDataAvailableReportsZeroWhenTheQueryStoresNothing)
{
    test::IoctlReplacement const silent(test::IoctlCall(), [](int, unsigned long, void*) { return 0; });
    unsigned long long count = ULLONG_MAX;
    EXPECT_TRUE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
}

TEST_F(PipeTest, IsDataAvailableLeavesTheHighWordOfTheCountZero)
{
    test::IoctlReplacement const huge(test::IoctlCall(), [](int, unsigned long, void* argument) {
        *static_cast<int*>(argument) = -1;
        return 0;
    });
    unsigned long long count = 0;
    EXPECT_TRUE(reader_.IsDataAvailable(&count));
    EXPECT_EQ(0xFFFFFFFFu, count);
}

// ---- Reading.

TEST_F(PipeTest, ReadReturnsZeroOnceTheWriterIsClosed)
{
    writer_.Close();
    char byte = 'x';
    EXPECT_EQ(0, reader_.Read(&byte, 1));
    EXPECT_EQ('x', byte);
}

TEST_F(PipeTest, ReadOnAClosedPipeReturnsZero)
{
    reader_.Close();
    char byte = 'x';
    EXPECT_EQ(0, reader_.Read(&byte, 1));
    EXPECT_EQ('x', byte);
}

TEST_F(PipeTest, AFailedReadThrowsAtLine116)
{
    char byte = 0;
    EXPECT_THROWN_AT("src/util/Pipe.cpp", 116, writer_.Read(&byte, 1));
    EXPECT_THROWS_ERRNO(EBADF, writer_.Read(&byte, 1));
}

TEST_F(PipeTest, ReadIsNotRepeatedAfterAnInterruption)
{
    test::Interruptions const interruptions(1000);
    char byte = 0;
    EXPECT_THROWS_ERRNO(EINTR, reader_.Read(&byte, 1));
}

// ---- Writing.

TEST_F(PipeTest, WriteOnAClosedPipeReturnsZero)
{
    writer_.Close();
    EXPECT_EQ(0, writer_.Write("x", 1));
    char byte = 0;
    EXPECT_EQ(0, reader_.Read(&byte, 1));
}

TEST_F(PipeTest, AFailedWriteThrowsAtLine126)
{
    reader_.Close();
    EXPECT_THROWN_AT("src/util/Pipe.cpp", 126, writer_.Write("x", 1));
    EXPECT_THROWS_ERRNO(EPIPE, writer_.Write("x", 1));
}

TEST_F(PipeTest, AShortWriteThrowsAtLine126)
{
    EXPECT_THROWN_AT("src/util/Pipe.cpp", 126, WriteMoreThanFits());
}

TEST_F(PipeTest, TheBytesOfAShortWriteStayInThePipe)
{
    EXPECT_THROW(WriteMoreThanFits(), Exception);
    std::string const content = test::Drain(reader_.GetDescriptor());
    EXPECT_EQ(std::string(4096, 'x'), content.substr(content.size() - 4096));
}

TEST_F(PipeTest, AShortWriteThrowsWhateverErrnoHolds)
{
    EXPECT_THROWS_ERRNO(EDOM, WriteMoreThanFits());
}

TEST_F(PipeTest, WriteIsNotRepeatedAfterAnInterruption)
{
    test::FillUp(writer_.GetDescriptor());
    test::Interruptions const interruptions(1000);
    EXPECT_THROWS_ERRNO(EINTR, writer_.Write("x", 1));
}

// ---- Closing.

// A Pipe whose Flush is the test's.
class FlushedPipe : public Pipe
{
public:
    using Pipe::Pipe;

    bool Flush() override
    {
        ++flushes;
        if (onFlush)
            onFlush();
        return IsOpen();
    }

    unsigned flushes = 0;
    std::function<void()> onFlush;
};

TEST_F(PipeTest, FlushDoesNothing)
{
    EXPECT_EQ(2, writer_.Write("ab", 2));
    EXPECT_TRUE(writer_.Flush());
    EXPECT_TRUE(writer_.IsOpen());
    EXPECT_EQ("ab", test::Drain(reader_.GetDescriptor()));
}

TEST_F(PipeTest, FlushDoesNotLookAtTheDescriptor)
{
    TakenAway const taken(reader_.GetDescriptor());
    EXPECT_TRUE(reader_.Flush());
}

TEST_F(PipeTest, CloseLeavesMinusOne)
{
    reader_.Close();
    EXPECT_EQ(-1, reader_.GetDescriptor());
}

TEST_F(PipeTest, CloseFlushesThroughTheVirtualOperation)
{
    int const descriptor = dup(reader_.GetDescriptor());
    FlushedPipe pipe(descriptor);
    bool openDuringFlush = false;
    pipe.onFlush = [&] { openDuringFlush = pipe.IsOpen() && test::IsDescriptorOpen(descriptor); };
    pipe.Close();
    EXPECT_EQ(1u, pipe.flushes);
    EXPECT_TRUE(openDuringFlush);
}

TEST_F(PipeTest, ClosingAClosedPipeDoesNotFlush)
{
    FlushedPipe pipe(-1);
    pipe.Close();
    EXPECT_EQ(0u, pipe.flushes);
}

TEST_F(PipeTest, AFlushThatThrowsLeavesThePipeOpen)
{
    FlushedPipe pipe(dup(reader_.GetDescriptor()));
    pipe.onFlush = [] { throw Exception("flush.cpp", 5, "full"); };
    EXPECT_THROWN_AT("flush.cpp", 5, pipe.Close());
    EXPECT_TRUE(pipe.IsOpen());
    EXPECT_TRUE(test::IsDescriptorOpen(pipe.GetDescriptor()));
}

TEST_F(PipeTest, CloseIsContentWithAFlushThatHasClosedThePipe)
{
    FlushedPipe pipe(dup(reader_.GetDescriptor()));
    pipe.onFlush = [&] {
        if (pipe.flushes == 1)
            pipe.Close();
    };
    EXPECT_NO_THROW(pipe.Close());
    EXPECT_FALSE(pipe.IsOpen());
}

TEST_F(PipeTest, AFailedCloseThrowsAtLine42)
{
    TakenAway const taken(reader_.GetDescriptor());
    EXPECT_THROWN_AT("src/util/Pipe.cpp", 42, reader_.Close());
    EXPECT_THROWS_ERRNO(EBADF, reader_.Close());
}

TEST_F(PipeTest, AFailedCloseKeepsTheDescriptor)
{
    int const descriptor = reader_.GetDescriptor();
    TakenAway const taken(descriptor);
    EXPECT_THROW(reader_.Close(), Exception);
    EXPECT_EQ(descriptor, reader_.GetDescriptor());
}

// ---- Destruction.

TEST_F(PipeTest, DestructorLogsAFailedClose)
{
    CapturedLog log;
    int const descriptor = dup(reader_.GetDescriptor());
    std::unique_ptr<Pipe> pipe(new Pipe(descriptor));
    close(descriptor);
    pipe.reset();
    EXPECT_EQ((std::vector<std::string>{"Error src/util/Pipe.cpp:20 Bad file descriptor\nTraceback:\n"
                                        "thrown from src/util/Pipe.cpp, line 42\n"}),
              test::TakeLines(log));
}

TEST_F(PipeTest, DestructorIsSilentBelowTheThreshold)
{
    test::ExpectPassesWithIdleLog([] {
        std::unique_ptr<Pipe> pipe(new Pipe(1000));
        pipe.reset();
        LoggerMgr::Instance().Log(1, "here", 1, "the first line in the queue");
        EXPECT_EQ("the first line in the queue", LoggerMgr::Instance().Deq().second);
    });
}

TEST_F(PipeTest, DestructorLogsNothingWhenItCanClose)
{
    CapturedLog log;
    std::unique_ptr<Pipe> pipe(new Pipe(dup(reader_.GetDescriptor())));
    pipe.reset();
    pipe.reset(new Pipe);
    pipe.reset();
    EXPECT_TRUE(test::TakeLines(log).empty());
}

class PipeDestructorTest : public testing::TestWithParam<test::CaughtKind>
{};

INSTANTIATE_TEST_SUITE_P(Caught, PipeDestructorTest, testing::ValuesIn(test::CaughtKinds()), test::ParameterName());

TEST_P(PipeDestructorTest, LogsWhatItCatchesAndGoesOn)
{
    CapturedLog log;
    test::PipePair<> pair;
    std::unique_ptr<Pipe> pipe(new Pipe(dup(pair.reader.GetDescriptor())));
    test::ThrowingClose const failure(pipe->GetDescriptor(), GetParam().thrower);
    pipe.reset();
    EXPECT_EQ(std::vector<std::string>{"Error src/util/Pipe.cpp:20 " + GetParam().logged() + "\n"},
              test::TakeLines(log));
}

TEST_F(PipeTest, DestructorThatHasNoMemoryForItsLogLineIsQuiet)
{
    CapturedLog log;
    test::PipePair<> pair;
    std::unique_ptr<Pipe> pipe(new Pipe(dup(pair.reader.GetDescriptor())));
    test::ThrowingClose const failure(pipe->GetDescriptor(), [] { throw 42; });
    {
        test::FailingAllocation const noMemory;
        pipe.reset();
        EXPECT_TRUE(noMemory.HasFailed());
    }
    EXPECT_TRUE(test::TakeLines(log).empty());
}

}}}  // namespace tovu::util
