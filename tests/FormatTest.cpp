#include "tovu/util/Format.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Interposition.h"
#include "Sanitizers.h"

namespace tovu { namespace util { namespace {

// A byte that the calling thread's isprint accepts beyond those of the locale, as that of a Latin-1 locale does; and
// the lowest and highest value it was asked about.
struct Printable
{
    int added;
    int lowest;
    int highest;
};
thread_local Printable printable = {-1, 0, 0};

}}}  // namespace tovu::util

extern "C" int isprint(int character) noexcept
{
    tovu::util::Printable& printable = tovu::util::printable;
    if (character == printable.added)
        return 1;
    printable.lowest = std::min(printable.lowest, character);
    printable.highest = std::max(printable.highest, character);
    return tovu::test::NextFunction<int(int)>("isprint")(character);
}

namespace tovu { namespace util { namespace {

// Longer than any first buffer, and of no repeating pattern that a shifted copy would match.
std::string TextOfSize(std::size_t size)
{
    std::string text;
    for (unsigned i = 0; text.size() < size; ++i)
        text += std::to_string(i) + ",";
    text.resize(size);
    return text;
}

TEST(FormatStringTest, FormatsAsPrintfDoes)
{
    EXPECT_EQ("volume 7 is 93% full (0x1f)", FormatString("%s %d is %u%% full (0x%x)", "volume", 7, 93u, 31u));
}

TEST(FormatStringTest, EmptyFormatGivesAnEmptyText)
{
    std::string const empty;
    EXPECT_EQ("", FormatString("%s", empty.c_str()));
}

TEST(FormatStringTest, PlainTextNeedsNoArguments)
{
    EXPECT_EQ("plain", FormatString("plain"));
}

TEST(FormatStringTest, KeepsAZeroByteInTheMiddle)
{
    EXPECT_EQ(std::string("a\0b", 3), FormatString("a%cb", '\0'));
}

class FormatStringSizeTest : public testing::TestWithParam<std::size_t>
{};

TEST_P(FormatStringSizeTest, TextComesOutWhole)
{
    std::string const text = TextOfSize(GetParam());
    EXPECT_EQ(text, FormatString("%s", text.c_str()));
}

// Each pass starts from the first argument again: those behind the long one must not have been used up.
TEST_P(FormatStringSizeTest, ArgumentsBehindALongOneKeepTheirValues)
{
    std::string const text = TextOfSize(GetParam());
    EXPECT_EQ("1 " + text + " 2 -3 4.5 end 6 7 8",
              FormatString("%d %s %u %lld %.1f %s %d %d %d", 1, text.c_str(), 2u, -3LL, 4.5, "end", 6, 7, 8));
}

INSTANTIATE_TEST_SUITE_P(AroundTheBufferAndItsDoubles, FormatStringSizeTest,
                         testing::Values(1u, 2047u, 2048u, 2049u, 4095u, 4096u, 4097u, 100000u));

std::string CallHelperTwice(char const* format, ...) __attribute__((format(printf, 1, 2)));
std::string CallHelperTwice(char const* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string const first = FormatStringHelper(format, arguments);
    std::string const second = FormatStringHelper(format, arguments);
    va_end(arguments);
    return first + "|" + second;
}

TEST(FormatStringHelperTest, LeavesTheCallersListUsable)
{
    EXPECT_EQ("volume 7|volume 7", CallHelperTwice("%s %d", "volume", 7));
}

TEST(FormatStringHelperTest, LeavesTheCallersListUsableAfterSeveralPasses)
{
    std::string const text = TextOfSize(5000);
    EXPECT_EQ(text + "7|" + text + "7", CallHelperTwice("%s%d", text.c_str(), 7));
}

TEST(FormatStringTest, ConversionThatFailsEndsInBadAlloc)
{
    if (test::MEMORY_IS_WATCHED || test::RunsUnderMemcheck())
        GTEST_SKIP() << "what watches the memory does not let it run out";

    test::ExpectPassesInChild([] {
        rlimit const limit = {256u << 20, 256u << 20};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        std::setlocale(LC_ALL, "C");
        EXPECT_THROW(FormatString("%ls", L"\u20ac"), std::bad_alloc);
        EXPECT_EQ("still works", FormatString("still %s", "works"));
    });
}

TEST(FormatStringTest, ThreadsDoNotDisturbEachOther)
{
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([i, &results] {
            for (int round = 0; round < 100; ++round)
                results[i] = FormatString("%zu %s", i, TextOfSize(3000 + i).c_str());
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(std::to_string(i) + " " + TextOfSize(3000 + i), results[i]);
}

class HexFormatTest : public testing::Test
{
protected:
    ~HexFormatTest() override { printable.added = -1; }

    // The bytes 0x00, 0x01, 0x02 and so on.
    static std::string Bytes(unsigned count)
    {
        std::string bytes;
        for (unsigned i = 0; i < count; ++i)
            bytes += static_cast<char>(i);
        return bytes;
    }

    static std::string Dump(std::string const& bytes)
    {
        return HexFormatBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
    }
};

TEST_F(HexFormatTest, FullLineHas66Characters)
{
    std::string const line = Dump("0123456789abcdef");
    EXPECT_EQ("30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n", line);
    EXPECT_EQ(66u, line.size());
}

TEST_F(HexFormatTest, SeventeenthByteStandsUnderTheOthers)
{
    EXPECT_EQ("30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n67 " + std::string(46, ' ') + "g\n",
              Dump("0123456789abcdefg"));
}

TEST_F(HexFormatTest, TwoFullLinesHaveNoThird)
{
    std::string const line = Dump("0123456789abcdef");
    EXPECT_EQ(line + line, Dump("0123456789abcdef0123456789abcdef"));
}

class HexFormatPaddingTest : public HexFormatTest, public testing::WithParamInterface<unsigned>
{};

TEST_P(HexFormatPaddingTest, TextColumnStandsAt49)
{
    unsigned const count = GetParam();
    std::string const line = Dump(std::string(count, 'x'));

    std::string expected;
    for (unsigned i = 0; i < count; ++i)
        expected += "78 ";
    expected.resize(49, ' ');
    EXPECT_EQ(expected + std::string(count, 'x') + "\n", line);
}

INSTANTIATE_TEST_SUITE_P(LinesOfEveryLength, HexFormatPaddingTest, testing::Range(1u, 17u));

TEST_F(HexFormatTest, EveryByteHasTwoLowerCaseDigits)
{
    std::string const dump = Dump(Bytes(256));
    ASSERT_EQ(16u * 66u, dump.size());
    for (unsigned i = 0; i < 256; ++i) {
        char expected[4];
        std::snprintf(expected, sizeof(expected), "%02x ", i);
        EXPECT_EQ(expected, dump.substr(i / 16 * 66 + i % 16 * 3, 3));
    }
}

TEST_F(HexFormatTest, UnprintableBytesShowAsPoints)
{
    std::string const dump = Dump(Bytes(256));
    for (unsigned i = 0; i < 256; ++i) {
        char const expected = i >= 0x20 && i <= 0x7e ? static_cast<char>(i) : '.';
        EXPECT_EQ(expected, dump[i / 16 * 66 + 49 + i % 16]) << "byte " << i;
    }
}

TEST_F(HexFormatTest, TextColumnFollowsTheLocale)
{
    printable.added = 0xe9;
    EXPECT_EQ("e8 e9 " + std::string(43, ' ') + ".\xe9\n", Dump("\xe8\xe9"));
}

// A plain char is negative from 0x80 on, where isprint has no answer.
TEST_F(HexFormatTest, LocaleIsAskedAboutUnsignedValues)
{
    printable = {-1, 0, 0};
    Dump(Bytes(256));
    EXPECT_EQ(0, printable.lowest);
    EXPECT_EQ(255, printable.highest);
}

TEST_F(HexFormatTest, NothingGivesAnEmptyText)
{
    EXPECT_EQ("", HexFormatBuffer(nullptr, 16));
    EXPECT_EQ("", HexFormatBuffer(nullptr, 0));
    EXPECT_EQ("", HexFormatBuffer("x", 0));
    EXPECT_EQ("", HexFormatstring(""));
}

TEST_F(HexFormatTest, ReadsNoFurtherThanTheLength)
{
    EXPECT_EQ(Dump("ab"), HexFormatBuffer("abcdef", 2));
}

TEST_F(HexFormatTest, LongBufferHasOneLineForEach16Bytes)
{
    EXPECT_EQ(66u * (100000u / 16u), Dump(TextOfSize(100000)).size());
}

TEST_F(HexFormatTest, StringFormIsTheSameDump)
{
    std::string const bytes = Bytes(40);
    EXPECT_EQ(Dump(bytes), HexFormatstring(bytes));
    EXPECT_EQ(2u * 66u + 24u + 25u + 8u + 1u, HexFormatstring(bytes).size()) << "zero bytes end nothing";
}

TEST(ConversionTest, BoolIsTrueOrFalse)
{
    EXPECT_EQ("true", bool2string(true));
    EXPECT_EQ("false", bool2string(false));
}

class CodecTest : public testing::TestWithParam<std::string>
{};

TEST_P(CodecTest, LeavesTextUnchanged)
{
    EXPECT_EQ(GetParam(), Encodestring(GetParam()));
    EXPECT_EQ(GetParam(), Decodestring(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Texts, CodecTest,
                         testing::Values("", "plain", "<a b=\"%41&amp;\">\n", std::string("\0\xff\x80 x\0", 6)));

}}}  // namespace tovu::util
