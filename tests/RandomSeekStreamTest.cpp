#include "tovu/util/RandomSeekStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "ParameterName.h"
#include "Throws.h"

namespace tovu { namespace util { namespace {

typedef RandomSeekStream::Region Region;

// ---- The class itself.

// One operation each: a class without one of the four is abstract, a class with all of them is not.
struct Unpositioned : RandomSeekStream
{
    bool IsOpen() const override { return false; }
    void Close() override {}
    bool Flush() override { return false; }
    bool IsDataAvailable(unsigned long long* /*count*/) override { return false; }
    int Read(void* /*buffer*/, unsigned int /*length*/) override { return 0; }
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return 0; }
};
template <typename Base>
struct WithTell : Base
{
    unsigned long long Tell() override { return 0; }
};
template <typename Base>
struct WithSeek : Base
{
    unsigned long long Seek(long long /*offset*/, int /*whence*/) override { return 0; }
};
template <typename Base>
struct WithLockRegion : Base
{
    void LockRegion(Region const& /*region*/, bool /*exclusive*/) override {}
};
template <typename Base>
struct WithUnlockRegion : Base
{
    void UnlockRegion(Region const& /*region*/) override {}
};

static_assert(std::is_abstract<WithSeek<WithLockRegion<WithUnlockRegion<Unpositioned>>>>::value, "Tell");
static_assert(std::is_abstract<WithTell<WithLockRegion<WithUnlockRegion<Unpositioned>>>>::value, "Seek");
static_assert(std::is_abstract<WithTell<WithSeek<WithUnlockRegion<Unpositioned>>>>::value, "LockRegion");
static_assert(std::is_abstract<WithTell<WithSeek<WithLockRegion<Unpositioned>>>>::value, "UnlockRegion");
static_assert(!std::is_abstract<WithTell<WithSeek<WithLockRegion<WithUnlockRegion<Unpositioned>>>>>::value, "no other");

static_assert(std::is_base_of<Stream, RandomSeekStream>::value, "");
static_assert(std::is_convertible<RandomSeekStream*, Stream*>::value, "the base is public");
static_assert(std::has_virtual_destructor<RandomSeekStream>::value, "");
static_assert(!std::is_nothrow_destructible<RandomSeekStream>::value, "the destructor of a stream may throw");

static_assert(std::is_same<decltype(Region::offset), unsigned long long>::value, "");
static_assert(std::is_same<decltype(Region::length), unsigned long long>::value, "");
static_assert(std::is_trivial<Region>::value && std::is_standard_layout<Region>::value,
              "a Region is a plain structure");

typedef unsigned long long Unsigned;
static_assert(std::is_same<decltype(&RandomSeekStream::Tell), Unsigned (RandomSeekStream::*)()>::value, "");
static_assert(std::is_same<decltype(&RandomSeekStream::Seek), Unsigned (RandomSeekStream::*)(long long, int)>::value,
              "");
static_assert(
    std::is_same<decltype(&RandomSeekStream::LockRegion), void (RandomSeekStream::*)(Region const&, bool)>::value, "");
static_assert(std::is_same<decltype(&RandomSeekStream::UnlockRegion), void (RandomSeekStream::*)(Region const&)>::value,
              "");

// ---- The operations at an offset.

// A file in memory that notes each call. What Seek returns is nonsense.
class MemoryFile : public RandomSeekStream
{
public:
    explicit MemoryFile(bool swapBytes) : RandomSeekStream(swapBytes) {}
    ~MemoryFile() noexcept override {}

    bool IsOpen() const override { return true; }
    void Close() override { calls.push_back("Close"); }
    bool Flush() override
    {
        calls.push_back("Flush");
        return true;
    }
    bool IsDataAvailable(unsigned long long* /*count*/) override
    {
        calls.push_back("IsDataAvailable");
        return false;
    }
    unsigned long long Tell() override
    {
        calls.push_back("Tell");
        return position_;
    }
    void LockRegion(Region const& /*region*/, bool /*exclusive*/) override { calls.push_back("LockRegion"); }
    void UnlockRegion(Region const& /*region*/) override { calls.push_back("UnlockRegion"); }

    unsigned long long Seek(long long offset, int whence) override
    {
        Note("Seek " + std::to_string(offset) + " from " + std::to_string(whence));
        position_ = static_cast<std::size_t>(offset);
        return 0xFFFFFFFFFFFFFFFF;
    }

    int Read(void* buffer, unsigned int length) override
    {
        Note("Read " + std::to_string(length));
        std::string const part = position_ < bytes.size() ? bytes.substr(position_, length) : std::string();
        part.copy(static_cast<char*>(buffer), part.size());
        position_ += part.size();
        return result != 0 ? result : static_cast<int>(part.size());
    }

    int Write(void const* buffer, unsigned int length) override
    {
        Note("Write " + std::to_string(length));
        bytes.resize(std::max<std::size_t>(bytes.size(), position_ + length), '.');
        bytes.replace(position_, length, static_cast<char const*>(buffer), length);
        position_ += length;
        return result != 0 ? result : static_cast<int>(length);
    }

    std::string bytes;
    std::vector<std::string> calls;
    int result = 0;                // what Read and Write return, when not 0
    std::function<void()> onCall;  // runs in Seek, Read and Write

private:
    void Note(std::string const& call)
    {
        calls.push_back(call);
        if (onCall)
            onCall();
    }

    std::size_t position_ = 0;
};

typedef std::vector<std::string> Calls;

class RandomSeekStreamTest : public testing::Test
{
protected:
    MemoryFile native_{false};
    MemoryFile swapped_{true};
};

TEST_F(RandomSeekStreamTest, ReadAtOffsetReadsFromThere)
{
    native_.bytes = "0123456789";
    char buffer[4] = "";
    EXPECT_EQ(3, native_.ReadAtOffset(5, buffer, 3));
    EXPECT_STREQ("567", buffer);
}

TEST_F(RandomSeekStreamTest, WriteAtOffsetWritesThere)
{
    native_.bytes = "0123456789";
    EXPECT_EQ(3, native_.WriteAtOffset(5, "abc", 3));
    EXPECT_EQ("01234abc89", native_.bytes);
}

TEST_F(RandomSeekStreamTest, AnOffsetReachesSeekWithAllItsBits)
{
    native_.onCall = [] { throw std::runtime_error("no further"); };
    EXPECT_THROW(native_.ReadAtOffset(0x123456789ABCDEFULL, nullptr, 0), std::runtime_error);
    EXPECT_THROW(native_.ReadAtOffset(0xFFFFFFFFFFFFFFFEULL, nullptr, 0), std::runtime_error);
    EXPECT_EQ((Calls{"Seek 81985529216486895 from 0", "Seek -2 from 0"}), native_.calls);
}

// ---- 64-bit values.

struct Stored
{
    unsigned long long value;
    char const* mostSignificantFirst;
};

Stored const STORED[] = {
    {0x0102030405060708ULL, "\x01\x02\x03\x04\x05\x06\x07\x08"},
    {0xFFFEFDFCFBFAF9F8ULL, "\xFF\xFE\xFD\xFC\xFB\xFA\xF9\xF8"},
    {1ULL, "\0\0\0\0\0\0\0\x01"},
    {0x8000000000000000ULL, "\x80\0\0\0\0\0\0\0"},
    {0ULL, "\0\0\0\0\0\0\0\0"},
};

// The eight bytes of a value as a stream stores them.
std::string Expected(Stored const& stored, bool swapBytes)
{
    std::string bytes(stored.mostSignificantFirst, 8);
    if (Stream::IsBigEndian() == swapBytes)
        std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

TEST_F(RandomSeekStreamTest, WritePtrStoresEightBytesInTheChosenOrder)
{
    for (Stored const& stored : STORED) {
        EXPECT_EQ(8, native_.WritePtr(3, stored.value));
        EXPECT_EQ("..." + Expected(stored, false), native_.bytes);
        EXPECT_EQ(8, swapped_.WritePtr(3, stored.value));
        EXPECT_EQ("..." + Expected(stored, true), swapped_.bytes);
    }
}

TEST_F(RandomSeekStreamTest, ReadPtrGivesTheValueBack)
{
    for (Stored const& stored : STORED) {
        native_.bytes = "..." + Expected(stored, false);
        EXPECT_EQ(stored.value, native_.ReadPtr(3));
        swapped_.bytes = "..." + Expected(stored, true);
        EXPECT_EQ(stored.value, swapped_.ReadPtr(3));
    }
}

TEST_F(RandomSeekStreamTest, ReadPtrDoesNotLookAtWhatReadReturned)
{
    native_.bytes = Expected(STORED[0], false);
    native_.result = -1;
    EXPECT_EQ(STORED[0].value, native_.ReadPtr(0));
}

TEST_F(RandomSeekStreamTest, ReadPtrPastTheEndIsNoError)
{
    EXPECT_NO_THROW(native_.ReadPtr(100));
    EXPECT_EQ((Calls{"Seek 100 from 0", "Read 8"}), native_.calls);
}

TEST_F(RandomSeekStreamTest, ReadPtrOfATornValueKeepsTheBytesThatCame)
{
    native_.bytes = Expected(STORED[0], false).substr(0, 3);
    unsigned long long const value = native_.ReadPtr(0);
    EXPECT_EQ(0, std::memcmp(&value, native_.bytes.data(), 3));
}

// ---- Strings.

TEST_F(RandomSeekStreamTest, WritestringAppendsOneNul)
{
    EXPECT_EQ(6, native_.Writestring(2, "hello"));
    EXPECT_EQ(std::string("..hello\0", 8), native_.bytes);
}

TEST_F(RandomSeekStreamTest, AnEmptyStringIsOneNul)
{
    EXPECT_EQ(1, native_.Writestring(4, ""));
    EXPECT_EQ(std::string("....\0", 5), native_.bytes);
    EXPECT_EQ("", native_.Readstring(4));
}

TEST_F(RandomSeekStreamTest, WritestringWritesANulWithinTheTextAsWell)
{
    EXPECT_EQ(6, native_.Writestring(0, std::string("ab\0cd", 5)));
    EXPECT_EQ(std::string("ab\0cd\0", 6), native_.bytes);
    EXPECT_EQ("ab", native_.Readstring(0));
}

TEST_F(RandomSeekStreamTest, StringsAreNotTouchedByTheByteOrder)
{
    std::string const text = "\xFF long enough to need the heap, and \x01\x7F\x80 too";
    for (MemoryFile* const file : {&native_, &swapped_}) {
        EXPECT_EQ(static_cast<int>(text.size() + 1), file->Writestring(9, text));
        EXPECT_EQ(text, file->Readstring(9));
    }
}

TEST_F(RandomSeekStreamTest, ReadstringReadsByteByByteUpToTheNul)
{
    native_.bytes = std::string("ab\0cd", 5);
    EXPECT_EQ("ab", native_.Readstring(0));
    EXPECT_EQ((Calls{"Seek 0 from 0", "Read 1", "Read 1", "Read 1"}), native_.calls);
}

TEST_F(RandomSeekStreamTest, ReadstringAppendsTheLastByteAgainWhileReadBringsNothing)
{
    native_.bytes = "ab";
    native_.onCall = [&] {
        if (native_.calls.size() == 7)
            native_.bytes += std::string(1, '\0');
    };
    EXPECT_EQ("abbbb", native_.Readstring(0));
}

TEST_F(RandomSeekStreamTest, ReadstringWithoutANulEndsOnlyByAnException)
{
    native_.bytes = "ab";
    native_.onCall = [&] {
        if (native_.calls.size() == 10000)
            throw std::runtime_error("enough");
    };
    EXPECT_THROW(native_.Readstring(0), std::runtime_error);
    EXPECT_EQ(10000u, native_.calls.size());
}

TEST_F(RandomSeekStreamTest, ReadstringDoesNotLookAtWhatReadReturned)
{
    native_.bytes = std::string("ab\0", 3);
    native_.result = -1;
    EXPECT_EQ("ab", native_.Readstring(0));
}

// ---- What all six have in common.

struct OffsetOperation
{
    char const* name;
    Calls calls;
    int (*run)(RandomSeekStream& stream);
};

OffsetOperation const OFFSET_OPERATIONS[] = {
    {"ReadAtOffset",
     {"Seek 1 from 0", "Read 2"},
     [](RandomSeekStream& stream) {
         char buffer[2];
         return stream.ReadAtOffset(1, buffer, 2);
     }},
    {"WriteAtOffset",
     {"Seek 1 from 0", "Write 2"},
     [](RandomSeekStream& stream) { return stream.WriteAtOffset(1, "ab", 2); }},
    {"ReadPtr", {"Seek 1 from 0", "Read 8"}, [](RandomSeekStream& stream) { return stream.ReadPtr(1) == 0 ? 0 : 1; }},
    {"WritePtr", {"Seek 1 from 0", "Write 8"}, [](RandomSeekStream& stream) { return stream.WritePtr(1, 9); }},
    {"Writestring",
     {"Seek 1 from 0", "Write 4"},
     [](RandomSeekStream& stream) { return stream.Writestring(1, "abc"); }},
    {"Readstring",
     {"Seek 1 from 0", "Read 1"},
     [](RandomSeekStream& stream) { return static_cast<int>(stream.Readstring(1).size()); }},
};

class OffsetOperationTest : public testing::TestWithParam<OffsetOperation>
{
protected:
    // Runs the operation on a stream whose call number `call` throws, and expects that to come out as it is.
    void ExpectPassesOnWhatIsThrownIn(std::size_t call)
    {
        file_.onCall = [this, call] {
            if (file_.calls.size() == call)
                throw Exception("disk.cpp", 3, "spindle");
        };
        Exception const thrown = test::Thrown([&] { GetParam().run(file_); });
        EXPECT_STREQ("spindle", thrown.what());
        EXPECT_EQ(1u, thrown.locations.size());
        EXPECT_EQ(call, file_.calls.size());
    }

    MemoryFile file_{true};
};

INSTANTIATE_TEST_SUITE_P(Operations, OffsetOperationTest, testing::ValuesIn(OFFSET_OPERATIONS), test::ParameterName());

TEST_P(OffsetOperationTest, SeeksFromTheStartAndTransfersOnce)
{
    file_.bytes = std::string(9, '\0');
    GetParam().run(file_);
    EXPECT_EQ(GetParam().calls, file_.calls);
}

TEST_P(OffsetOperationTest, PassesOnWhatSeekThrows)
{
    ExpectPassesOnWhatIsThrownIn(1);
}

TEST_P(OffsetOperationTest, PassesOnWhatTheTransferThrows)
{
    ExpectPassesOnWhatIsThrownIn(2);
}

TEST_F(RandomSeekStreamTest, ReturnsWhatTheTransferReturned)
{
    native_.result = -7;
    char byte = 0;
    EXPECT_EQ(-7, native_.ReadAtOffset(0, &byte, 1));
    EXPECT_EQ(-7, native_.WriteAtOffset(0, &byte, 1));
    EXPECT_EQ(-7, native_.WritePtr(0, 1));
    EXPECT_EQ(-7, native_.Writestring(0, "x"));
}

}}}  // namespace tovu::util
