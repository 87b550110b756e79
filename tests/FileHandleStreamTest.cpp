#include "tovu/util/FileHandleStream.h"

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
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "FreshProcess.h"
#include "Interruptions.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "PipePair.h"
#include "PrivateMember.h"
#include "SeekCalls.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "ThrowingClose.h"
#include "Throws.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

using test::CapturedLog;
using test::TakenAway;

typedef RandomSeekStream::Region Region;

constexpr unsigned long long ALL_BITS = 0xFFFFFFFFFFFFFFFFULL;
char const* const SOURCE = "src/util/FileHandleStream.cpp";

static_assert(std::is_convertible<FileHandleStream*, RandomSeekStream*>::value, "the base is public");
static_assert(!std::is_copy_constructible<FileHandleStream>::value, "one owner");
static_assert(!std::is_copy_assignable<FileHandleStream>::value, "one owner");
static_assert(!std::is_convertible<bool, FileHandleStream>::value, "the byte order is said in words");
static_assert(std::is_nothrow_destructible<FileHandleStream>::value, "the destructor never throws");
static_assert(std::is_same<decltype(&FileHandleStream::PlatformSeek),
                           unsigned long long (FileHandleStream::*)(long long, int)>::value,
              "");

// A stream on a file that holds "0123456789", open for reading and writing at position 0.
class FileHandleStreamTest : public testing::Test
{
protected:
    FileHandleStreamTest()
    {
        test::WriteFile(path_, "0123456789");
        stream_.Open(path_, O_RDWR, 0);
    }

    // The folder is removed by calls that know no files past 2 GiB on a 32-bit build.
    ~FileHandleStreamTest() override { EXPECT_EQ(0, truncate64(path_.c_str(), 0)); }

    // Opens the file anew in another direction.
    void Reopen(int flags)
    {
        stream_.Close();
        stream_.Open(path_, flags, 0);
    }

    // Opens a named pipe, which has no positions and can make a transfer wait.
    void OpenFifo()
    {
        stream_.Close();
        std::string const path = folder_ / "fifo";
        ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
        stream_.Open(path, O_RDWR, 0);
    }

    std::string Read(unsigned length)
    {
        std::string bytes(length, '?');
        int const count = stream_.Read(&bytes[0], length);
        return bytes.substr(0, static_cast<std::size_t>(count));
    }

    std::string Content() { return test::ReadFile(path_); }

    test::TemporaryDirectory folder_;
    std::string const path_ = folder_ / "file";
    FileHandleStream stream_;
};

// ---- Opening.

TEST_F(FileHandleStreamTest, StartsClosedWithoutAPath)
{
    FileHandleStream const fresh;
    EXPECT_FALSE(fresh.IsOpen());
    EXPECT_EQ(-1, fresh.GetDescriptor());
    EXPECT_EQ("", fresh.GetPath());
}

TEST_F(FileHandleStreamTest, OpenKeepsTheDescriptorAndThePath)
{
    EXPECT_TRUE(stream_.IsOpen());
    EXPECT_TRUE(test::IsDescriptorOpen(stream_.GetDescriptor()));
    EXPECT_EQ(path_, stream_.GetPath());
}

TEST_F(FileHandleStreamTest, OpenTakesTheFlagsAsTheyAre)
{
    struct Row
    {
        int flags;
        char const* content;
    };
    for (Row const& row : {Row{O_WRONLY, "ab23456789"}, Row{O_WRONLY | O_APPEND, "ab23456789ab"},
                           Row{O_WRONLY | O_TRUNC, "ab"}, Row{O_RDWR | O_CREAT, "ab"}}) {
        Reopen(row.flags);
        EXPECT_EQ(2, stream_.Write("ab", 2));
        EXPECT_EQ(row.content, Content());
    }
    stream_.Close();
    EXPECT_THROWS_ERRNO(EEXIST, stream_.Open(path_, O_WRONLY | O_CREAT | O_EXCL, 0600));
}

TEST_F(FileHandleStreamTest, OpenHandsOnTheModeForAFileThatItMakes)
{
    mode_t const before = umask(0);
    FileHandleStream made;
    made.Open(folder_ / "made", O_WRONLY | O_CREAT, 0640);
    umask(before);

    struct stat64 status;
    ASSERT_EQ(0, fstat64(made.GetDescriptor(), &status));
    EXPECT_EQ(mode_t{0640}, status.st_mode & 07777);
}

TEST_F(FileHandleStreamTest, ChildrenInheritTheDescriptorUnlessAskedOtherwise)
{
    EXPECT_EQ(0, fcntl(stream_.GetDescriptor(), F_GETFD) & FD_CLOEXEC);
    Reopen(O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(FD_CLOEXEC, fcntl(stream_.GetDescriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(FileHandleStreamTest, AnOpenThatFailsThrowsAtLine238)
{
    FileHandleStream closed;
    EXPECT_THROWN_AT(SOURCE, 238, closed.Open(folder_ / "missing", O_RDONLY, 0));
    EXPECT_THROWS_ERRNO(ENOENT, closed.Open(folder_ / "missing", O_RDONLY, 0));
}

TEST_F(FileHandleStreamTest, AnOpenThatFailsLeavesTheStreamClosedWithoutAPath)
{
    FileHandleStream closed;
    EXPECT_THROW(closed.Open(folder_ / "missing", O_RDONLY, 0), Exception);
    EXPECT_FALSE(closed.IsOpen());
    EXPECT_EQ("", closed.GetPath());
}

TEST_F(FileHandleStreamTest, OpeningTwiceThrowsTheCurrentErrnoAtLine234)
{
    EXPECT_THROWN_AT(SOURCE, 234, stream_.Open(path_, O_RDONLY, 0));
    EXPECT_THROWS_ERRNO(EDOM, errno = EDOM; stream_.Open("", O_RDONLY, 0));
}

TEST_F(FileHandleStreamTest, OpeningTwiceLeavesTheStreamAsItWas)
{
    int const descriptor = stream_.GetDescriptor();
    std::size_t const descriptors = test::CountDescriptors();
    EXPECT_THROW(stream_.Open(folder_ / "other", O_WRONLY | O_CREAT, 0600), Exception);
    EXPECT_EQ(descriptor, stream_.GetDescriptor());
    EXPECT_EQ(path_, stream_.GetPath());
    EXPECT_EQ("0123", Read(4));
    EXPECT_EQ(descriptors, test::CountDescriptors());
    EXPECT_EQ(-1, access((folder_ / "other").c_str(), F_OK));
}

TEST_F(FileHandleStreamTest, CanBeOpenedAgainOnceClosed)
{
    stream_.Close();
    test::WriteFile(folder_ / "second", "another");
    stream_.Open(folder_ / "second", O_RDONLY, 0);
    EXPECT_EQ(folder_ / "second", stream_.GetPath());
    EXPECT_EQ("another", Read(100));
}

// ---- Reading, writing, flushing.

TEST_F(FileHandleStreamTest, ReadMovesThePosition)
{
    EXPECT_EQ("0123", Read(4));
    EXPECT_EQ(4u, stream_.Tell());
    EXPECT_EQ("456789", Read(100));
    EXPECT_EQ("", Read(100));
}

TEST_F(FileHandleStreamTest, AFailedReadThrowsAtLine105)
{
    Reopen(O_WRONLY);
    EXPECT_THROWN_AT(SOURCE, 105, Read(1));
    EXPECT_THROWS_ERRNO(EBADF, Read(1));
}

TEST_F(FileHandleStreamTest, ReadIsNotRepeatedAfterAnInterruption)
{
    OpenFifo();
    test::Interruptions const interruptions(1000);
    EXPECT_THROWS_ERRNO(EINTR, Read(1));
}

TEST_F(FileHandleStreamTest, WriteOverwritesAtThePosition)
{
    stream_.Seek(8, SEEK_SET);
    EXPECT_EQ(4, stream_.Write("abcd", 4));
    EXPECT_EQ("01234567abcd", Content());
}

TEST_F(FileHandleStreamTest, AFailedWriteThrowsAtLine115)
{
    Reopen(O_RDONLY);
    EXPECT_THROWN_AT(SOURCE, 115, stream_.Write("x", 1));
    EXPECT_THROWS_ERRNO(EBADF, stream_.Write("x", 1));
}

TEST_F(FileHandleStreamTest, AFullDeviceIsTheReasonThatIsThrown)
{
    FileHandleStream full;
    full.Open("/dev/full", O_WRONLY, 0);
    EXPECT_THROWN_AT(SOURCE, 115, full.Write("x", 1));
    EXPECT_THROWS_ERRNO(ENOSPC, full.Write("x", 1));
    EXPECT_TRUE(full.IsOpen());
}

TEST_F(FileHandleStreamTest, AShortWriteThrowsWhateverErrnoHolds)
{
    test::ExpectPassesInChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit = {12, 12};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));

        stream_.Seek(0, SEEK_END);
        EXPECT_THROWN_AT(SOURCE, 115, errno = EDOM; stream_.Write("abcdef", 6));
        EXPECT_EQ("0123456789ab", Content());

        stream_.Seek(10, SEEK_SET);
        EXPECT_THROWS_ERRNO(EDOM, errno = EDOM; stream_.Write("abcdef", 6));
        EXPECT_THROWS_ERRNO(EFBIG, stream_.Write("abcdef", 6));
    });
}

TEST_F(FileHandleStreamTest, WriteIsNotRepeatedAfterAnInterruption)
{
    OpenFifo();
    test::FillUp(stream_.GetDescriptor());
    test::Interruptions const interruptions(1000);
    EXPECT_THROWS_ERRNO(EINTR, stream_.Write("x", 1));
}

TEST_F(FileHandleStreamTest, FlushKeepsTheFileAndThePosition)
{
    stream_.Seek(4, SEEK_SET);
    EXPECT_TRUE(stream_.Flush());
    EXPECT_EQ(4u, stream_.Tell());
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileHandleStreamTest, AFailedFlushThrowsAtLine45)
{
    FileHandleStream device;
    device.Open("/dev/full", O_WRONLY, 0);
    EXPECT_THROWN_AT(SOURCE, 45, device.Flush());
    EXPECT_THROWS_ERRNO(EINVAL, device.Flush());
    EXPECT_TRUE(device.IsOpen());
}

// ---- Positions.

TEST_F(FileHandleStreamTest, SeekReturnsTheNewPosition)
{
    EXPECT_EQ(7u, stream_.Seek(7, SEEK_SET));
    EXPECT_EQ(5u, stream_.Seek(-2, SEEK_CUR));
    EXPECT_EQ(9u, stream_.Seek(-1, SEEK_END));
    EXPECT_EQ(9u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, SeekGoesPastTheEndWithoutMakingTheFileLonger)
{
    EXPECT_EQ(1000u, stream_.Seek(1000, SEEK_SET));
    EXPECT_EQ("", Read(1));
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileHandleStreamTest, PlatformSeekReturnsTheNewPosition)
{
    EXPECT_EQ(6u, stream_.PlatformSeek(6, SEEK_SET));
    EXPECT_EQ(6u, stream_.PlatformSeek(0, SEEK_CUR));
}

TEST_F(FileHandleStreamTest, EachSeekIsOneSystemCallWithWhenceUnchanged)
{
    test::SeekCalls seeks;
    stream_.Seek(3, SEEK_SET);
    stream_.Seek(-1, SEEK_CUR);
    stream_.Seek(0, SEEK_END);
    stream_.Tell();
    EXPECT_THROW(stream_.Seek(1, 99), Exception);
    EXPECT_EQ((std::vector<std::string>{"3 from 0", "-1 from 1", "0 from 2", "0 from 1", "1 from 99"}), seeks.calls);
}

TEST_F(FileHandleStreamTest, AFailedSeekThrowsAtLine303)
{
    EXPECT_THROWN_AT(SOURCE, 303, stream_.Seek(-1, SEEK_SET));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.Seek(-1, SEEK_SET));
    EXPECT_THROWN_AT(SOURCE, 303, stream_.PlatformSeek(0, 99));
}

TEST_F(FileHandleStreamTest, AFailedSeekKeepsThePosition)
{
    stream_.Seek(4, SEEK_SET);
    EXPECT_THROW(stream_.Seek(-5, SEEK_CUR), Exception);
    EXPECT_EQ(4u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, AFileWithoutPositionsThrowsAtLine303)
{
    OpenFifo();
    EXPECT_THROWN_AT(SOURCE, 303, stream_.Tell());
    EXPECT_THROWS_ERRNO(ESPIPE, stream_.Tell());
    EXPECT_THROWS_ERRNO(ESPIPE, stream_.GetSize());
    EXPECT_THROWS_ERRNO(ESPIPE, stream_.IsDataAvailable(nullptr));
}

TEST_F(FileHandleStreamTest, OffsetsAreCutToThirtyTwoBits)
{
    EXPECT_EQ(5u, stream_.Seek(0x100000005LL, SEEK_SET));
    EXPECT_EQ(0u, stream_.Seek(0x7FFFFFFF00000000LL, SEEK_SET));
    EXPECT_EQ(7u, stream_.Seek(-0x100000000LL + 7, SEEK_SET));
}

TEST_F(FileHandleStreamTest, WhatIsLeftOfAnOffsetIsASignedNumber)
{
    stream_.Seek(5, SEEK_SET);
    EXPECT_EQ(4u, stream_.Seek(0xFFFFFFFFLL, SEEK_CUR));
    EXPECT_EQ(8u, stream_.Seek(0xFFFFFFFELL, SEEK_END));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.Seek(0x80000000LL, SEEK_SET));
}

TEST_F(FileHandleStreamTest, TheLastPositionIsOneByteBelowTwoGiB)
{
    EXPECT_EQ(0x7FFFFFFFu, stream_.Seek(0x7FFFFFFF, SEEK_SET));
    EXPECT_EQ(0x7FFFFFFFu, stream_.Tell());
    EXPECT_THROWN_AT(SOURCE, 303, stream_.Seek(1, SEEK_CUR));
}

TEST_F(FileHandleStreamTest, APositionPastTwoGiBThrowsEoverflow)
{
    ASSERT_EQ(0, truncate64(path_.c_str(), 0xC0000000LL));
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.Seek(0, SEEK_END));
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.Tell());
    EXPECT_EQ(3u, stream_.Seek(3, SEEK_SET));
}

TEST_F(FileHandleStreamTest, AFilePastTwoGiBCanBeOpened)
{
    ASSERT_EQ(0, truncate64(path_.c_str(), 0x180000000LL));
    EXPECT_NO_THROW(Reopen(O_RDONLY));
    EXPECT_EQ("0123", Read(4));
    EXPECT_THROWS_ERRNO(EOVERFLOW, stream_.GetSize());
}

// ---- Sizes.

TEST_F(FileHandleStreamTest, GetSizeLeavesThePositionWhereItWas)
{
    stream_.Seek(4, SEEK_SET);
    EXPECT_EQ(10u, stream_.GetSize());
    EXPECT_EQ(4u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, GetSizeSeeksFourTimes)
{
    stream_.Seek(4, SEEK_SET);
    test::SeekCalls seeks;
    stream_.GetSize();
    EXPECT_EQ((std::vector<std::string>{"0 from 1", "0 from 2", "0 from 1", "4 from 0"}), seeks.calls);
}

TEST_F(FileHandleStreamTest, GetSizeKnowsTheLargestFile)
{
    ASSERT_EQ(0, truncate64(path_.c_str(), 0x7FFFFFFFLL));
    EXPECT_EQ(0x7FFFFFFFu, stream_.GetSize());
    EXPECT_EQ(0u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, SetSizeCutsTheFileAndKeepsThePositionBeyondTheEnd)
{
    stream_.Seek(8, SEEK_SET);
    stream_.SetSize(3);
    EXPECT_EQ("012", Content());
    EXPECT_EQ(8u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, SetSizeExtendsTheFileWithZeroes)
{
    stream_.SetSize(13);
    EXPECT_EQ(std::string("0123456789\0\0\0", 13), Content());
    EXPECT_EQ(0u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, SetSizeIsCutToThirtyTwoBits)
{
    stream_.SetSize(0x100000005ULL);
    EXPECT_EQ(5u, stream_.GetSize());
    stream_.SetSize(0xFFFFFFFF00000000ULL);
    EXPECT_EQ(0u, stream_.GetSize());
}

TEST_F(FileHandleStreamTest, SetSizeRefusesTwoGiB)
{
    EXPECT_THROWS_ERRNO(EINVAL, stream_.SetSize(0x80000000ULL));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.SetSize(ALL_BITS));
    EXPECT_EQ("0123456789", Content());
}

TEST_F(FileHandleStreamTest, AFailedSetSizeThrowsAtLine272)
{
    Reopen(O_RDONLY);
    EXPECT_THROWN_AT(SOURCE, 272, stream_.SetSize(3));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.SetSize(3));
    EXPECT_EQ("0123456789", Content());
}

// ---- What is left to read.

TEST_F(FileHandleStreamTest, IsDataAvailableStoresSizeMinusPosition)
{
    stream_.Seek(4, SEEK_SET);
    unsigned long long count = ALL_BITS;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(6u, count);
    EXPECT_EQ(4u, stream_.Tell());
}

TEST_F(FileHandleStreamTest, IsDataAvailableIsFalseAtTheEnd)
{
    stream_.Seek(0, SEEK_END);
    unsigned long long count = 77;
    EXPECT_FALSE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
    EXPECT_FALSE(stream_.IsDataAvailable(nullptr));
}

TEST_F(FileHandleStreamTest, IsDataAvailableWrapsAroundPastTheEnd)
{
    stream_.Seek(12, SEEK_SET);
    unsigned long long count = 77;
    EXPECT_TRUE(stream_.IsDataAvailable(&count));
    EXPECT_EQ(ALL_BITS - 1, count);
}

// A file whose size and position are the test's.
class MeasuredFile : public FileHandleStream
{
public:
    unsigned long long GetSize() override
    {
        asked += "GetSize ";
        return size;
    }
    unsigned long long Tell() override
    {
        asked += "Tell ";
        return position;
    }

    unsigned long long size = 0;
    unsigned long long position = 0;
    std::string asked;
};

TEST_F(FileHandleStreamTest, IsDataAvailableAsksTheVirtualOperationsTheSizeFirst)
{
    MeasuredFile file;
    file.size = 0x500000003ULL;
    file.position = 0x100000001ULL;
    unsigned long long count = 0;
    EXPECT_TRUE(file.IsDataAvailable(&count));
    EXPECT_EQ(0x400000002ULL, count);
    EXPECT_EQ("GetSize Tell ", file.asked);
}

TEST_F(FileHandleStreamTest, IsDataAvailableLooksAtAllSixtyFourBits)
{
    MeasuredFile file;
    file.size = 0x100000000ULL;
    EXPECT_TRUE(file.IsDataAvailable(nullptr));
}

// ---- A closed stream.

TEST_F(FileHandleStreamTest, AClosedStreamAnswersWithoutAnError)
{
    FileHandleStream closed;
    char byte = 'x';
    unsigned long long count = 77;
    EXPECT_EQ(0, closed.Read(&byte, 1));
    EXPECT_EQ('x', byte);
    EXPECT_EQ(0, closed.Write(&byte, 1));
    EXPECT_EQ(ALL_BITS, closed.Tell());
    EXPECT_EQ(ALL_BITS, closed.Seek(0, SEEK_END));
    EXPECT_EQ(ALL_BITS, closed.Seek(-1, 99));
    EXPECT_EQ(0u, closed.GetSize());
    EXPECT_TRUE(closed.IsDataAvailable(&count));
    EXPECT_EQ(1u, count);
    EXPECT_FALSE(closed.Flush());
    EXPECT_NO_THROW(closed.SetSize(5));
    EXPECT_NO_THROW(closed.Close());
}

TEST_F(FileHandleStreamTest, PlatformSeekDoesNotLookWhetherTheStreamIsOpen)
{
    FileHandleStream closed;
    EXPECT_THROWN_AT(SOURCE, 303, closed.PlatformSeek(0, SEEK_CUR));
    EXPECT_THROWS_ERRNO(EBADF, closed.PlatformSeek(0, SEEK_CUR));
}

TEST_F(FileHandleStreamTest, AClosedStreamMakesNoSystemCallForItsPosition)
{
    FileHandleStream closed;
    test::SeekCalls seeks;
    closed.Tell();
    closed.Seek(1, SEEK_SET);
    closed.GetSize();
    EXPECT_TRUE(seeks.calls.empty());
}

// ---- Closing.

TEST_F(FileHandleStreamTest, CloseForgetsTheDescriptorAndThePath)
{
    int const descriptor = stream_.GetDescriptor();
    stream_.Close();
    EXPECT_FALSE(stream_.IsOpen());
    EXPECT_FALSE(test::IsDescriptorOpen(descriptor));
    EXPECT_EQ(-1, stream_.GetDescriptor());
    EXPECT_EQ("", stream_.GetPath());
}

TEST_F(FileHandleStreamTest, AFailedCloseThrowsAtLine29)
{
    TakenAway const taken(stream_.GetDescriptor());
    EXPECT_THROWN_AT(SOURCE, 29, stream_.Close());
    EXPECT_THROWS_ERRNO(EBADF, stream_.Close());
}

TEST_F(FileHandleStreamTest, AFailedCloseLeavesTheStreamOpenWithItsPath)
{
    int const descriptor = stream_.GetDescriptor();
    {
        TakenAway const taken(descriptor);
        EXPECT_THROW(stream_.Close(), Exception);
    }
    EXPECT_EQ(descriptor, stream_.GetDescriptor());
    EXPECT_EQ(path_, stream_.GetPath());
    EXPECT_EQ("0123", Read(4));
}

TEST_F(FileHandleStreamTest, CloseDoesNotFlush)
{
    class FlushedFile : public FileHandleStream
    {
    public:
        bool Flush() override { return flushed = true; }
        bool flushed = false;
    };
    FlushedFile file;
    file.Open(path_, O_RDWR, 0);
    file.Close();
    EXPECT_FALSE(file.flushed);
}

// ---- Record locks, as another process sees them.

class RecordLockTest : public FileHandleStreamTest
{
protected:
    // The first lock that is in the way of an exclusive one on any byte: "exclusive 4+2", "none".
    std::string LockSeenElsewhere()
    {
        test::ChildResult const seen = test::RunInChild([this] {
            FileHandleStream other;
            other.Open(path_, O_RDWR, 0);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            ASSERT_EQ(0, fcntl(other.GetDescriptor(), F_GETLK, &lock));
            if (lock.l_type == F_UNLCK)
                std::printf("none");
            else
                std::printf("%s %lld+%lld", lock.l_type == F_WRLCK ? "exclusive" : "shared",
                            static_cast<long long>(lock.l_start), static_cast<long long>(lock.l_len));
        });
        EXPECT_EQ(0, seen.code) << seen.output;
        return seen.output;
    }

    // Runs `action` in another process on a stream of its own.
    void Elsewhere(std::function<void(FileHandleStream& other)> const& action)
    {
        test::ExpectPassesInChild([&] {
            FileHandleStream other;
            other.Open(path_, O_RDWR, 0);
            action(other);
        });
    }
};

TEST_F(RecordLockTest, AnExclusiveLockCoversTheRegion)
{
    stream_.LockRegion(Region{4, 2}, true);
    EXPECT_EQ("exclusive 4+2", LockSeenElsewhere());
}

TEST_F(RecordLockTest, ASharedLockCoversTheRegion)
{
    stream_.LockRegion(Region{4, 2}, false);
    EXPECT_EQ("shared 4+2", LockSeenElsewhere());
}

TEST_F(RecordLockTest, RegionsAreCountedFromTheStartOfTheFile)
{
    stream_.Seek(7, SEEK_SET);
    stream_.LockRegion(Region{1, 1}, true);
    EXPECT_EQ("exclusive 1+1", LockSeenElsewhere());
    EXPECT_EQ(7u, stream_.Tell());
}

TEST_F(RecordLockTest, UnlockRegionGivesTheRegionBack)
{
    stream_.LockRegion(Region{4, 2}, true);
    stream_.UnlockRegion(Region{4, 2});
    EXPECT_EQ("none", LockSeenElsewhere());
}

TEST_F(RecordLockTest, UnlockRegionMayGiveBackAPart)
{
    stream_.LockRegion(Region{4, 4}, true);
    stream_.UnlockRegion(Region{4, 3});
    EXPECT_EQ("exclusive 7+1", LockSeenElsewhere());
}

TEST_F(RecordLockTest, UnlockRegionOfAFreeRegionIsNoError)
{
    EXPECT_NO_THROW(stream_.UnlockRegion(Region{4, 2}));
}

TEST_F(RecordLockTest, ARegionOfAnotherProcessIsRefusedAtOnceAtLine202)
{
    stream_.LockRegion(Region{4, 2}, true);
    Elsewhere([](FileHandleStream& other) {
        EXPECT_THROWN_AT(SOURCE, 202, other.LockRegion(Region({5, 10}), true));
        EXPECT_THROWS_ERRNO(EAGAIN, other.LockRegion(Region({5, 10}), true));
        EXPECT_THROWS_ERRNO(EAGAIN, other.LockRegion(Region({0, 5}), false));
    });
}

TEST_F(RecordLockTest, NeighbouringRegionsDoNotMeet)
{
    stream_.LockRegion(Region{4, 2}, true);
    Elsewhere([](FileHandleStream& other) {
        EXPECT_NO_THROW(other.LockRegion(Region({0, 4}), true));
        EXPECT_NO_THROW(other.LockRegion(Region({6, 1}), true));
    });
}

TEST_F(RecordLockTest, SharedLocksShareButKeepExclusiveOnesOut)
{
    stream_.LockRegion(Region{4, 2}, false);
    Elsewhere([](FileHandleStream& other) {
        EXPECT_NO_THROW(other.LockRegion(Region({4, 2}), false));
        EXPECT_THROWS_ERRNO(EAGAIN, other.LockRegion(Region({4, 2}), true));
    });
}

TEST_F(RecordLockTest, LocksOfOneProcessDoNotMeet)
{
    FileHandleStream second;
    second.Open(path_, O_RDWR, 0);
    stream_.LockRegion(Region{4, 2}, true);
    EXPECT_NO_THROW(second.LockRegion(Region({4, 2}), true));
}

TEST_F(RecordLockTest, ALengthOfZeroReachesPastEveryEnd)
{
    stream_.LockRegion(Region{4, 0}, true);
    EXPECT_EQ("exclusive 4+0", LockSeenElsewhere());
}

TEST_F(RecordLockTest, OffsetAndLengthAreCutToThirtyTwoBits)
{
    stream_.LockRegion(Region{0x700000004ULL, 0xF00000002ULL}, true);
    EXPECT_EQ("exclusive 4+2", LockSeenElsewhere());
    stream_.UnlockRegion(Region{0x900000004ULL, 0x300000002ULL});
    EXPECT_EQ("none", LockSeenElsewhere());
}

TEST_F(RecordLockTest, ALengthWithTheSignBitMeansTheBytesBefore)
{
    stream_.LockRegion(Region{8, 0xFFFFFFFDULL}, true);
    EXPECT_EQ("exclusive 5+3", LockSeenElsewhere());
}

TEST_F(RecordLockTest, AnOffsetWithTheSignBitIsRefused)
{
    EXPECT_THROWS_ERRNO(EINVAL, stream_.LockRegion(Region({0x80000000ULL, 1}), true));
    EXPECT_EQ("none", LockSeenElsewhere());
}

TEST_F(RecordLockTest, AFailedUnlockThrowsAtLine213)
{
    EXPECT_THROWN_AT(SOURCE, 213, stream_.UnlockRegion(Region({0x80000000ULL, 1})));
    EXPECT_THROWS_ERRNO(EINVAL, stream_.UnlockRegion(Region({0x80000000ULL, 1})));
}

TEST_F(RecordLockTest, TheSystemRefusesAClosedStream)
{
    FileHandleStream closed;
    EXPECT_THROWN_AT(SOURCE, 202, closed.LockRegion(Region({0, 1}), true));
    EXPECT_THROWS_ERRNO(EBADF, closed.LockRegion(Region({0, 1}), false));
    EXPECT_THROWN_AT(SOURCE, 213, closed.UnlockRegion(Region({0, 1})));
    EXPECT_THROWS_ERRNO(EBADF, closed.UnlockRegion(Region({0, 1})));
}

TEST_F(RecordLockTest, EachKindNeedsItsDirection)
{
    Reopen(O_RDONLY);
    EXPECT_NO_THROW(stream_.LockRegion(Region({0, 1}), false));
    EXPECT_THROWS_ERRNO(EBADF, stream_.LockRegion(Region({0, 1}), true));
    Reopen(O_WRONLY);
    EXPECT_NO_THROW(stream_.LockRegion(Region({0, 1}), true));
    EXPECT_THROWS_ERRNO(EBADF, stream_.LockRegion(Region({0, 1}), false));
}

// ---- Values at offsets.

TEST_F(FileHandleStreamTest, StoresValuesMostSignificantByteFirst)
{
    EXPECT_EQ(8, stream_.WritePtr(1, 0x0102030405060708ULL));
    EXPECT_EQ(
        "0\x01\x02\x03\x04\x05\x06\x07\x08"
        "9",
        Content());
    EXPECT_EQ(0x0102030405060708ULL, stream_.ReadPtr(1));
}

TEST_F(FileHandleStreamTest, StoresValuesInTheChosenByteOrder)
{
    for (bool const swapBytes : {false, true}) {
        FileHandleStream chosen(swapBytes);
        chosen.Open(path_, O_RDWR, 0);
        chosen.WritePtr(1, 0x0102030405060708ULL);
        std::string expected = "\x01\x02\x03\x04\x05\x06\x07\x08";
        if (Stream::IsBigEndian() == swapBytes)
            std::reverse(expected.begin(), expected.end());
        EXPECT_EQ("0" + expected + "9", Content());
        EXPECT_EQ(0x0102030405060708ULL, chosen.ReadPtr(1));
    }
}

TEST_F(FileHandleStreamTest, StoresStringsAtOffsets)
{
    EXPECT_EQ(6, stream_.Writestring(10, "ahead"));
    EXPECT_EQ(std::string("0123456789ahead\0", 16), Content());
    EXPECT_EQ("ahead", stream_.Readstring(10));
    EXPECT_EQ("789ahead", stream_.Readstring(7));
}

TEST_F(FileHandleStreamTest, MovesBytesAtOffsets)
{
    char buffer[4] = "";
    EXPECT_EQ(3, stream_.ReadAtOffset(6, buffer, 3));
    EXPECT_STREQ("678", buffer);
    EXPECT_EQ(3, stream_.WriteAtOffset(1, buffer, 3));
    EXPECT_EQ("0678456789", Content());
}

// ---- What it holds.

TOVU_PRIVATE_MEMBER(SwapBytes, bool, RandomSeekStream, swapBytes_);

TEST_F(FileHandleStreamTest, ByteOrderIsBigEndianUnlessSaidOtherwise)
{
    EXPECT_EQ(!Stream::IsBigEndian(), SwapBytes::Of(stream_));
    EXPECT_FALSE(SwapBytes::Of(FileHandleStream(false)));
    EXPECT_TRUE(SwapBytes::Of(FileHandleStream(true)));
}

// ---- Destruction.

TEST_F(FileHandleStreamTest, DestructorLogsAFailedClose)
{
    CapturedLog log;
    std::unique_ptr<FileHandleStream> stream(new FileHandleStream);
    stream->Open(path_, O_RDONLY, 0);
    close(stream->GetDescriptor());
    stream.reset();
    EXPECT_EQ((std::vector<std::string>{"Error src/util/FileHandleStream.cpp:18 Bad file descriptor\nTraceback:\n"
                                        "thrown from src/util/FileHandleStream.cpp, line 29\n"}),
              test::TakeLines(log));
}

TEST_F(FileHandleStreamTest, DestructorIsSilentBelowTheThreshold)
{
    test::ExpectPassesWithIdleLog([this] {
        {
            FileHandleStream stream;
            stream.Open(path_, O_RDONLY, 0);
            close(stream.GetDescriptor());
        }
        LoggerMgr::Instance().Log(1, "here", 1, "the first line in the queue");
        EXPECT_EQ("the first line in the queue", LoggerMgr::Instance().Deq().second);
    });
}

TEST_F(FileHandleStreamTest, NothingElseOfItLogs)
{
    CapturedLog log;
    EXPECT_THROW(stream_.Open(path_, O_RDONLY, 0), Exception);
    EXPECT_THROW(stream_.Seek(-1, SEEK_SET), Exception);
    stream_.Close();
    EXPECT_TRUE(test::TakeLines(log).empty());
}

class FileHandleStreamDestructorTest : public testing::TestWithParam<test::CaughtKind>
{};

INSTANTIATE_TEST_SUITE_P(Caught, FileHandleStreamDestructorTest, testing::ValuesIn(test::CaughtKinds()),
                         test::ParameterName());

TEST_P(FileHandleStreamDestructorTest, LogsWhatItCatchesAndGoesOn)
{
    CapturedLog log;
    std::unique_ptr<FileHandleStream> stream(new FileHandleStream);
    stream->Open("/dev/null", O_RDWR, 0);
    test::ThrowingClose const failure(stream->GetDescriptor(), GetParam().thrower);
    stream.reset();
    EXPECT_EQ(std::vector<std::string>{"Error src/util/FileHandleStream.cpp:18 " + GetParam().logged() + "\n"},
              test::TakeLines(log));
}

}}}  // namespace tovu::util
