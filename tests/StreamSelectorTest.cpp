#include "tovu/util/StreamSelector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "Emulation.h"
#include "Interruptions.h"
#include "ParameterName.h"
#include "PipePair.h"
#include "SelectCalls.h"
#include "StreamSlots.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using test::SelectCalls;

typedef StreamSelector::TimeVal TimeVal;

char const* const SOURCE = "src/util/StreamSelector.cpp";

static_assert(!std::is_polymorphic<StreamSelector>::value, "no virtual operations");
static_assert(std::is_standard_layout<StreamSelector>::value, "no base class");
static_assert(std::is_copy_constructible<StreamSelector>::value && std::is_copy_assignable<StreamSelector>::value,
              "a value");
static_assert(FD_SETSIZE == 1024, "");

static_assert(std::is_convertible<TimeVal*, timeval*>::value, "the base is public");
static_assert(!std::is_polymorphic<TimeVal>::value && std::is_standard_layout<TimeVal>::value, "");

constexpr std::size_t WORDS = 1024 / 32;

// The bits of the two sets: those for reading, then those for writing.
std::vector<std::uint32_t> WordsOf(StreamSelector const& selector)
{
    static_assert(sizeof(StreamSelector) == 2 * WORDS * sizeof(std::uint32_t), "");
    std::vector<std::uint32_t> words(2 * WORDS);
    std::memcpy(words.data(), &selector, sizeof(selector));
    return words;
}

// One end of a pipe, with the first free number from `lowest` on.
std::unique_ptr<Pipe> MakePipeNumberedFrom(int lowest)
{
    test::PipePair<> pair;
    return std::unique_ptr<Pipe>(new Pipe(fcntl(pair.reader.GetDescriptor(), F_DUPFD, lowest)));
}

class StreamSelectorTest : public testing::Test
{
protected:
    // Whether a wait that only looks finds the stream ready.
    static bool IsReadable(Stream const& stream)
    {
        StreamSelector selector;
        selector.AddStreamForReading(stream);
        TimeVal none(0, 0);
        return selector.Select(none) && selector.IsStreamReadyForReading(stream);
    }

    static bool IsWritable(Stream const& stream)
    {
        StreamSelector selector;
        selector.AddStreamForWriting(stream);
        TimeVal none(0, 0);
        return selector.Select(none) && selector.IsStreamReadyForWriting(stream);
    }

    test::PipePair<> pipe_;
    Pipe& reader_ = pipe_.reader;
    Pipe& writer_ = pipe_.writer;
    StreamSelector selector_;
};

// ---- The sets.

TEST_F(StreamSelectorTest, StartsEmptyWhateverWasInTheMemory)
{
    alignas(StreamSelector) unsigned char memory[sizeof(StreamSelector)];
    std::memset(memory, 0xFF, sizeof(memory));
    StreamSelector const* const selector = new (memory) StreamSelector;
    EXPECT_EQ(std::vector<std::uint32_t>(2 * WORDS), WordsOf(*selector));
}

TEST_F(StreamSelectorTest, SetsTheBitOfTheDescriptorInTheRightSet)
{
    for (int const lowest : {32, 40, 63, 64, 95, 200}) {
        std::unique_ptr<Pipe> const pipe = MakePipeNumberedFrom(lowest);
        int const number = pipe->GetDescriptor();
        std::size_t const word = static_cast<std::size_t>(number) / 32;
        std::vector<std::uint32_t> expected(2 * WORDS);

        StreamSelector selector;
        selector.AddStreamForReading(*pipe);
        expected[word] = std::uint32_t{1} << (number % 32);
        EXPECT_EQ(expected, WordsOf(selector)) << number;

        selector.AddStreamForWriting(*pipe);
        expected[WORDS + word] = std::uint32_t{1} << (number % 32);
        EXPECT_EQ(expected, WordsOf(selector)) << number;
    }
}

TEST_F(StreamSelectorTest, AddingAStreamTwiceIsTheSameAsOnce)
{
    selector_.AddStreamForReading(reader_);
    StreamSelector const once = selector_;
    selector_.AddStreamForReading(reader_);
    EXPECT_EQ(WordsOf(once), WordsOf(selector_));
}

TEST_F(StreamSelectorTest, TellsWhatWasAddedBeforeTheWait)
{
    selector_.AddStreamForReading(reader_);
    EXPECT_TRUE(selector_.IsStreamReadyForReading(reader_));
    EXPECT_FALSE(selector_.IsStreamReadyForWriting(reader_));
    EXPECT_FALSE(selector_.IsStreamReadyForReading(writer_));
}

TEST_F(StreamSelectorTest, ACopyIsAWaitOfItsOwn)
{
    selector_.AddStreamForReading(reader_);
    StreamSelector copy = selector_;
    copy.AddStreamForWriting(writer_);
    EXPECT_TRUE(copy.IsStreamReadyForReading(reader_));
    EXPECT_FALSE(selector_.IsStreamReadyForWriting(writer_));
}

// ---- What select(2) is asked.

TEST_F(StreamSelectorTest, SelectHandsOverBothSetsAndNoTimeOut)
{
    selector_.AddStreamForReading(reader_);
    selector_.AddStreamForWriting(writer_);
    SelectCalls selects;
    EXPECT_TRUE(selector_.Select());
    ASSERT_EQ(1u, selects.calls.size());
    EXPECT_EQ(1024, selects.calls[0].limit);
    EXPECT_EQ(std::vector<int>{reader_.GetDescriptor()}, test::Members(selects.calls[0].reading));
    EXPECT_EQ(std::vector<int>{writer_.GetDescriptor()}, test::Members(selects.calls[0].writing));
    EXPECT_FALSE(selects.calls[0].hasExceptionSet);
    EXPECT_EQ(nullptr, selects.calls[0].timeout);
}

TEST_F(StreamSelectorTest, SelectHandsOverTheTimeOutAsItIs)
{
    selector_.AddStreamForWriting(writer_);
    TimeVal timeout(60, 5);
    SelectCalls selects;
    EXPECT_TRUE(selector_.Select(timeout));
    ASSERT_EQ(1u, selects.calls.size());
    EXPECT_EQ(1024, selects.calls[0].limit);
    EXPECT_FALSE(selects.calls[0].hasExceptionSet);
    EXPECT_EQ(&timeout, selects.calls[0].timeout);
}

TEST_F(StreamSelectorTest, TimeValHoldsSecondsAndMicroseconds)
{
    TimeVal const time(3, 250000);
    timeval plain;
    std::memcpy(&plain, &time, sizeof(plain));
    EXPECT_EQ(3, plain.tv_sec);
    EXPECT_EQ(250000, plain.tv_usec);
}

// ---- What a wait finds.

TEST_F(StreamSelectorTest, SelectWaitsUntilAStreamIsReady)
{
    selector_.AddStreamForReading(reader_);
    SelectCalls selects;
    selects.before = [this] { EXPECT_EQ(1, writer_.Write("x", 1)); };
    EXPECT_TRUE(selector_.Select());
    EXPECT_TRUE(selector_.IsStreamReadyForReading(reader_));
}

TEST_F(StreamSelectorTest, SelectWithATimeOutFindsAReadyStream)
{
    EXPECT_EQ(1, writer_.Write("x", 1));
    selector_.AddStreamForReading(reader_);
    TimeVal timeout(60, 0);
    EXPECT_TRUE(selector_.Select(timeout));
    EXPECT_TRUE(selector_.IsStreamReadyForReading(reader_));
}

TEST_F(StreamSelectorTest, AnElapsedTimeOutIsFalseAndNothingIsReady)
{
    selector_.AddStreamForReading(reader_);
    TimeVal timeout(0, 1000);
    EXPECT_FALSE(selector_.Select(timeout));
    EXPECT_FALSE(selector_.IsStreamReadyForReading(reader_));
    EXPECT_EQ(std::vector<std::uint32_t>(2 * WORDS), WordsOf(selector_));
}

TEST_F(StreamSelectorTest, AnElapsedTimeOutLeavesNoTime)
{
    TimeVal timeout(0, 1000);
    EXPECT_FALSE(selector_.Select(timeout));
    EXPECT_EQ(0, timeout.tv_sec);
    EXPECT_EQ(0, timeout.tv_usec);
}

TEST_F(StreamSelectorTest, ATimeOutOfZeroOnlyLooks)
{
    EXPECT_FALSE(IsReadable(reader_));
    EXPECT_TRUE(IsWritable(writer_));
}

TEST_F(StreamSelectorTest, OnlyTheReadyStreamsStaySet)
{
    test::PipePair<> other;
    EXPECT_EQ(1, other.writer.Write("x", 1));
    selector_.AddStreamForReading(reader_);
    selector_.AddStreamForReading(other.reader);
    EXPECT_TRUE(selector_.Select());
    EXPECT_FALSE(selector_.IsStreamReadyForReading(reader_));
    EXPECT_TRUE(selector_.IsStreamReadyForReading(other.reader));
}

TEST_F(StreamSelectorTest, AStreamThatWasNeverAddedIsNotReady)
{
    test::PipePair<> other;
    EXPECT_EQ(1, other.writer.Write("x", 1));
    EXPECT_EQ(1, writer_.Write("x", 1));
    selector_.AddStreamForReading(reader_);
    EXPECT_TRUE(selector_.Select());
    EXPECT_FALSE(selector_.IsStreamReadyForReading(other.reader));
    EXPECT_FALSE(selector_.IsStreamReadyForWriting(other.writer));
}

TEST_F(StreamSelectorTest, ReadingAndWritingAreWatchedApart)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket near(ends.reading);
    Socket far(ends.writing);
    selector_.AddStreamForReading(near);
    selector_.AddStreamForWriting(near);
    EXPECT_TRUE(selector_.Select());
    EXPECT_FALSE(selector_.IsStreamReadyForReading(near));
    EXPECT_TRUE(selector_.IsStreamReadyForWriting(near));
}

TEST_F(StreamSelectorTest, AWaitDoesNotPutItsStreamsBack)
{
    selector_.AddStreamForReading(reader_);
    TimeVal none(0, 0);
    EXPECT_FALSE(selector_.Select(none));
    EXPECT_EQ(1, writer_.Write("x", 1));
    EXPECT_FALSE(selector_.Select(none));
    selector_.AddStreamForReading(reader_);
    EXPECT_TRUE(selector_.Select(none));
}

TEST_F(StreamSelectorTest, SelectWithoutATimeOutIsFalseWhenNothingIsReady)
{
    selector_.AddStreamForWriting(writer_);
    SelectCalls selects;
    selects.after = [](int, fd_set*, fd_set*) { return 0; };
    EXPECT_FALSE(selector_.Select());
}

// ---- Interruptions and failures.

TEST_F(StreamSelectorTest, AnInterruptedWaitIsFalse)
{
    selector_.AddStreamForReading(reader_);
    test::Interruptions const alarms(1000);
    EXPECT_FALSE(selector_.Select());
}

TEST_F(StreamSelectorTest, AnInterruptedWaitLeavesTheRestOfTheTime)
{
    if (test::IsEmulated())
        GTEST_SKIP() << "the emulator keeps the rest of the time of an interrupted select(2) to itself";
    selector_.AddStreamForReading(reader_);
    TimeVal timeout(3600, 0);
    test::Interruptions const alarms(1000);
    EXPECT_FALSE(selector_.Select(timeout));
    EXPECT_LT(timeout.tv_sec, 3600);
    EXPECT_GT(timeout.tv_sec, 0);
}

TEST_F(StreamSelectorTest, AFailedSelectThrowsAtLine125)
{
    selector_.AddStreamForReading(reader_);
    test::TakenAway const taken(reader_.GetDescriptor());
    EXPECT_THROWN_AT(SOURCE, 125, selector_.Select());
    EXPECT_THROWS_ERRNO(EBADF, selector_.Select());
}

TEST_F(StreamSelectorTest, AFailedSelectWithATimeOutThrowsAtLine138)
{
    TimeVal negative(-1, 0);
    EXPECT_THROWN_AT(SOURCE, 138, selector_.Select(negative));
    EXPECT_THROWS_ERRNO(EINVAL, selector_.Select(negative));
}

// ---- The kinds of streams.

TEST_F(StreamSelectorTest, APipeIsReadableWhenBytesWaitOrTheWriterHasGone)
{
    EXPECT_FALSE(IsReadable(reader_));
    EXPECT_EQ(1, writer_.Write("x", 1));
    EXPECT_TRUE(IsReadable(reader_));
    test::Drain(reader_.GetDescriptor());
    EXPECT_FALSE(IsReadable(reader_));
    writer_.Close();
    EXPECT_TRUE(IsReadable(reader_));
}

TEST_F(StreamSelectorTest, APipeIsWritableWhileThereIsRoom)
{
    EXPECT_TRUE(IsWritable(writer_));
    test::FillUp(writer_.GetDescriptor());
    EXPECT_FALSE(IsWritable(writer_));
}

TEST_F(StreamSelectorTest, ASocketIsWatched)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket near(ends.reading);
    Socket far(ends.writing);
    EXPECT_FALSE(IsReadable(near));
    EXPECT_EQ(1, far.Write("x", 1));
    EXPECT_TRUE(IsReadable(near));
    EXPECT_TRUE(IsWritable(near));
    test::FillUp(near.GetDescriptor());
    EXPECT_FALSE(IsWritable(near));
}

TEST_F(StreamSelectorTest, AViewOfASocketIsTheSocketToIt)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket near(ends.reading);
    Socket far(ends.writing);
    EXPECT_EQ(1, far.Write("x", 1));
    TenantSocket const view(near.GetDescriptor());
    selector_.AddStreamForReading(near);
    EXPECT_TRUE(selector_.Select());
    EXPECT_TRUE(selector_.IsStreamReadyForReading(view));
}

TEST_F(StreamSelectorTest, AListeningSocketIsReadableWhenSomebodyConnects)
{
    Socket listener(AF_INET, SOCK_STREAM, 0);
    listener.Bind(Socket::Address(0, htonl(INADDR_LOOPBACK)));
    ASSERT_EQ(0, listen(listener.GetDescriptor(), 1));
    EXPECT_FALSE(IsReadable(listener));

    Socket const client(AF_INET, SOCK_STREAM, 0);
    Socket::Address const address = listener.GetHostAddress();
    ASSERT_EQ(0, connect(client.GetDescriptor(), &address.address.generic, address.length));
    EXPECT_TRUE(IsReadable(listener));
}

TEST_F(StreamSelectorTest, ARegularFileIsAlwaysReady)
{
    test::TemporaryDirectory const folder;
    FileHandleStream file;
    file.Open(folder / "empty", O_RDWR | O_CREAT, 0600);
    EXPECT_TRUE(IsReadable(file));
    EXPECT_TRUE(IsWritable(file));
}

TEST_F(StreamSelectorTest, ANamedPipeIsWatched)
{
    test::TemporaryDirectory const folder;
    ASSERT_EQ(0, mkfifo((folder / "fifo").c_str(), 0600));
    FileHandleStream fifo;
    fifo.Open(folder / "fifo", O_RDWR, 0);
    EXPECT_FALSE(IsReadable(fifo));
    EXPECT_EQ(1, fifo.Write("x", 1));
    EXPECT_TRUE(IsReadable(fifo));
}

TEST_F(StreamSelectorTest, TheLastDescriptorOfTheSetIsWatched)
{
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    if (limit.rlim_cur < 1024)
        GTEST_SKIP() << "this process may not have descriptor 1023";

    Pipe last(fcntl(reader_.GetDescriptor(), F_DUPFD, 1023));
    ASSERT_EQ(1023, last.GetDescriptor());
    EXPECT_FALSE(IsReadable(last));
    EXPECT_EQ(1, writer_.Write("x", 1));
    EXPECT_TRUE(IsReadable(last));
}

// Two streams in one object: the selector meets it as one of them and may find the other.
struct PipeAndSocket : Pipe, Socket
{
    PipeAndSocket(int pipe, int socket) : Pipe(pipe), Socket(socket) {}
};

struct PipeAndFile : Pipe, FileHandleStream
{
    explicit PipeAndFile(int pipe) : Pipe(pipe) {}
};

struct SocketAndFile : Socket, FileHandleStream
{
    explicit SocketAndFile(int socket) : Socket(socket) {}
};

// The descriptor that the selector takes a stream for.
int DescriptorSeen(Stream const& stream)
{
    StreamSelector selector;
    selector.AddStreamForReading(stream);
    fd_set set;
    std::memcpy(&set, &selector, sizeof(set));
    std::vector<int> const members = test::Members(set);
    EXPECT_EQ(1u, members.size());
    return members.front();
}

TEST_F(StreamSelectorTest, APipeIsFoundBeforeASocket)
{
    test::Ends const sockets = test::MakeSocketPair();
    Socket const other(sockets.writing);
    PipeAndSocket const both(dup(reader_.GetDescriptor()), sockets.reading);
    EXPECT_EQ(both.Pipe::GetDescriptor(), DescriptorSeen(static_cast<Socket const&>(both)));
}

TEST_F(StreamSelectorTest, APipeIsFoundBeforeAFile)
{
    PipeAndFile both(dup(reader_.GetDescriptor()));
    both.Open("/dev/null", O_RDONLY, 0);
    EXPECT_EQ(both.Pipe::GetDescriptor(), DescriptorSeen(static_cast<FileHandleStream const&>(both)));
}

TEST_F(StreamSelectorTest, ASocketIsFoundBeforeAFile)
{
    test::Ends const sockets = test::MakeSocketPair();
    Socket const other(sockets.writing);
    SocketAndFile both(sockets.reading);
    both.Open("/dev/null", O_RDONLY, 0);
    EXPECT_EQ(both.Socket::GetDescriptor(), DescriptorSeen(static_cast<FileHandleStream const&>(both)));
}

TEST_F(StreamSelectorTest, TheFirstKindFoundDecidesAlsoWhenItIsClosed)
{
    PipeAndFile both(-1);
    both.Open("/dev/null", O_RDONLY, 0);
    EXPECT_THROWN_AT(SOURCE, 105, selector_.AddStreamForReading(static_cast<FileHandleStream const&>(both)));
}

// ---- Streams that cannot be watched.

// A stream without a descriptor that the selector knows of, though it is open.
class OtherStream : public test::NotingStream<Stream>
{
public:
    bool IsOpen() const override { return true; }
};

class OtherFile : public test::NotingSeekStream<RandomSeekStream>
{
public:
    OtherFile() : NotingSeekStream(false) {}
};

struct Unwatchable
{
    char const* name;
    std::unique_ptr<Stream> (*make)();
};

template <typename Kind>
std::unique_ptr<Stream> Make()
{
    return std::unique_ptr<Stream>(new Kind);
}

template <typename Kind>
std::unique_ptr<Stream> MakeWithoutDescriptor()
{
    return std::unique_ptr<Stream>(new Kind(-1));
}

template <typename Kind>
std::unique_ptr<Stream> MakeAndClose()
{
    test::Ends const ends = test::MakeSocketPair();
    close(ends.writing);
    std::unique_ptr<Stream> stream(new Kind(ends.reading));
    stream->Close();
    return stream;
}

std::unique_ptr<Stream> MakeFileAndClose()
{
    std::unique_ptr<FileHandleStream> file(new FileHandleStream);
    file->Open("/dev/null", O_RDONLY, 0);
    file->Close();
    return std::unique_ptr<Stream>(file.release());
}

// Open, and on a descriptor, which it does not give away.
std::unique_ptr<Stream> MakeBufferedFile()
{
    std::unique_ptr<FileStream> file(new FileStream);
    file->Open("/dev/null", "r");
    return std::unique_ptr<Stream>(file.release());
}

class UnwatchableStreamTest : public testing::TestWithParam<Unwatchable>
{
protected:
    template <typename Action>
    static void ExpectInvalid(unsigned line, Action action)
    {
        Exception const thrown = test::Thrown(action);
        EXPECT_STREQ("Invalid stream.", thrown.what());
        ASSERT_EQ(1u, thrown.locations.size());
        EXPECT_STREQ(SOURCE, thrown.locations[0].file);
        EXPECT_EQ(line, thrown.locations[0].line);
    }

    std::unique_ptr<Stream> const stream_ = GetParam().make();
    StreamSelector selector_;
};

INSTANTIATE_TEST_SUITE_P(
    Streams, UnwatchableStreamTest,
    testing::Values(Unwatchable{"FreshPipe", &Make<Pipe>}, Unwatchable{"ClosedPipe", &MakeAndClose<Pipe>},
                    Unwatchable{"SocketWithoutDescriptor", &MakeWithoutDescriptor<Socket>},
                    Unwatchable{"ClosedSocket", &MakeAndClose<Socket>},
                    Unwatchable{"FreshFile", &Make<FileHandleStream>}, Unwatchable{"ClosedFile", &MakeFileAndClose},
                    Unwatchable{"BufferedFile", &MakeBufferedFile}, Unwatchable{"OtherStream", &Make<OtherStream>},
                    Unwatchable{"OtherFile", &Make<OtherFile>}),
    test::ParameterName());

TEST_P(UnwatchableStreamTest, IsRefusedForReadingAtLine105)
{
    ExpectInvalid(105, [&] { selector_.AddStreamForReading(*stream_); });
}

TEST_P(UnwatchableStreamTest, IsRefusedForWritingAtLine113)
{
    ExpectInvalid(113, [&] { selector_.AddStreamForWriting(*stream_); });
}

TEST_P(UnwatchableStreamTest, IsRefusedInAQuestionForReadingAtLine147)
{
    ExpectInvalid(147, [&] { selector_.IsStreamReadyForReading(*stream_); });
}

TEST_P(UnwatchableStreamTest, IsRefusedInAQuestionForWritingAtLine155)
{
    ExpectInvalid(155, [&] { selector_.IsStreamReadyForWriting(*stream_); });
}

TEST_P(UnwatchableStreamTest, LeavesTheSetsAsTheyWere)
{
    EXPECT_THROW(selector_.AddStreamForReading(*stream_), Exception);
    EXPECT_THROW(selector_.AddStreamForWriting(*stream_), Exception);
    EXPECT_EQ(std::vector<std::uint32_t>(2 * WORDS), WordsOf(selector_));
}

TEST_F(StreamSelectorTest, AStreamThatWasClosedAfterTheWaitIsRefused)
{
    writer_.Close();
    selector_.AddStreamForReading(reader_);
    EXPECT_TRUE(selector_.Select());
    reader_.Close();
    EXPECT_THROWN_AT(SOURCE, 147, selector_.IsStreamReadyForReading(reader_));
}

}}}  // namespace tovu::util
