#include "tovu/util/FileStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "Interruptions.h"
#include "PipePair.h"
#include "PrivateMember.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/FileHandleStream.h"

namespace tovu { namespace util { namespace {

typedef RandomSeekStream::Region Region;

constexpr unsigned long long ALL_BITS = 0xFFFFFFFFFFFFFFFFULL;
char const* const SOURCE = "src/util/FileStream.cpp";

static_assert(std::is_convertible<FileStream*, RandomSeekStream*>::value, "the base is public");
static_assert(!std::is_copy_constructible<FileStream>::value, "one owner");
static_assert(!std::is_copy_assignable<FileStream>::value, "one owner");
static_assert(!std::is_convertible<bool, FileStream>::value, "the byte order is said in words");
static_assert(!std::is_nothrow_destructible<FileStream>::value, "the destructor may throw");
static_assert(
    std::is_same<decltype(&FileStream::Open), void (FileStream::*)(std::string const&, std::string const&)>::value, "");

TOVU_PRIVATE_MEMBER(SwapBytes, bool, RandomSeekStream, swapBytes_);
TOVU_PRIVATE_MEMBER(File, std::FILE*, FileStream, file_);

int DescriptorOf(FileStream const& stream)
{
    return fileno(File::Of(stream));
}

// A stream on a file that holds "0123456789", open for reading and writing at position 0.
class FileStreamTest : public testing::Test
{
protected:
    FileStreamTest()
    {
        test::WriteFile(path_, "0123456789");
        stream_.Open(path_, "r+");
    }

    ~FileStreamTest() noexcept override {}

    void TearDown() override { stream_.Close(); }

    // Opens the file anew in another mode.
    void Reopen(std::string const& mode)
    {
        stream_.Close();
        stream_.Open(path_, mode);
    }

    // Opens a named pipe, which has no positions and can make a transfer wait.
    void OpenFifo()
    {
        stream_.Close();
        std::string const path = folder_ / "fifo";
        ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
        stream_.Open(path, "r+");
    }

    std::string Read(unsigned length)
    {
        std::string bytes(length, '?');
        int const count = stream_.Read(&bytes[0], length);
        return bytes.substr(0, static_cast<std::size_t>(count));
    }

    // What another process sees of the file.
    std::string Content() { return test::ReadFile(path_); }

    test::TemporaryDirectory folder_;
    std::string const path_ = folder_ / "file";
    FileStream stream_;
};

// ---- Opening.

TEST_F(FileStreamTest, StartsClosed)
{
    EXPECT_FALSE(FileStream().IsOpen());
    EXPECT_FALSE(FileStream(true).IsOpen());
    EXPECT_EQ(nullptr, File::Of(FileStream()));
}

TEST_F(FileStreamTest, OpenHoldsTheFileOpen)
{
    EXPECT_TRUE(stream_.IsOpen());
    EXPECT_TRUE(test::IsDescriptorOpen(DescriptorOf(stream_)));
    EXPECT_EQ("0123456789", Read(10));
}

TEST_F(FileStreamTest, OpenTakesTheModeAsItIs)
{
    struct Row
    {
        char const* mode;
        char const* content;
    };
    for (Row const& row : {Row{"r+", "ab23456789"}, Row{"a", "ab23456789ab"}, Row{"a+b", "ab23456789abab"},
                           Row{"w", "ab"}, Row{"w+", "ab"}}) {
        Reopen(row.mode);
        EXPECT_EQ(2, stream_.Write("ab", 2));
        stream_.Close();
        EXPECT_EQ(row.content, Content()) << row.mode;
    }
}

TEST_F(FileStreamTest, OpenHandsOnWhatTheLibraryAddsToTheMode)
{
    FileStream other;
    EXPECT_THROWS_ERRNO(EEXIST, other.Open(path_, "wx"));
    EXPECT_THROWS_ERRNO(EINVAL, other.Open(path_, "q"));
    EXPECT_EQ(0, fcntl(DescriptorOf(stream_), F_GETFD) & FD_CLOEXEC);
    Reopen("re");
    EXPECT_EQ(FD_CLOEXEC, fcntl(DescriptorOf(stream_), F_GETFD) & FD_CLOEXEC);
}

TEST_F(FileStreamTest, AnOpenThatFailsThrowsAtLine16)
{
    FileStream closed;
    EXPECT_THROWN_AT(SOURCE, 16, closed.Open(folder_ / "missing", "r"));
    EXPECT_THROWS_ERRNO(ENOENT, closed.Open(folder_ / "missing", "r"));
    EXPECT_FALSE(closed.IsOpen());
}

TEST_F(FileStreamTest, ASecondOpenForgetsTheFirstFileWithoutClosingIt)
{
    test::WriteFile(folder_ / "second", "another");
    EXPECT_EQ(2, stream_.Write("ab", 2));
    std::FILE* const first = File::Of(stream_);
    stream_.Open(folder_ / "second", "r");
    EXPECT_NE(first, File::Of(stream_));
    EXPECT_EQ("another", Read(100));
    EXPECT_TRUE(test::IsDescriptorOpen(fileno(first)));
    EXPECT_EQ("0123456789", Content()) << "its buffer was written";

    EXPECT_EQ(0, std::fclose(first));
    EXPECT_EQ("ab23456789", Content());
}

TEST_F(FileStreamTest, ASecondOpenThatFailsForgetsTheFirstFileToo)
{
    std::FILE* const first = File::Of(stream_);
    EXPECT_THROWN_AT(SOURCE, 16, stream_.Open(folder_ / "missing", "r"));
    EXPECT_FALSE(stream_.IsOpen());
    EXPECT_EQ(nullptr, File::Of(stream_));
    EXPECT_TRUE(test::IsDescriptorOpen(fileno(first)));
    EXPECT_EQ(0, std::fclose(first));
}

TEST_F(FileStreamTest, CanBeOpenedAgainOnceClosed)
{
    stream_.Close();
    test::WriteFile(folder_ / "second", "another");
    stream_.Open(folder_ / "second", "r");
    EXPECT_EQ("another", Read(100));
}

// ---- Reading.

TEST_F(FileStreamTest, ReadMovesThePosition)
{
    EXPECT_EQ("0123", Read(4));
    EXPECT_EQ(4u, stream_.Tell());
    EXPECT_EQ("", Read(0));
    EXPECT_EQ("4567", Read(4));
}

TEST_F(FileStreamTest, AShortReadAtTheEndIsNoError)
{
    EXPECT_EQ("0123456789", Read(100));
    EXPECT_EQ("", Read(100));
    EXPECT_EQ("", Read(1));
}

TEST_F(FileStreamTest, TheEndIsRememberedUntilASeek)
{
    EXPECT_EQ("0123456789", Read(100));
    test::WriteFile(path_, "0123456789 and more");
    EXPECT_EQ("", Read(100));
    stream_.Seek(0, SEEK_CUR);
    EXPECT_EQ(" and more", Read(100));
}

TEST_F(FileStreamTest, AFailedReadThrowsAtLine60)
{
    Reopen("a");
    EXPECT_THROWN_AT(SOURCE, 60, Read(1));
    EXPECT_THROWS_ERRNO(EBADF, Read(1));
}

TEST_F(FileStreamTest, AFolderCanBeOpenedButNotRead)
{
    FileStream folder;
    folder.Open(folder_ / ".", "r");
    EXPECT_THROWN_AT(SOURCE, 60, {
        char byte = 0;
        folder.Read(&byte, 1);
    });
}

TEST_F(FileStreamTest, AnErrorInsideAReadThrowsAlthoughBytesHaveCome)
{
    OpenFifo();
    test::SetNonBlocking(DescriptorOf(stream_), true);
    ASSERT_EQ(2, write(DescriptorOf(stream_), "ab", 2));
    char bytes[5] = "????";
    EXPECT_THROWS_ERRNO(EAGAIN, stream_.Read(bytes, 4));
    EXPECT_STREQ("ab??", bytes);
    EXPECT_THROWN_AT(SOURCE, 60, stream_.Read(bytes, 4));
}

TEST_F(FileStreamTest, AnEarlierErrorDoesNotMakeTheEndOfTheFileOne)
{
    OpenFifo();
    test::SetNonBlocking(DescriptorOf(stream_), true);
    FileStream reader;
    reader.Open(folder_ / "fifo", "r");
    test::SetNonBlocking(DescriptorOf(reader), true);
    char bytes[5] = "????";
    EXPECT_THROWS_ERRNO(EAGAIN, reader.Read(bytes, 4));

    ASSERT_EQ(2, write(DescriptorOf(stream_), "ab", 2));
    stream_.Close();
    EXPECT_EQ(2, reader.Read(bytes, 4));
    EXPECT_STREQ("ab??", bytes);
    EXPECT_EQ(0, reader.Read(bytes, 4));
}

TEST_F(FileStreamTest, ReadIsNotRepeatedAfterAnInterruption)
{
    OpenFifo();
    test::Interruptions const interruptions(1000);
    EXPECT_THROWS_ERRNO(EINTR, Read(1));
}

// ---- Writing and flushing.

TEST_F(FileStreamTest, WriteOverwritesAtThePosition)
{
    stream_.Seek(8, SEEK_SET);
    EXPECT_EQ(4, stream_.Write("abcd", 4));
    EXPECT_EQ(12u, stream_.Tell());
    stream_.Close();
    EXPECT_EQ("01234567abcd", Content());
}

TEST_F(FileStreamTest, WritesStayInTheBufferUntilFlush)
{
    EXPECT_EQ(2, stream_.Write("ab", 2));
    EXPECT_EQ("0123456789", Content());
    EXPECT_TRUE(stream_.Flush());
    EXPECT_EQ("ab23456789", Content());
    EXPECT_EQ(2u, stream_.Tell());
}

TEST_F(FileStreamTest, FlushLeavesTheBuffersOfOthersAlone)
{
    FileStream other;
    other.Open(folder_ / "other", "w");
    EXPECT_EQ(2, stream_.Write("ab", 2));
    EXPECT_TRUE(other.Flush());
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileStreamTest, MovesMoreThanItsBufferHolds)
{
    std::string bytes(1000000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7 / 3);
    EXPECT_EQ(1000000, stream_.Write(bytes.data(), 1000000));
    stream_.Seek(0, SEEK_SET);
    EXPECT_TRUE(bytes == Read(1000000));
}

TEST_F(FileStreamTest, AFailedWriteThrowsAtLine76)
{
    Reopen("r");
    EXPECT_THROWN_AT(SOURCE, 76, stream_.Write("x", 1));
    EXPECT_THROWS_ERRNO(EBADF, stream_.Write("x", 1));
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileStreamTest, AFlushThatFailsHalfwayThrowsAtLine33)
{
    test::ExpectPassesInChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit = {12, 12};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));

        stream_.Seek(0, SEEK_END);
        EXPECT_EQ(6, stream_.Write("abcdef", 6));
        EXPECT_THROWN_AT(SOURCE, 33, stream_.Flush());
        EXPECT_EQ("0123456789ab", Content());
    });
}

// ---- Positions.

TEST_F(FileStreamTest, SeekReturnsZeroAndTellThePosition)
{
    EXPECT_EQ(0u, stream_.Seek(5, SEEK_SET));
    EXPECT_EQ(5u, stream_.Tell());
    EXPECT_EQ(0u, stream_.Seek(2, SEEK_CUR));
    EXPECT_EQ(7u, stream_.Tell());
    EXPECT_EQ(0u, stream_.Seek(-1, SEEK_END));
    EXPECT_EQ(9u, stream_.Tell());
    EXPECT_EQ("9", Read(100));
}

TEST_F(FileStreamTest, SeekGoesPastTheEndWithoutMakingTheFileLonger)
{
    stream_.Seek(1000, SEEK_SET);
    EXPECT_EQ(1000u, stream_.Tell());
    EXPECT_EQ("", Read(1));
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileStreamTest, AFailedSeekThrowsAtLine97)
{
    EXPECT_THROWN_AT(SOURCE, 97, stream_.Seek(-1, SEEK_SET));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.Seek(-1, SEEK_SET));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.Seek(0, 99));
}

TEST_F(FileStreamTest, AFailedSeekKeepsThePosition)
{
    stream_.Seek(4, SEEK_SET);
    EXPECT_THROW(stream_.Seek(-5, SEEK_CUR), Exception);
    EXPECT_EQ(4u, stream_.Tell());
}

TEST_F(FileStreamTest, AFileWithoutPositionsThrows)
{
    OpenFifo();
    EXPECT_THROWN_AT(SOURCE, 90, stream_.Tell());
    EXPECT_THROWS_ERRNO(ESPIPE, stream_.Tell());
    EXPECT_THROWN_AT(SOURCE, 97, stream_.Seek(0, SEEK_SET));
    EXPECT_THROWS_ERRNO(ESPIPE, stream_.Seek(0, SEEK_SET));
    EXPECT_THROWN_AT(SOURCE, 90, stream_.IsDataAvailable(nullptr));
}

TEST_F(FileStreamTest, OffsetsAreCutToThirtyTwoBits)
{
    stream_.Seek(0x100000005LL, SEEK_SET);
    EXPECT_EQ(5u, stream_.Tell());
    stream_.Seek(0x7FFFFFFF00000000LL, SEEK_SET);
    EXPECT_EQ(0u, stream_.Tell());
    stream_.Seek(-0x100000000LL + 7, SEEK_SET);
    EXPECT_EQ(7u, stream_.Tell());
}

TEST_F(FileStreamTest, WhatIsLeftOfAnOffsetIsASignedNumber)
{
    stream_.Seek(5, SEEK_SET);
    stream_.Seek(0xFFFFFFFFLL, SEEK_CUR);
    EXPECT_EQ(4u, stream_.Tell());
    EXPECT_THROWS_ERRNO(EINVAL, stream_.Seek(0x80000000LL, SEEK_SET));
}

// A file of three GiB, most of it a hole.
class LargeFileStreamTest : public FileStreamTest
{
protected:
    LargeFileStreamTest() { EXPECT_EQ(0, truncate64(path_.c_str(), 0xC0000000LL)); }

    // The folder is removed by calls that know no files past 2 GiB on a 32-bit build.
    ~LargeFileStreamTest() noexcept override { EXPECT_EQ(0, truncate64(path_.c_str(), 0)); }
};

TEST_F(LargeFileStreamTest, CanBeOpenedAndRead)
{
    Reopen("r");
    EXPECT_EQ("0123", Read(4));
}

TEST_F(LargeFileStreamTest, TheLastPositionIsOneByteBelowTwoGiB)
{
    EXPECT_EQ(0u, stream_.Seek(0x7FFFFFFF, SEEK_SET));
    EXPECT_EQ(0x7FFFFFFFu, stream_.Tell());
}

TEST_F(LargeFileStreamTest, SeekingPastItThrowsEoverflowAtLine97)
{
    EXPECT_THROWN_AT(SOURCE, 97, stream_.Seek(0, SEEK_END));
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.Seek(0, SEEK_END));
    stream_.Seek(0x7FFFFFFF, SEEK_SET);
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.Seek(1, SEEK_CUR));
}

TEST_F(LargeFileStreamTest, TellThrowsEoverflowAtLine90OnceReadIsPastIt)
{
    stream_.Seek(0x7FFFFFFF, SEEK_SET);
    EXPECT_EQ(std::string(2, '\0'), Read(2));
    EXPECT_THROWN_AT(SOURCE, 90, stream_.Tell());
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.Tell());
}

TEST_F(LargeFileStreamTest, HowMuchIsLeftCannotBeTold)
{
    unsigned long long count = 77;
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.IsDataAvailable(&count));
    EXPECT_EQ(77u, count);
}

TEST_F(LargeFileStreamTest, ASeekBackIsPossible)
{
    EXPECT_THROW(stream_.Seek(0, SEEK_END), Exception);
    EXPECT_EQ(0u, stream_.Seek(3, SEEK_SET));
    EXPECT_EQ(3u, stream_.Tell());
    EXPECT_EQ("3456", Read(4));
}

// ---- What is left to read.

TEST_F(FileStreamTest, IsDataAvailableStoresSizeMinusPosition)
{
    EXPECT_EQ("0123", Read(4));
    unsigned long long count = ALL_BITS;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(6u, count);
    EXPECT_TRUE(stream_.IsDataAvailable(nullptr));
    EXPECT_EQ("456789", Read(100)) << "the position has changed";
}

TEST_F(FileStreamTest, IsDataAvailableCountsWhatWasWritten)
{
    stream_.Seek(0, SEEK_END);
    EXPECT_EQ(5, stream_.Write("abcde", 5));
    stream_.Seek(8, SEEK_SET);
    unsigned long long count = 0;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(7u, count);
}

TEST_F(FileStreamTest, IsDataAvailableIsFalseAtTheEnd)
{
    stream_.Seek(0, SEEK_END);
    unsigned long long count = 77;
    EXPECT_FALSE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
    EXPECT_FALSE(stream_.IsDataAvailable(nullptr));
}

TEST_F(FileStreamTest, IsDataAvailableStaysFalseOnceAReadHasMetTheEnd)
{
    EXPECT_EQ("0123456789", Read(100));
    test::WriteFile(path_, "0123456789 and more");
    unsigned long long count = 77;
    EXPECT_FALSE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);

    stream_.Seek(0, SEEK_CUR);
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(9u, count);
}

TEST_F(FileStreamTest, IsDataAvailableIsNotPutOffByAnEarlierError)
{
    Reopen("r");
    EXPECT_THROW(stream_.Write("x", 1), Exception);
    unsigned long long count = 77;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(10u, count);
}

TEST_F(FileStreamTest, IsDataAvailableWrapsAroundPastTheEnd)
{
    stream_.Seek(12, SEEK_SET);
    unsigned long long count = 77;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(ALL_BITS - 1, count);
}

// A stream whose positions are the test's.
class MeasuredFile : public FileStream
{
public:
    unsigned long long Tell() override
    {
        asked.push_back("Tell");
        unsigned long long const position = positions.front();
        positions.erase(positions.begin());
        return position;
    }

    unsigned long long Seek(long long offset, int whence) override
    {
        asked.push_back("Seek " + std::to_string(offset) + " from " + std::to_string(whence));
        return 0;
    }

    std::vector<unsigned long long> positions;
    std::vector<std::string> asked;
};

TEST_F(FileStreamTest, IsDataAvailableAsksTheVirtualOperations)
{
    MeasuredFile file;
    file.Open(path_, "r");
    file.positions = {0x300000007ULL, 0x500000003ULL, 0x100000001ULL};
    unsigned long long count = 0;
    EXPECT_TRUE(file.IsDataAvailable(&count));
    EXPECT_EQ(0x400000002ULL, count);
    EXPECT_EQ((std::vector<std::string>{"Tell", "Seek 0 from 2", "Tell", "Seek 12884901895 from 0", "Tell"}),
              file.asked);
}

TEST_F(FileStreamTest, IsDataAvailableLooksAtAllSixtyFourBits)
{
    MeasuredFile file;
    file.Open(path_, "r");
    file.positions = {0, 0x100000000ULL, 0};
    EXPECT_TRUE(file.IsDataAvailable(nullptr));
}

TEST_F(FileStreamTest, IsDataAvailableAsksNothingOnceAReadHasMetTheEnd)
{
    MeasuredFile file;
    file.Open("/dev/null", "r");
    char byte = 0;
    EXPECT_EQ(0, file.Read(&byte, 1));
    EXPECT_FALSE(file.IsDataAvailable(nullptr));
    EXPECT_TRUE(file.asked.empty());
}

// ---- Record locks, which it does not have.

TEST_F(FileStreamTest, LockRegionTakesNoLock)
{
    stream_.LockRegion(Region{0, 0}, true);
    stream_.LockRegion(Region{0, 0}, false);
    EXPECT_EQ(0u, stream_.Tell());
    test::ExpectPassesInChild([this] {
        FileHandleStream other;
        other.Open(path_, O_RDWR, 0);
        EXPECT_NO_THROW(other.LockRegion(Region({0, 0}), true));
    });
}

TEST_F(FileStreamTest, LockRegionSucceedsOnARegionThatIsLocked)
{
    FileHandleStream other;
    other.Open(path_, O_RDWR, 0);
    other.LockRegion(Region{4, 2}, true);
    test::ExpectPassesInChild([this] {
        EXPECT_NO_THROW(stream_.LockRegion(Region({4, 2}), true));
        EXPECT_NO_THROW(stream_.LockRegion(Region({4, 2}), false));
    });
}

TEST_F(FileStreamTest, UnlockRegionGivesNoLockBack)
{
    FileHandleStream other;
    other.Open(path_, O_RDWR, 0);
    other.LockRegion(Region{4, 2}, true);
    stream_.UnlockRegion(Region{4, 2});
    test::ExpectPassesInChild([this] {
        FileHandleStream elsewhere;
        elsewhere.Open(path_, O_RDWR, 0);
        EXPECT_THROWS_ERRNO(EAGAIN, elsewhere.LockRegion(Region({4, 2}), true));
    });
}

TEST_F(FileStreamTest, RegionsAreNotLookedAt)
{
    FileStream closed;
    for (FileStream* const stream : {&stream_, &closed}) {
        EXPECT_NO_THROW(stream->LockRegion(Region({ALL_BITS, ALL_BITS}), true));
        EXPECT_NO_THROW(stream->LockRegion(Region({0x80000000ULL, 1}), false));
        EXPECT_NO_THROW(stream->UnlockRegion(Region({ALL_BITS, 1})));
    }
}

// ---- Closing.

TEST_F(FileStreamTest, CloseWritesTheBufferAndReleasesTheFile)
{
    int const descriptor = DescriptorOf(stream_);
    EXPECT_EQ(2, stream_.Write("ab", 2));
    stream_.Close();
    EXPECT_FALSE(stream_.IsOpen());
    EXPECT_EQ(nullptr, File::Of(stream_));
    EXPECT_FALSE(test::IsDescriptorOpen(descriptor));
    EXPECT_EQ("ab23456789", Content());
}

TEST_F(FileStreamTest, AClosedStreamIsNeitherFlushedNorClosed)
{
    FileStream closed;
    EXPECT_FALSE(closed.Flush());
    EXPECT_NO_THROW(closed.Close());
    stream_.Close();
    EXPECT_FALSE(stream_.Flush());
    EXPECT_NO_THROW(stream_.Close());
}

TEST_F(FileStreamTest, DestructionWritesTheBufferAndReleasesTheFile)
{
    std::size_t const before = test::CountDescriptors();
    std::unique_ptr<Stream> stream(new FileStream);
    static_cast<FileStream&>(*stream).Open(path_, "r+");
    EXPECT_EQ(2, stream->Write("ab", 2));
    stream.reset();
    EXPECT_EQ("ab23456789", Content());
    EXPECT_EQ(before, test::CountDescriptors());
}

// A stream on a device without room. It is not destroyed, since it may have failed to close.
class FullDeviceTest : public testing::Test
{
protected:
    FullDeviceTest() { stream_.Open("/dev/full", "w"); }

    // Sends what the buffer still holds to another device, so that the stream can be closed.
    void CloseElsewhere()
    {
        int const other = open("/dev/null", O_WRONLY);
        EXPECT_NE(-1, dup2(other, DescriptorOf(stream_)));
        close(other);
        stream_.Close();
    }

    alignas(FileStream) unsigned char memory_[sizeof(FileStream)];
    FileStream& stream_ = *new (memory_) FileStream;
};

TEST_F(FullDeviceTest, AWriteThatEmptiesTheBufferThrowsAtLine76)
{
    std::string const bytes(100000, 'x');
    EXPECT_EQ(1, stream_.Write("x", 1));
    EXPECT_THROWN_AT(SOURCE, 76, stream_.Write(bytes.data(), 100000));
    EXPECT_THROWS_ERRNO(ENOSPC, stream_.Write(bytes.data(), 100000));
    EXPECT_TRUE(stream_.IsOpen());
    CloseElsewhere();
}

TEST_F(FullDeviceTest, AFailedFlushThrowsAtLine33)
{
    EXPECT_THROWN_AT(SOURCE, 33, stream_.Write("x", 1); stream_.Flush());
    EXPECT_THROWS_ERRNO(ENOSPC, stream_.Write("x", 1); stream_.Flush());
    EXPECT_TRUE(stream_.IsOpen());
    CloseElsewhere();
}

TEST_F(FullDeviceTest, AFailedCloseThrowsAtLine23)
{
    EXPECT_EQ(1, stream_.Write("x", 1));
    EXPECT_THROWN_AT(SOURCE, 23, stream_.Close());
}

TEST_F(FullDeviceTest, AFailedCloseHasTheReasonOfTheDevice)
{
    EXPECT_EQ(1, stream_.Write("x", 1));
    EXPECT_THROWS_ERRNO(ENOSPC, stream_.Close());
}

TEST_F(FullDeviceTest, AFailedCloseKeepsThePointerToTheReleasedFile)
{
    int const descriptor = DescriptorOf(stream_);
    std::FILE* const file = File::Of(stream_);
    EXPECT_EQ(1, stream_.Write("x", 1));
    EXPECT_THROW(stream_.Close(), Exception);
    EXPECT_TRUE(stream_.IsOpen());
    EXPECT_EQ(file, File::Of(stream_));
    EXPECT_FALSE(test::IsDescriptorOpen(descriptor));
}

TEST(FileStreamDestructorTest, LetsTheFailureOfTheCloseOut)
{
    std::size_t const before = test::CountDescriptors();
    auto const destroy = [] {
        FileStream stream;
        stream.Open("/dev/full", "w");
        EXPECT_EQ(1, stream.Write("x", 1));
    };
    EXPECT_THROWN_AT(SOURCE, 23, destroy());
    EXPECT_THROWS_ERRNO(ENOSPC, destroy());
    EXPECT_EQ(before, test::CountDescriptors());
}

TEST(FileStreamDestructorTest, LetsItOutOfADeleteThroughTheBaseToo)
{
    FileStream* const stream = new FileStream;
    stream->Open("/dev/full", "w");
    EXPECT_EQ(1, stream->Write("x", 1));
    RandomSeekStream* const base = stream;
    EXPECT_THROWN_AT(SOURCE, 23, delete base);
}

TEST(FileStreamDestructorTest, LogsNothing)
{
    test::CapturedLog log;
    EXPECT_THROW(FileStream().Open("/missing", "r"), Exception);
    EXPECT_THROW(
        {
            FileStream stream;
            stream.Open("/dev/full", "w");
            stream.Write("x", 1);
        },
        Exception);
    EXPECT_TRUE(log.Take().empty());
}

// ---- Values at offsets.

TEST_F(FileStreamTest, StoresValuesMostSignificantByteFirst)
{
    EXPECT_EQ(8, stream_.WritePtr(1, 0x0102030405060708ULL));
    EXPECT_EQ(0x0102030405060708ULL, stream_.ReadPtr(1));
    stream_.Close();
    EXPECT_EQ(
        "0\x01\x02\x03\x04\x05\x06\x07\x08"
        "9",
        Content());
}

TEST_F(FileStreamTest, StoresValuesInTheChosenByteOrder)
{
    for (bool const swapBytes : {false, true}) {
        FileStream chosen(swapBytes);
        chosen.Open(path_, "r+");
        chosen.WritePtr(1, 0xF1F2030405060708ULL);
        EXPECT_EQ(0xF1F2030405060708ULL, chosen.ReadPtr(1));
        std::string expected = "\xF1\xF2\x03\x04\x05\x06\x07\x08";
        if (Stream::IsBigEndian() == swapBytes)
            std::reverse(expected.begin(), expected.end());
        chosen.Close();
        EXPECT_EQ("0" + expected + "9", Content());
    }
}

TEST_F(FileStreamTest, StoresStringsAtOffsets)
{
    EXPECT_EQ(6, stream_.Writestring(10, "ahead"));
    EXPECT_EQ("ahead", stream_.Readstring(10));
    EXPECT_EQ("789ahead", stream_.Readstring(7));
    EXPECT_EQ(1, stream_.Writestring(3, ""));
    EXPECT_EQ("", stream_.Readstring(3));
    stream_.Close();
    EXPECT_EQ(std::string("012\000456789ahead\0", 16), Content());
}

TEST_F(FileStreamTest, MovesBytesAtOffsets)
{
    char buffer[4] = "";
    EXPECT_EQ(3, stream_.ReadAtOffset(6, buffer, 3));
    EXPECT_STREQ("678", buffer);
    EXPECT_EQ(3, stream_.WriteAtOffset(1, buffer, 3));
    EXPECT_EQ(4u, stream_.Tell());
    EXPECT_EQ(3, stream_.ReadAtOffset(7, buffer, 3));
    stream_.Close();
    EXPECT_EQ("0678456789", Content());
}

// Writes values and strings with one kind of stream and reads them with the other.
template <typename Writer, typename Reader>
void ExpectReadsWhatTheOtherWrote(Writer& writer, Reader& reader)
{
    std::string const text = "volume \xFF";
    EXPECT_EQ(8, writer.WritePtr(0, 0x8000000000000001ULL));
    EXPECT_EQ(9, writer.Writestring(8, text));
    writer.Flush();
    ASSERT_EQ(0x8000000000000001ULL, reader.ReadPtr(0)) << "and the string would have no end";
    EXPECT_EQ(text, reader.Readstring(8));
}

TEST_F(FileStreamTest, SharesItsFilesWithFileHandleStream)
{
    FileHandleStream other;
    other.Open(path_, O_RDWR, 0);
    ExpectReadsWhatTheOtherWrote(stream_, other);
    Reopen("r+");
    other.SetSize(0);
    ExpectReadsWhatTheOtherWrote(other, stream_);
}

// ---- What it holds.

TEST_F(FileStreamTest, KeepsTheFlagAndTheFile)
{
    EXPECT_EQ(!Stream::IsBigEndian(), SwapBytes::Of(stream_));
    EXPECT_FALSE(SwapBytes::Of(FileStream(false)));
    EXPECT_TRUE(SwapBytes::Of(FileStream(true)));
    struct stat64 expected;
    struct stat64 status;
    ASSERT_EQ(0, stat64(path_.c_str(), &expected));
    ASSERT_EQ(0, fstat64(DescriptorOf(stream_), &status));
    EXPECT_EQ(expected.st_ino, status.st_ino);
}

}}}  // namespace tovu::util
