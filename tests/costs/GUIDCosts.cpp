#include "tovu/util/GUID.h"

#include <gtest/gtest.h>

#include <string>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

static_assert(sizeof(GUID) == 16, "its bytes and nothing else");

TEST(GUIDCosts, ARandomIdentifierTakesTheOneByteOfAnUnbufferedFile)
{
    AllocationCounter const counter;
    GUID const guid = GUID::FromRandom();

    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(1U, counter.Bytes());
    EXPECT_EQ(0, counter.HeldBytes());
    EXPECT_NE(GUID::Empty, guid);
}

TEST(GUIDCosts, TheTextTakesItsOwnBytesAndNoMore)
{
    AllocationCounter const counter;
    std::string const text = GUID::Empty.ToString();

    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(text.size() + 1, counter.Bytes());
}

TEST(GUIDCosts, ReadingATextAllocatesNothing)
{
    std::string const text = GUID::Empty.ToString();

    AllocationCounter const counter;
    GUID const guid(text);

    EXPECT_EQ(0U, counter.Blocks());
    EXPECT_EQ(GUID::Empty, guid);
}

}}}  // namespace tovu::util
