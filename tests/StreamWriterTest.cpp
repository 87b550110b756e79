#include "tovu/util/StreamWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "Descriptors.h"
#include "SeekCalls.h"
#include "TemporaryDirectory.h"
#include "WriterCases.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StreamReader.h"

namespace tovu { namespace util { namespace {

using test::CapturedLog;
using test::ScriptedPipe;
using test::WriterKind;
using test::WriterTest;

static_assert(std::is_constructible<StreamWriter, Stream&>::value, "");
static_assert(!std::is_convertible<Stream&, StreamWriter>::value, "borrowing a stream is said in words");
static_assert(!std::is_polymorphic<StreamWriter>::value, "no virtual operations");
static_assert(std::is_same<decltype(&StreamWriter::Write),
                           unsigned int (StreamWriter::*)(void const*, unsigned int) const>::value,
              "");
static_assert(std::is_same<decltype(&StreamWriter::WriteFile), void (StreamWriter::*)(std::string const&) const>::value,
              "");

char const* const FAILURE = "Error src/util/StreamWriter.cpp:40 write failed.\n";

WriterKind const KIND = {"Stream", FAILURE, [](Stream& stream, void const* buffer, unsigned length) {
                             return StreamWriter(stream).Write(buffer, length);
                         }};

INSTANTIATE_TEST_SUITE_P(Writers, WriterTest, testing::Values(KIND), test::ParameterName());

TEST(StreamWriterTest, AWriterAndAReaderShareASocketOnTwoThreads)
{
    test::Ends const ends = test::MakeSocketPair();
    Socket near(ends.reading);
    Socket far(ends.writing);
    std::string const sent(1024 * 1024, 's');
    std::string echoed(sent.size(), '?');
    unsigned const length = static_cast<unsigned>(sent.size());

    std::thread echo([&] {
        std::vector<char> piece(4096);
        for (unsigned done = 0; done < length; done += 4096) {
            StreamReader(far).Read(piece.data(), 4096);
            StreamWriter(far).Write(piece.data(), 4096);
        }
    });
    std::thread reader([&] { EXPECT_EQ(length, StreamReader(near).Read(&echoed[0], length)); });
    EXPECT_EQ(length, StreamWriter(near).Write(sent.data(), length));
    reader.join();
    echo.join();
    EXPECT_TRUE(sent == echoed);
}

// ---- Whole files.

constexpr unsigned PIECE = 32768;

// The descriptor under which this process has a file open, or -1.
int FindDescriptor(std::string const& path)
{
    struct stat64 wanted;
    EXPECT_EQ(0, stat64(path.c_str(), &wanted));
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        struct stat64 status;
        if (fstat64(descriptor, &status) == 0 && status.st_dev == wanted.st_dev && status.st_ino == wanted.st_ino)
            return descriptor;
    }
    return -1;
}

// Copies files into a pipe that keeps what it is given instead of sending it.
class WriteFileTest : public testing::Test
{
protected:
    WriteFileTest()
    {
        stream_.onWrite = [this](void const* buffer, unsigned length) {
            written_.append(static_cast<char const*>(buffer), length);
            return static_cast<int>(length);
        };
    }

    // Bytes that tell where in the file they stand.
    static std::string Bytes(std::size_t count)
    {
        std::string bytes(count, '\0');
        for (std::size_t index = 0; index < count; ++index)
            bytes[index] = static_cast<char>(index % 251);
        return bytes;
    }

    void MakeFile(std::size_t size) { test::WriteFile(path_, Bytes(size)); }

    void WriteFile() { StreamWriter(stream_).WriteFile(path_); }

    // Does `action` while the write number `number` is made, from 1.
    template <typename Action>
    void DuringWrite(std::size_t number, Action action)
    {
        auto const write = stream_.onWrite;
        stream_.onWrite = [this, number, action, write](void const* buffer, unsigned length) {
            if (stream_.lengths.size() == number)
                action();
            return write(buffer, length);
        };
    }

    test::TemporaryDirectory folder_;
    std::string const path_ = folder_ / "file";
    test::PipePair<Pipe, ScriptedPipe> pipe_;
    ScriptedPipe& stream_ = pipe_.writer;
    std::string written_;
};

struct FileSize
{
    unsigned size;
    std::vector<unsigned> writes;
};

class WriteFileSizeTest : public WriteFileTest, public testing::WithParamInterface<FileSize>
{};

INSTANTIATE_TEST_SUITE_P(Sizes, WriteFileSizeTest,
                         testing::Values(FileSize{0, {}}, FileSize{1, {1}}, FileSize{PIECE - 1, {PIECE - 1}},
                                         FileSize{PIECE, {PIECE}}, FileSize{PIECE + 1, {PIECE, 1}},
                                         FileSize{2 * PIECE, {PIECE, PIECE}},
                                         FileSize{2 * PIECE + 1, {PIECE, PIECE, 1}}),
                         [](testing::TestParamInfo<FileSize> const& row) { return std::to_string(row.param.size); });

TEST_P(WriteFileSizeTest, CopiesTheFileInPieces)
{
    MakeFile(GetParam().size);
    std::size_t const descriptors = test::CountDescriptors();
    WriteFile();
    EXPECT_TRUE(Bytes(GetParam().size) == written_);
    EXPECT_EQ(GetParam().writes, stream_.lengths);
    EXPECT_EQ(descriptors, test::CountDescriptors());
}

TEST_F(WriteFileTest, AnEmptyFileNeedsNoOpenStream)
{
    CapturedLog log;
    MakeFile(0);
    Pipe closed;
    EXPECT_NO_THROW(StreamWriter(closed).WriteFile(path_));
    EXPECT_TRUE(test::TakeLines(log).empty());
}

TEST_F(WriteFileTest, SendsEachPieceUntilAllOfItHasGone)
{
    MakeFile(100);
    int const descriptor = stream_.GetDescriptor();
    stream_.onWrite = [descriptor](void const* buffer, unsigned) {
        return static_cast<int>(write(descriptor, buffer, 1));
    };
    WriteFile();
    EXPECT_EQ(100u, stream_.lengths.size());
    EXPECT_EQ(Bytes(100), test::Drain(pipe_.reader.GetDescriptor()));
}

TEST_F(WriteFileTest, OpensTheFileForReadingOnlyAndLetsChildrenInheritIt)
{
    MakeFile(1);
    int flags = -1;
    int descriptorFlags = -1;
    DuringWrite(1, [&] {
        flags = fcntl(FindDescriptor(path_), F_GETFL);
        descriptorFlags = fcntl(FindDescriptor(path_), F_GETFD);
    });
    WriteFile();
    EXPECT_EQ(O_RDONLY, flags & O_ACCMODE);
    EXPECT_EQ(0, descriptorFlags);
}

TEST_F(WriteFileTest, AFileThatBecomesShorterIsFilledUpFromTheEarlierPiece)
{
    MakeFile(2 * PIECE);
    DuringWrite(1, [&] { EXPECT_EQ(0, truncate(path_.c_str(), PIECE + 10)); });
    WriteFile();
    std::string const first = Bytes(PIECE);
    std::string const lastTen = Bytes(PIECE + 10).substr(PIECE);
    EXPECT_EQ((std::vector<unsigned>{PIECE, PIECE}), stream_.lengths);
    EXPECT_TRUE(first + lastTen + first.substr(10) == written_);
}

TEST_F(WriteFileTest, AFileThatHasNoMoreBytesIsFilledUpWithTheEarlierPiece)
{
    MakeFile(PIECE + 100);
    DuringWrite(1, [&] { EXPECT_EQ(0, truncate(path_.c_str(), 5)); });
    WriteFile();
    EXPECT_TRUE(Bytes(PIECE) + Bytes(100) == written_);
}

TEST_F(WriteFileTest, AFileThatBecomesShorterBeforeTheFirstPieceIsFilledUpWithZeroes)
{
    MakeFile(20);
    WriteFile();
    written_.clear();

    test::SeekCalls seeks;
    seeks.after = [&] {
        if (seeks.calls.size() == 4) {
            EXPECT_EQ(0, truncate(path_.c_str(), 3));
        }
    };
    WriteFile();
    EXPECT_EQ(Bytes(3) + std::string(17, '\0'), written_);
}

TEST_F(WriteFileTest, AFileThatGrowsIsCutAtItsFirstSize)
{
    MakeFile(PIECE + 1);
    DuringWrite(1, [&] { EXPECT_EQ(0, truncate(path_.c_str(), 5 * PIECE)); });
    WriteFile();
    EXPECT_EQ((std::vector<unsigned>{PIECE, 1}), stream_.lengths);
    EXPECT_TRUE(Bytes(PIECE + 1) == written_);
}

TEST_F(WriteFileTest, APieceThatFallsShortIsOnlyLogged)
{
    CapturedLog log;
    MakeFile(PIECE + 1);
    auto const keep = stream_.onWrite;
    stream_.onWrite = [this, keep](void const* buffer, unsigned length) {
        return stream_.lengths.size() == 1 ? 0 : keep(buffer, length);
    };
    WriteFile();
    EXPECT_EQ((std::vector<unsigned>{PIECE, 1}), stream_.lengths);
    EXPECT_EQ(Bytes(PIECE + 1).substr(PIECE), written_);
    EXPECT_EQ(std::vector<std::string>{FAILURE}, test::TakeLines(log));
}

TEST_F(WriteFileTest, AFileThatCannotBeOpenedThrowsAndNothingIsWritten)
{
    CapturedLog log;
    EXPECT_THROWN_AT("src/util/FileHandleStream.cpp", 238, WriteFile());
    EXPECT_THROWS_ERRNO(ENOENT, WriteFile());
    EXPECT_TRUE(stream_.lengths.empty());
    EXPECT_TRUE(test::TakeLines(log).empty());
    EXPECT_EQ(-1, access(path_.c_str(), F_OK)) << "the file was made";
}

TEST_F(WriteFileTest, AFileWithoutASizeThrowsAndIsClosed)
{
    ASSERT_EQ(0, mkfifo(path_.c_str(), 0600));
    FileHandleStream otherSide;
    otherSide.Open(path_, O_RDWR, 0);
    std::size_t const descriptors = test::CountDescriptors();
    EXPECT_THROWS_ERRNO(ESPIPE, WriteFile());
    EXPECT_EQ(descriptors, test::CountDescriptors());
    EXPECT_TRUE(stream_.lengths.empty());
}

TEST_F(WriteFileTest, AReadThatFailsThrows)
{
    MakeFile(PIECE + 1);
    DuringWrite(1, [&] { EXPECT_EQ(0, close(FindDescriptor(path_))); });
    EXPECT_THROWN_AT("src/util/FileHandleStream.cpp", 105, WriteFile());
    EXPECT_EQ(std::vector<unsigned>{PIECE}, stream_.lengths);
}

TEST_F(WriteFileTest, AFileThatCannotBeClosedThrows)
{
    MakeFile(1);
    DuringWrite(1, [&] { EXPECT_EQ(0, close(FindDescriptor(path_))); });
    EXPECT_THROWN_AT("src/util/FileHandleStream.cpp", 29, WriteFile());
}

TEST_F(WriteFileTest, WhatTheStreamThrowsPassesThroughAndTheFileIsClosed)
{
    MakeFile(PIECE + 1);
    std::size_t const descriptors = test::CountDescriptors();
    DuringWrite(2, [] { throw Exception("cable.cpp", 7, "unplugged"); });
    Exception const thrown = test::Thrown([&] { WriteFile(); });
    EXPECT_EQ("unplugged\nTraceback:\nthrown from cable.cpp, line 7", thrown.Report());
    EXPECT_EQ(descriptors, test::CountDescriptors());
}

}}}  // namespace tovu::util
