// A system log that takes nothing for a while, or is started anew.

#include <unistd.h>

#include <cstring>

#include "FloodedService.h"

namespace volume { namespace {

constexpr char const* FLOOD = "system log";

// The number of the next numbered line, see Refused; 0 when none comes.
unsigned ReceiveNumber(LogDaemon const& daemon)
{
    constexpr char const* START = "A message of ";
    for (;;) {
        std::string const line = daemon.Receive();
        std::string::size_type const start = line.find(START);
        if (line.empty())
            return 0;
        if (start != std::string::npos)
            return static_cast<unsigned>(std::stoul(line.substr(start + std::strlen(START))));
    }
}

// How many numbered lines arrive, from `first` to before `end`, before one is missing, repeated or out of order.
unsigned CountInOrder(LogDaemon const& daemon, unsigned first, unsigned end)
{
    unsigned number = first;
    while (number < end && ReceiveNumber(daemon) == number)
        ++number;
    return number - first;
}

// A message that the service refuses, with a line in the log that tells its length: so lines are numbered.
std::string Refused(unsigned number)
{
    std::string const shortest = "<X/>";
    return "<X" + std::string(number - shortest.size(), ' ') + "/>";
}

class SystemLogTest : public FloodedService
{
protected:
    void SetUp() override
    {
        FloodedService::SetUp();
        if (!IsSkipped() && !HasOwnSystemLog())
            GTEST_SKIP() << "this machine gives a process no /dev/log of its own";
    }

    // Has the service log the lines from `first` to before `end`. \return How many of the messages were answered.
    static unsigned AskToLog(Peer& peer, unsigned first, unsigned end)
    {
        unsigned answered = 0;
        for (unsigned number = first; number < end; ++number) {
            if (peer.Ask(Refused(number)).find("<Error code=\"0\">") == 0)
                ++answered;
        }
        return answered;
    }
};

TEST_F(SystemLogTest, MessagesAreAnsweredWhileTheLogStalls)
{
    constexpr unsigned FIRST = 10;
    constexpr unsigned TAKEN = 100;  // more than the system takes for a daemon that does not read
    unsigned const lines = ShortOrLong(5000u, 30000u);
    LogDaemon const daemon(systemLog_);
    StartAndWarmUp({});
    Peer peer(Tcp());
    EXPECT_EQ(TAKEN, AskToLog(peer, FIRST, FIRST + TAKEN));
    long const before = StatusOf(service_, "VmRSS");
    unsigned const answered = AskToLog(peer, FIRST + TAKEN, FIRST + lines);
    long const growth = StatusOf(service_, "VmRSS") - before;
    EXPECT_EQ(lines - TAKEN, answered);
    Tell(FLOOD, "messages answered while the log takes nothing", std::to_string(answered),
         std::to_string(lines - TAKEN));
    Tell(FLOOD, "memory for each line that waits", std::to_string(growth * 1024 / answered) + " bytes", "");

    unsigned const arrived = CountInOrder(daemon, FIRST, FIRST + lines);
    EXPECT_EQ(lines, arrived) << "lost, repeated or out of order";
    Tell(FLOOD, "lines that arrive in order, once, when it goes on", std::to_string(arrived), std::to_string(lines));
}

TEST_F(SystemLogTest, NoLineIsLostWhenAnIdleLogIsStartedAnew)
{
    constexpr unsigned RESTARTS = 20;
    constexpr unsigned EACH = 5;
    constexpr unsigned FIRST = 10;
    auto daemon = std::make_unique<LogDaemon>(systemLog_);
    StartAndWarmUp({});
    Peer peer(Tcp());
    unsigned arrived = 0;
    for (unsigned number = FIRST; number < FIRST + RESTARTS * EACH; number += EACH) {
        EXPECT_EQ(EACH, AskToLog(peer, number, number + EACH));
        arrived += CountInOrder(*daemon, number, number + EACH);
        daemon = std::make_unique<LogDaemon>(systemLog_);
    }
    EXPECT_EQ(RESTARTS * EACH, arrived);
    Tell(FLOOD, "lines that arrive over 20 restarts of an idle log", std::to_string(arrived),
         std::to_string(RESTARTS * EACH));
}

TEST_F(SystemLogTest, OnlyTheLinesOfATimeWithoutALogAreLost)
{
    constexpr unsigned FIRST = 10;
    constexpr unsigned BACK = 110;
    constexpr unsigned END = 120;
    auto daemon = std::make_unique<LogDaemon>(systemLog_);
    StartAndWarmUp({});
    daemon.reset();
    unlink(systemLog_.c_str());
    Peer peer(Tcp());
    EXPECT_EQ(BACK - FIRST, AskToLog(peer, FIRST, BACK));
    EXPECT_TRUE(AwaitLog("A message of " + std::to_string(BACK - 1) + " bytes "));

    daemon = std::make_unique<LogDaemon>(systemLog_);
    EXPECT_EQ(END - BACK, AskToLog(peer, BACK, END));
    unsigned const first = ReceiveNumber(*daemon);
    EXPECT_GE(first, BACK - 1) << "the system log comes behind standard error, so one line may still come";
    EXPECT_LE(first, BACK);
    EXPECT_EQ(END - first - 1, CountInOrder(*daemon, first + 1, END));
    Tell(FLOOD, "lines lost of 100 while there is no log, of 10 after that",
         std::to_string(first - FIRST) + "; " + std::to_string(first > BACK ? first - BACK : 0), "100; 0");
}

// What the stalled log had taken and not read goes with it, and nothing else.
TEST_F(SystemLogTest, OnlyWhatAStalledLogHadTakenIsLostWhenItIsStartedAnew)
{
    constexpr unsigned FIRST = 10;
    constexpr unsigned END = 1010;
    auto daemon = std::make_unique<LogDaemon>(systemLog_);
    StartAndWarmUp({});
    Peer peer(Tcp());
    EXPECT_EQ(END - FIRST, AskToLog(peer, FIRST, END));
    daemon = std::make_unique<LogDaemon>(systemLog_);

    unsigned const first = ReceiveNumber(*daemon);
    unsigned const mostTaken =
        1 + static_cast<unsigned>(std::stoul(tovu::test::ReadFile("/proc/sys/net/unix/max_dgram_qlen")));
    EXPECT_LE(first - FIRST, mostTaken);
    EXPECT_EQ(END - first - 1, CountInOrder(*daemon, first + 1, END));
    Tell(FLOOD, "lines lost of 1000 when a stalled log is started anew", std::to_string(first - FIRST),
         std::to_string(mostTaken) + ", what it had taken");
}

TEST_F(SystemLogTest, TheServiceEndsWhileTheLogStalls)
{
    constexpr unsigned FIRST = 10;
    constexpr unsigned END = 210;
    LogDaemon const daemon(systemLog_);
    StartAndWarmUp({});
    Peer peer(Tcp());
    EXPECT_EQ(END - FIRST, AskToLog(peer, FIRST, END));
    int const status = StopService(SIGTERM);
    EXPECT_EQ(0, status);
    Tell(FLOOD, "exit status when the service is stopped while it stalls", std::to_string(status), "0");
}

}}  // namespace volume
