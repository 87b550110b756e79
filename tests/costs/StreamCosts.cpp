#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>

#include "Cost.h"
#include "PipePair.h"
#include "TemporaryDirectory.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/StreamReader.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/StreamWriter.h"

// What the streams, the selector and those who move whole buffers take from the allocator.

namespace tovu { namespace util { namespace {

using test::Cost;
using test::CostOf;
using test::CostOfText;
using test::NO_COST;
using test::PipePair;

class FileCosts : public testing::Test
{
protected:
    test::TemporaryDirectory const directory_;
    std::string const path_ = directory_ / "a-file-with-a-name-that-does-not-fit-into-a-string-object";
};

TEST(PipeCosts, APipeTakesNothing)
{
    Cost const cost = CostOf([] {
        PipePair<> pipe;
        unsigned long long waiting = 0;
        char byte = 'b';
        EXPECT_EQ(1, pipe.writer.Write(&byte, 1));
        EXPECT_TRUE(pipe.reader.IsDataAvailable(&waiting));
        EXPECT_EQ(1, pipe.reader.Read(&byte, 1));
        pipe.writer.Close();
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST(StreamSelectorCosts, AWaitTakesNothing)
{
    PipePair<> pipe;
    Cost const cost = CostOf([&] {
        StreamSelector selector;
        selector.AddStreamForReading(pipe.reader);
        selector.AddStreamForWriting(pipe.writer);
        StreamSelector::TimeVal noTime(0, 0);
        EXPECT_TRUE(selector.Select(noTime));
        EXPECT_FALSE(selector.IsStreamReadyForReading(pipe.reader));
        EXPECT_TRUE(selector.IsStreamReadyForWriting(pipe.writer));
        EXPECT_TRUE(selector.Select());
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST(StreamWriterCosts, WholeBuffersTakeNothing)
{
    PipePair<> pipe;
    char bytes[4096] = "";
    Cost const cost = CostOf([&] {
        EXPECT_EQ(sizeof(bytes), StreamWriter(pipe.writer).Write(bytes, sizeof(bytes)));
        EXPECT_EQ(sizeof(bytes), MessageWriter(pipe.writer).Write(bytes, sizeof(bytes)));
        EXPECT_EQ(sizeof(bytes), StreamReader(pipe.reader).Read(bytes, sizeof(bytes)));
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST_F(FileCosts, AFileIsCopiedWithOneBufferWhateverItsSize)
{
    constexpr std::size_t BUFFER = 32768;
    for (std::size_t const size : {std::size_t(0), std::size_t(1), BUFFER, BUFFER + 1}) {
        test::WriteFile(path_, std::string(size, 'b'));
        PipePair<> pipe;
        Cost const cost = CostOf([&] { StreamWriter(pipe.writer).WriteFile(path_); });
        EXPECT_EQ(CostOfText(path_) + (Cost{1, BUFFER}), cost) << size;
        EXPECT_EQ(size, test::Drain(pipe.reader.GetDescriptor()).size());
    }
}

TEST_F(FileCosts, AnOpenFileTakesItsPath)
{
    FileHandleStream file;
    EXPECT_EQ(CostOfText(path_), CostOf([&] { file.Open(path_, O_RDWR | O_CREAT, 0600); }));
    FileHandleStream shortNamed;
    std::string const shortPath = "/dev/null";
    EXPECT_EQ(NO_COST, CostOf([&] { shortNamed.Open(shortPath, O_RDONLY, 0); }));
}

TEST_F(FileCosts, TransfersOfAFileTakeNothing)
{
    FileHandleStream file;
    file.Open(path_, O_RDWR | O_CREAT, 0600);
    Cost const cost = CostOf([&] {
        char bytes[8] = "";
        RandomSeekStream::Region const region = {0, sizeof(bytes)};
        file.LockRegion(region, true);
        EXPECT_EQ(8, file.Write(bytes, sizeof(bytes)));
        EXPECT_EQ(0U, file.Seek(0, SEEK_SET));
        EXPECT_TRUE(file.IsDataAvailable(nullptr));
        EXPECT_EQ(8, file.Read(bytes, sizeof(bytes)));
        EXPECT_EQ(8U, file.Tell());
        file.SetSize(4);
        EXPECT_EQ(4U, file.GetSize());
        file.UnlockRegion(region);
        file.Close();
    });
    EXPECT_EQ(NO_COST, cost);
}

// The buffer is the C library's own, and not taken from operator new.
TEST_F(FileCosts, ABufferedFileTakesNothing)
{
    Cost const cost = CostOf([&] {
        static std::string const mode = "w+";
        FileStream file;
        file.Open(path_, mode);
        char bytes[8] = "";
        EXPECT_EQ(8, file.Write(bytes, sizeof(bytes)));
        EXPECT_TRUE(file.Flush());
        EXPECT_EQ(0U, file.Seek(0, SEEK_SET));
        EXPECT_TRUE(file.IsDataAvailable(nullptr));
        EXPECT_EQ(8, file.Read(bytes, sizeof(bytes)));
        EXPECT_EQ(8U, file.Tell());
        file.Close();
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST_F(FileCosts, ValuesAtOffsetsTakeNothing)
{
    std::string const text(100, 't');
    FileHandleStream file;
    file.Open(path_, O_RDWR | O_CREAT, 0600);
    Cost const cost = CostOf([&] {
        EXPECT_EQ(8, file.WritePtr(0, 1));
        EXPECT_EQ(1U, file.ReadPtr(0));
        EXPECT_EQ(101, file.Writestring(8, text));
        char bytes[4];
        EXPECT_EQ(4, file.ReadAtOffset(8, bytes, sizeof(bytes)));
        EXPECT_EQ(4, file.WriteAtOffset(8, bytes, sizeof(bytes)));
    });
    EXPECT_EQ(NO_COST, cost);
}

// What a string takes that grows by one character at a time: nobody knows the length before the NUL has come.
Cost CostOfGrowing(std::size_t length)
{
    return CostOf([length] {
        std::string text;
        for (std::size_t i = 0; i < length; ++i)
            text += 't';
    });
}

TEST_F(FileCosts, ATextAtAnOffsetTakesWhatItsGrowthTakes)
{
    FileHandleStream file;
    file.Open(path_, O_RDWR | O_CREAT, 0600);
    for (std::size_t const length : {std::size_t(0), std::size_t(15), std::size_t(16), std::size_t(1000)}) {
        std::string const text(length, 't');
        file.Writestring(0, text);
        EXPECT_EQ(CostOfGrowing(length), CostOf([&] { EXPECT_TRUE(file.Readstring(0) == text); })) << length;
    }
}

}}}  // namespace tovu::util
