#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "AllocationCounter.h"
#include "NoThreads.h"
#include "tovu/util/FileLogger.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Mutex.h"
#include "tovu/util/OwnerList.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;
using Entry = std::pair<std::string, std::string>;

constexpr std::size_t SHORT_TEXT = 15;  // the longest one that a string of the standard library keeps in itself
constexpr std::size_t NODE_SIZE = 2 * sizeof(void*) + sizeof(Entry);
constexpr unsigned ALL_FLAGS = 0xff;

std::size_t BytesOf(std::string const& text)
{
    return text.size() > SHORT_TEXT ? text.size() + 1 : 0;
}

std::size_t BlocksOf(std::string const& text)
{
    return text.size() > SHORT_TEXT ? 1 : 0;
}

class LoggingCosts : public testing::Test
{
protected:
    // Gives the manager its flags but no thread: what is logged stays in the queue.
    void Init(unsigned flags)
    {
        test::NoThreads noThreads;
        manager_.Init("a manager with a long name", LoggerMgr::LEVEL_DEBUG, flags, 0);
    }

    void LogLine() { manager_.Log(LoggerMgr::LEVEL_INFO, "src/Volume.cpp", 42, "volume %s has %d files", "photos", 7); }

    LoggerMgr manager_;
};

TEST_F(LoggingCosts, ASuppressedCallTakesNothing)
{
    LoggerMgr::Instance();
    AllocationCounter const counter;
    TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s", "kept by no threshold");
    EXPECT_EQ(0U, counter.Blocks());
}

// The node of the queue, the header and the message; a text that is short stands in the node.
TEST_F(LoggingCosts, ALineTakesItsNodeAndItsTextsWithEveryHeader)
{
    for (unsigned flags = 0; flags <= ALL_FLAGS; ++flags) {
        Init(flags);
        AllocationCounter const logging;
        LogLine();
        std::size_t const blocks = logging.Blocks();
        std::size_t const bytes = logging.Bytes();

        Entry const entry = manager_.Deq();
        EXPECT_EQ(1 + BlocksOf(entry.first) + BlocksOf(entry.second), blocks) << flags;
        EXPECT_EQ(NODE_SIZE + BytesOf(entry.first) + BytesOf(entry.second), bytes) << flags;
        EXPECT_GE(3U, blocks) << flags;
    }
}

TEST_F(LoggingCosts, AQueuedLineHoldsItsTextsAndLessThanOneHundredBytesMore)
{
    Init(ALL_FLAGS);
    AllocationCounter const counter;
    LogLine();
    std::ptrdiff_t const held = counter.HeldBytes();

    Entry const entry = manager_.Deq();
    EXPECT_EQ(static_cast<std::ptrdiff_t>(NODE_SIZE + entry.first.size() + 1 + entry.second.size() + 1), held);
    EXPECT_GE(static_cast<std::ptrdiff_t>(entry.first.size() + entry.second.size() + 100), held);
}

TEST_F(LoggingCosts, ALineThatIsTakenOutIsMovedAndItsNodeFreed)
{
    Init(ALL_FLAGS);
    AllocationCounter const wholeLife;
    LogLine();
    {
        AllocationCounter const counter;
        Entry const entry = manager_.Deq();
        EXPECT_EQ(0U, counter.Blocks());
        EXPECT_EQ(-static_cast<std::ptrdiff_t>(NODE_SIZE), counter.HeldBytes());
    }
    EXPECT_EQ(0, wholeLife.HeldBytes());
}

TEST_F(LoggingCosts, AMessageBeyondTheFirstBufferTakesOneOfTwiceTheSize)
{
    std::string const text(20000, 'x');
    AllocationCounter const counter;
    manager_.Log(LoggerMgr::LEVEL_INFO, "src/Volume.cpp", 42, "%s", text.c_str());
    EXPECT_EQ(3U, counter.Blocks());
    EXPECT_EQ(2 * 16384 + NODE_SIZE + text.size() + 1, counter.Bytes());
}

TEST_F(LoggingCosts, LevelsAndTheirNamesTakeNothing)
{
    std::string const name = "Warning";
    AllocationCounter const counter;
    for (unsigned level = 0; level <= 5; ++level)
        LoggerMgr::level2string(level);
    LoggerMgr::string2level(name);
    EXPECT_EQ(0U, counter.Blocks());
}

TEST_F(LoggingCosts, ARecordOfTheSystemLogTakesNothing)
{
    FileLogger logger("costs");
    std::string const header = "a header that does not fit into a string itself ";
    std::string const message = "a message that does not fit into a string itself\n";
    AllocationCounter const counter;
    logger.Log(header, message);
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(ThreadCosts, AGuardAndTheInstanceTakeNothing)
{
    LoggerMgr::Instance();
    Mutex mutex;
    AllocationCounter const counter;
    LoggerMgr::Instance();
    Mutex::Guard const guard(mutex);
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(ThreadCosts, AnOwnedElementTakesItselfAndANode)
{
    AllocationCounter const counter;
    {
        OwnerList<long> list;
        list.push_back(new long(7));
        EXPECT_EQ(2U, counter.Blocks());
        EXPECT_EQ(sizeof(long) + 3 * sizeof(void*), counter.Bytes());
    }
    EXPECT_EQ(0, counter.HeldBytes());
}

}}}  // namespace tovu::util
