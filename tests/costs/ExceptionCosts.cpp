#include "tovu/util/Exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

constexpr std::size_t LOCATION_SIZE = sizeof(Exception::Location);

class ExceptionCosts : public testing::Test
{
protected:
    std::string message_ = "a message that does not fit into a string itself";
};

TEST_F(ExceptionCosts, AMessageThatIsMovedInTakesNothingBesideTheOneLocation)
{
    std::string message = message_;
    AllocationCounter const counter;
    Exception const exception("a.cpp", 1, std::move(message));
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(LOCATION_SIZE, counter.Bytes());
}

TEST_F(ExceptionCosts, AMessageThatIsKeptByTheCallerIsCopiedOnce)
{
    AllocationCounter const counter;
    Exception const exception("a.cpp", 1, message_);
    EXPECT_EQ(2U, counter.Blocks());
    EXPECT_EQ(LOCATION_SIZE + message_.size() + 1, counter.Bytes());
}

TEST_F(ExceptionCosts, TwoOfThreeHandlersNeedMoreRoomForLocations)
{
    Exception exception("a.cpp", 1, message_);
    AllocationCounter const counter;
    for (unsigned line : {10U, 20U, 30U})
        exception.locations.push_back(Exception::Location("a.cpp", line));
    EXPECT_EQ(2U, counter.Blocks());
    EXPECT_EQ((2 + 4) * LOCATION_SIZE, counter.Bytes());
}

TEST_F(ExceptionCosts, TheMessageIsAskedForFreely)
{
    Exception const exception("a.cpp", 1, message_);
    AllocationCounter const counter;
    EXPECT_EQ(message_, exception.what());
    EXPECT_EQ(0U, counter.Blocks());
}

// The buffer of the stream, which begins with 512 characters, and the text.
TEST_F(ExceptionCosts, ATracebackTakesTheBufferOfAStreamAndItself)
{
    Exception const exception("src/util/Volume.cpp", 1234, message_);
    AllocationCounter const counter;
    std::string const traceback = exception.GetTracebackReport();
    EXPECT_EQ(2U, counter.Blocks());
    EXPECT_EQ(512 + 1 + traceback.size() + 1, counter.Bytes());
}

TEST_F(ExceptionCosts, TheTextOfAnErrorTakesItself)
{
    errno = ENOENT;
    AllocationCounter const counter;
    std::string const text = Exception::FromErrorCode(ENOENT);
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(text.size() + 1, counter.Bytes());
}

}}}  // namespace tovu::util
