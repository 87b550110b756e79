#include "tovu/util/Format.h"

#include <gtest/gtest.h>

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

}}}  // namespace tovu::util
