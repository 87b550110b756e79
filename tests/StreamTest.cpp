#include "tovu/util/Stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>

#include "ParameterName.h"
#include "PipePair.h"
#include "StreamSlots.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using test::NotingStream;
using test::TakenAway;

// ---- The class itself.

// One operation each: a class without one of the six is abstract, a class with all of them is not.
template <typename Base>
struct WithIsOpen : Base
{
    bool IsOpen() const override { return false; }
};
template <typename Base>
struct WithClose : Base
{
    void Close() override {}
};
template <typename Base>
struct WithFlush : Base
{
    bool Flush() override { return false; }
};
template <typename Base>
struct WithIsDataAvailable : Base
{
    bool IsDataAvailable(unsigned long long* /*count*/) override { return false; }
};
template <typename Base>
struct WithRead : Base
{
    int Read(void* /*buffer*/, unsigned int /*length*/) override { return 0; }
};
template <typename Base>
struct WithWrite : Base
{
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return 0; }
};

typedef WithIsOpen<WithClose<WithFlush<Stream>>> FirstHalf;
typedef WithIsDataAvailable<WithRead<WithWrite<Stream>>> SecondHalf;

static_assert(std::is_abstract<WithIsDataAvailable<WithRead<WithWrite<WithClose<WithFlush<Stream>>>>>>::value,
              "IsOpen");
static_assert(std::is_abstract<WithIsDataAvailable<WithRead<WithWrite<WithIsOpen<WithFlush<Stream>>>>>>::value,
              "Close");
static_assert(std::is_abstract<WithIsDataAvailable<WithRead<WithWrite<WithIsOpen<WithClose<Stream>>>>>>::value,
              "Flush");
static_assert(std::is_abstract<WithRead<WithWrite<FirstHalf>>>::value, "IsDataAvailable");
static_assert(std::is_abstract<WithIsDataAvailable<WithWrite<FirstHalf>>>::value, "Read");
static_assert(std::is_abstract<WithIsDataAvailable<WithRead<FirstHalf>>>::value, "Write");
static_assert(!std::is_abstract<WithIsOpen<WithClose<WithFlush<SecondHalf>>>>::value, "there is no other");

static_assert(std::has_virtual_destructor<Stream>::value, "streams are deleted through their base");
static_assert(!std::is_nothrow_destructible<Stream>::value, "the destructor of a stream may throw");

static_assert(std::is_same<decltype(&Stream::IsOpen), bool (Stream::*)() const>::value, "");
static_assert(std::is_same<decltype(&Stream::Close), void (Stream::*)()>::value, "");
static_assert(std::is_same<decltype(&Stream::Flush), bool (Stream::*)()>::value, "");
static_assert(std::is_same<decltype(&Stream::IsDataAvailable), bool (Stream::*)(unsigned long long*)>::value, "");
static_assert(std::is_same<decltype(&Stream::Read), int (Stream::*)(void*, unsigned int)>::value, "");
static_assert(std::is_same<decltype(&Stream::Write), int (Stream::*)(void const*, unsigned int)>::value, "");
static_assert(std::is_same<decltype(&Stream::IsBigEndian), bool (*)()>::value, "");

TEST(StreamTest, IsBigEndianTellsTheByteOrderOfTheHost)
{
    EXPECT_EQ(__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__, Stream::IsBigEndian());
}

TEST(StreamTest, IsBigEndianIsTheSameOnEveryCall)
{
    EXPECT_EQ(Stream::IsBigEndian(), Stream::IsBigEndian());
}

// Tells when it is destroyed.
class MortalStream : public NotingStream<Stream>
{
public:
    explicit MortalStream(bool& destroyed) : destroyed_(destroyed) {}
    MortalStream(MortalStream const&) = delete;
    MortalStream& operator=(MortalStream const&) = delete;
    ~MortalStream() override { destroyed_ = true; }

private:
    bool& destroyed_;
};

TEST(StreamTest, DeletingThroughTheBaseDestroysTheConcreteStream)
{
    bool destroyed = false;
    std::unique_ptr<Stream> stream(new MortalStream(destroyed));
    stream.reset();
    EXPECT_TRUE(destroyed);
}

// ---- What every implementation promises in the same words.

// A way for bytes, from one stream to another.
struct Channel
{
    std::unique_ptr<Stream> reader;
    std::unique_ptr<Stream> writer;
    int readingDescriptor;
    int writingDescriptor;
};

template <typename Reader, typename Writer>
Channel MakeChannel(Reader* reader, Writer* writer)
{
    return {std::unique_ptr<Stream>(reader), std::unique_ptr<Stream>(writer), reader->GetDescriptor(),
            writer->GetDescriptor()};
}

Channel MakePipeChannel(std::string const& /*path*/)
{
    test::Ends const ends = test::MakePipe();
    return MakeChannel(new Pipe(ends.reading), new Pipe(ends.writing));
}

Channel MakeSocketChannel(std::string const& /*path*/)
{
    test::Ends const ends = test::MakeSocketPair();
    return MakeChannel(new Socket(ends.reading), new Socket(ends.writing));
}

Channel MakeFileChannel(std::string const& path)
{
    std::unique_ptr<FileHandleStream> writer(new FileHandleStream);
    std::unique_ptr<FileHandleStream> reader(new FileHandleStream);
    writer->Open(path, O_WRONLY | O_CREAT, 0600);
    reader->Open(path, O_RDONLY, 0);
    return MakeChannel(reader.release(), writer.release());
}

struct Kind
{
    char const* name;
    Channel (*make)(std::string const& path);
};

class StreamContractTest : public testing::TestWithParam<Kind>
{
protected:
    StreamContractTest() : channel_(GetParam().make(folder_ / "file")) {}

    Stream& Reader() { return *channel_.reader; }
    Stream& Writer() { return *channel_.writer; }

    void Send(std::string const& bytes)
    {
        EXPECT_EQ(static_cast<int>(bytes.size()), Writer().Write(bytes.data(), static_cast<unsigned>(bytes.size())));
    }

    std::string Receive(unsigned length)
    {
        std::string bytes(length, '?');
        int const count = Reader().Read(&bytes[0], length);
        EXPECT_GE(count, 0);
        bytes.resize(static_cast<std::size_t>(count));
        return bytes;
    }

    test::TemporaryDirectory folder_;
    Channel channel_;
};

INSTANTIATE_TEST_SUITE_P(Streams, StreamContractTest,
                         testing::Values(Kind{"Pipe", &MakePipeChannel}, Kind{"Socket", &MakeSocketChannel},
                                         Kind{"FileHandleStream", &MakeFileChannel}),
                         test::ParameterName());

TEST_P(StreamContractTest, ReadBringsTheBytesThatWereWritten)
{
    std::string const bytes("one\0two\xFF", 8);
    Send(bytes);
    EXPECT_EQ(bytes, Receive(8));
}

TEST_P(StreamContractTest, WriteReturnsTheWholeLength)
{
    EXPECT_EQ(7, Writer().Write("seven b", 7));
}

TEST_P(StreamContractTest, ReadReturnsWhatThereIsWhenThatIsLess)
{
    Send("five!");
    EXPECT_EQ("five!", Receive(100));
}

TEST_P(StreamContractTest, ReadTakesNoMoreThanItIsAskedFor)
{
    Send("five!");
    EXPECT_EQ("fi", Receive(2));
    EXPECT_EQ("ve!", Receive(100));
}

TEST_P(StreamContractTest, ALongTransferIsOneCallToo)
{
    std::string const bytes(100000, 'l');
    // Only a pipe has room for less; nothing else knows the question (EBADF).
    if (fcntl(channel_.writingDescriptor, F_SETPIPE_SZ, 131072) == -1 && errno == EPERM)
        GTEST_SKIP() << "this user has too many pipes to enlarge another one";
    Send(bytes);
    EXPECT_TRUE(bytes == Receive(100000));
}

TEST_P(StreamContractTest, ReadReturnsZeroAtTheEndOfTheData)
{
    Send("last");
    Writer().Close();
    EXPECT_EQ("last", Receive(100));
    EXPECT_EQ("", Receive(100));
    EXPECT_EQ("", Receive(100));
}

TEST_P(StreamContractTest, ALengthOfZeroMovesNothing)
{
    Send("");
    Send("five!");
    EXPECT_EQ("", Receive(0));
    EXPECT_EQ("five!", Receive(100));
}

TEST_P(StreamContractTest, IsDataAvailableStoresAllSixtyFourBitsOfTheCount)
{
    Send("12345");
    unsigned long long count = ULLONG_MAX;
    EXPECT_TRUE(Reader().IsDataAvailable(&count));
    EXPECT_EQ(5u, count);
}

TEST_P(StreamContractTest, IsDataAvailableTakesNothingAway)
{
    Send("12345");
    EXPECT_TRUE(Reader().IsDataAvailable(nullptr));
    EXPECT_EQ("12345", Receive(100));
}

TEST_P(StreamContractTest, IsOpenUntilClosed)
{
    EXPECT_TRUE(Reader().IsOpen());
    Reader().Close();
    EXPECT_FALSE(Reader().IsOpen());
}

TEST_P(StreamContractTest, CloseReleasesTheDescriptor)
{
    Reader().Close();
    EXPECT_EQ(-1, fcntl(channel_.readingDescriptor, F_GETFD));
}

TEST_P(StreamContractTest, DestructionReleasesTheDescriptor)
{
    channel_.reader.reset();
    EXPECT_EQ(-1, fcntl(channel_.readingDescriptor, F_GETFD));
}

TEST_P(StreamContractTest, ClosingAClosedStreamDoesNothing)
{
    Reader().Close();
    EXPECT_NO_THROW(Reader().Close());
    EXPECT_FALSE(Reader().IsOpen());
}

TEST_P(StreamContractTest, FlushTellsWhetherTheStreamIsOpen)
{
    EXPECT_TRUE(Writer().Flush());
    Writer().Close();
    EXPECT_FALSE(Writer().Flush());
}

TEST_P(StreamContractTest, AFailedReadThrowsTheErrnoTextFromOnePlace)
{
    TakenAway const taken(channel_.readingDescriptor);
    Exception const thrown = test::Thrown([&] { Receive(1); });
    EXPECT_EQ(test::ErrnoText(EBADF), thrown.what());
    EXPECT_EQ(1u, thrown.locations.size());
}

TEST_P(StreamContractTest, AFailedWriteThrowsTheErrnoTextFromOnePlace)
{
    TakenAway const taken(channel_.writingDescriptor);
    Exception const thrown = test::Thrown([&] { Writer().Write("x", 1); });
    EXPECT_EQ(test::ErrnoText(EBADF), thrown.what());
    EXPECT_EQ(1u, thrown.locations.size());
}

TEST_P(StreamContractTest, ALengthOfZeroIsACallAllTheSame)
{
    {
        TakenAway const taken(channel_.readingDescriptor);
        EXPECT_THROWS_ERRNO(EBADF, Receive(0));
    }
    TakenAway const taken(channel_.writingDescriptor);
    EXPECT_THROWS_ERRNO(EBADF, Send(""));
}

TEST_P(StreamContractTest, AFailedCloseThrowsAndLeavesTheStreamOpen)
{
    TakenAway const taken(channel_.readingDescriptor);
    EXPECT_THROWS_ERRNO(EBADF, Reader().Close());
    EXPECT_TRUE(Reader().IsOpen());
}

}}}  // namespace tovu::util
