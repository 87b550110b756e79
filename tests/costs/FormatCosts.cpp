#include "tovu/util/Format.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

TEST(FormatCosts, AShortTextTakesItsOwnBytesAndNoMore)
{
    AllocationCounter const counter;
    std::string const text = FormatString("volume %s has %d of %d KiB", "photos", 1234567, 7654321);

    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(text.size() + 1, counter.Bytes());
}

// The buffers of the passes, each of twice the size of the one before, and the text.
TEST(FormatCosts, ALongTextTakesTheBuffersOfItsPassesAndItsOwnBytes)
{
    std::string const name(5000, 'n');
    AllocationCounter const counter;
    std::string const text = FormatString("volume %s", name.c_str());

    EXPECT_EQ(3U, counter.Blocks());
    EXPECT_EQ(4096 + 8192 + text.size() + 1, counter.Bytes());
}

// What the stream begins with, the buffer of the stream, and the text: each has the size of the dump.
TEST(FormatCosts, ADumpTakesThreeTimesItsOwnBytesWhateverItsSize)
{
    for (std::size_t size : {1U, 16U, 1000U, 100000U}) {
        std::string const bytes(size, 'b');
        AllocationCounter const counter;
        std::string const dump = HexFormatstring(bytes);

        EXPECT_EQ(3U, counter.Blocks()) << size;
        EXPECT_EQ(3 * (dump.size() + 1), counter.Bytes()) << size;
        EXPECT_EQ(static_cast<std::ptrdiff_t>(dump.size() + 1), counter.HeldBytes()) << size;
    }
}

TEST(FormatCosts, WordsForABoolTakeNothing)
{
    AllocationCounter const counter;
    bool2string(true);
    bool2string(false);
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(FormatCosts, TextThatIsPassedThroughIsCopiedOnce)
{
    std::string const text = "a text that does not fit into a string itself";
    AllocationCounter const counter;
    Encodestring(text);
    Decodestring(text);
    EXPECT_EQ(2U, counter.Blocks());
    EXPECT_EQ(2 * (text.size() + 1), counter.Bytes());
}

}}}  // namespace tovu::util
