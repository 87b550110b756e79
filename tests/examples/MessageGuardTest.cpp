#include "common/MessageGuard.h"

#include <gtest/gtest.h>

#include <string>

namespace volume { namespace {

Verdict Inspect(MessageGuard const& guard, std::string const& message)
{
    return guard.Inspect(reinterpret_cast<unsigned char const*>(message.data()), static_cast<unsigned>(message.size()));
}

MessageGuard const& Small()
{
    static MessageGuard const guard(MessageGuard::Limits{40, 3, 2});
    return guard;
}

TEST(MessageGuardTest, AcceptsOneMebibyteAHundredElementsDeepWithAHundredAttributes)
{
    MessageGuard const guard;
    EXPECT_EQ(1024u * 1024u, guard.GetLimits().length);
    EXPECT_EQ(100u, guard.GetLimits().depth);
    EXPECT_EQ(100u, guard.GetLimits().attributes);
}

TEST(MessageGuardTest, AcceptsAMessageOfJustTheLimit)
{
    EXPECT_EQ(Verdict::Accepted, Inspect(Small(), "<a>" + std::string(33, 'x') + "</a>"));
    EXPECT_EQ(Verdict::TooLong, Inspect(Small(), "<a>" + std::string(34, 'x') + "</a>"));
}

TEST(MessageGuardTest, AcceptsNestingOfJustTheLimit)
{
    EXPECT_EQ(Verdict::Accepted, Inspect(Small(), "<a><b><c/><c></c></b></a>"));
    EXPECT_EQ(Verdict::TooDeep, Inspect(Small(), "<a><b><c><d/></c></b></a>"));
}

TEST(MessageGuardTest, AcceptsAttributesOfJustTheLimit)
{
    EXPECT_EQ(Verdict::Accepted, Inspect(Small(), "<a b='' c=''><d e='' f=''/></a>"));
    EXPECT_EQ(Verdict::TooManyAttributes, Inspect(Small(), "<a><b c='' d='' e=''/></a>"));
}

TEST(MessageGuardTest, LooksAtTheProlog)
{
    EXPECT_EQ(Verdict::DocumentType, Inspect(Small(), "<!DOCTYPE a><a/>"));
    EXPECT_EQ(Verdict::Malformed, Inspect(Small(), "<?xml version='1.2'?><a/>"));
    EXPECT_EQ(Verdict::Malformed, Inspect(Small(), "a"));
    EXPECT_EQ(Verdict::Malformed, Inspect(Small(), ""));
    EXPECT_EQ(Verdict::Encoding, Inspect(Small(), std::string("<\0a\0/\0>\0", 8)));
}

// What a refused message is refused for does not depend on what else is wrong with it further behind.
TEST(MessageGuardTest, TellsTheFirstReason)
{
    EXPECT_EQ(Verdict::TooLong, Inspect(Small(), "<!DOCTYPE a>" + std::string(40, '<')));
    EXPECT_EQ(Verdict::DocumentType, Inspect(Small(), "<!DOCTYPE a><a><b><c><d/>"));
    EXPECT_EQ(Verdict::TooDeep, Inspect(Small(), "<a><b><c><d e='' f='' g=''/>"));
}

TEST(MessageGuardTest, CountsEachReasonForItself)
{
    MessageGuard guard;
    EXPECT_EQ(1u, guard.Count(Verdict::TooDeep));
    EXPECT_EQ(2u, guard.Count(Verdict::TooDeep));
    EXPECT_EQ(1u, guard.Count(Verdict::Failed));
    EXPECT_EQ(2u, guard.GetCount(Verdict::TooDeep));
    EXPECT_EQ(0u, guard.GetCount(Verdict::TooLong));
}

}}  // namespace volume
