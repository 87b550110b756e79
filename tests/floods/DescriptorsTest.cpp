// More clients than the service has descriptors for.

#include <sys/resource.h>
#include <sys/select.h>

#include "FloodedService.h"

namespace volume { namespace {

constexpr char const* CROWD = "1024 descriptors";
constexpr char const* STARVED = "no descriptors";

class DescriptorsTest : public FloodedService
{
protected:
    static std::string Hello(Peer& peer) { return peer.Ask("<Echo>hello</Echo>"); }

    std::vector<Peer> Connect(unsigned count) const
    {
        std::vector<Peer> peers;
        for (unsigned i = 0; i < count; ++i)
            peers.emplace_back(Tcp());
        return peers;
    }

    // How many get their answer; all others are to find the connection closed.
    static unsigned CountServed(std::vector<Peer>& peers)
    {
        unsigned served = 0;
        for (Peer& peer : peers) {
            std::string const answer = Hello(peer);
            served += answer == "<Echo>hello</Echo>" ? 1 : 0;
            EXPECT_TRUE(answer == "<Echo>hello</Echo>" || answer == CLOSED) << answer;
        }
        return served;
    }

    // Has all the clients come that there is room for, and some more. One descriptor may be out of use for a moment:
    // the search for a system log that is not there takes one as well.
    // \return How many are served, and then go.
    unsigned Crowd(unsigned room, unsigned more)
    {
        std::vector<Peer> peers = Connect(room + more);
        unsigned const served = CountServed(peers);
        EXPECT_LE(served, room);
        EXPECT_GE(served + 1, room);
        EXPECT_EQ(served, CountServed(peers)) << "those that were served before are served no more";
        crowdKiB_ = StatusOf(service_, "VmRSS");
        crowdReservedKiB_ = StatusOf(service_, "VmSize");
        return served;
    }

    // Sets a limit of the running service.
    void Allow(__rlimit_resource resource, rlim_t amount) const
    {
        rlimit limit = {};
        ASSERT_EQ(0, prlimit(service_, resource, nullptr, &limit));
        limit.rlim_cur = amount;
        ASSERT_EQ(0, prlimit(service_, resource, &limit, nullptr));
    }

    long crowdKiB_ = 0;
    long crowdReservedKiB_ = 0;
};

TEST_F(DescriptorsTest, ClientsBeyondTheSelectorsDescriptorsAreTurnedAway)
{
    constexpr unsigned MORE = 80;
    rlim_t const descriptors = RaiseDescriptors();
    if (descriptors < 2 * FD_SETSIZE)
        GTEST_SKIP() << "this machine allows only " << descriptors << " descriptors";
    StartAndWarmUp({});
    long const memory = StatusOf(service_, "VmRSS");
    long const reserved = StatusOf(service_, "VmSize");
    auto const room = static_cast<unsigned>(FD_SETSIZE - CountDescriptorsOf(service_, FD_SETSIZE));

    unsigned const served = Crowd(room, MORE);
    unsigned const refused = room + MORE - served;
    EXPECT_TRUE(
        Eventually([&] { return CountInLog("A client is turned away: 1024 descriptors are in use.\n") == refused; }));
    Tell(CROWD, "clients served; turned away, each with a line in the log",
         std::to_string(served) + "; " + std::to_string(refused), "room for " + std::to_string(room));
    Tell(CROWD, "for each client's thread: memory; address space",
         KiB((crowdKiB_ - memory) / served) + "; " + KiB((crowdReservedKiB_ - reserved) / served), "");
    ExpectAtRest(CROWD);
    Tell(CROWD, "clients served when those have left", std::to_string(Crowd(room, 0)), std::to_string(room));
    ExpectAtRest(CROWD);
}

// One of its descriptors is kept to turn clients away with.
TEST_F(DescriptorsTest, AServiceWithFewDescriptorsTurnsAwayBeyondThem)
{
    constexpr unsigned LIMIT = 64;
    Limit("-n 64");
    StartAndWarmUp({});
    auto const room = static_cast<unsigned>(LIMIT - 1 - CountDescriptorsOf(service_, LIMIT - 1));
    unsigned const served = Crowd(room, 2 * LIMIT);
    Tell(STARVED, "clients served within a limit of 64 descriptors", std::to_string(served),
         "room for " + std::to_string(room));
    ExpectAtRest(STARVED);
}

// Clients wait to be accepted, and the service can accept none.
TEST_F(DescriptorsTest, AServiceThatCannotAcceptWaitsWithoutSpinning)
{
    constexpr int PERIOD_SECONDS = 2;
    constexpr double MOST_PROCESSOR = 0.02 * PERIOD_SECONDS;
    constexpr unsigned WAITING = 20;
    RaiseDescriptors();
    StartAndWarmUp({});
    std::vector<Peer> served = Connect(3);
    EXPECT_EQ(3u, CountServed(served));
    Allow(RLIMIT_NOFILE, 1);  // what is open stays so

    std::vector<Peer> waiting = Connect(WAITING);
    EXPECT_TRUE(AwaitLog("A client cannot be accepted: "));
    double const before = ProcessorSecondsOf(service_);
    EXPECT_FALSE(waiting.front().HasNews(PERIOD_SECONDS * 1000));
    double const used = ProcessorSecondsOf(service_) - before;
    unsigned const lines = CountInLog("A client cannot be accepted: ");
    EXPECT_EQ(3u, CountServed(served));
    EXPECT_LE(used, MOST_PROCESSOR);
    EXPECT_EQ(1u, lines) << "the log tells the same again and again";
    Tell(STARVED, "processor time in 2 s in which 20 clients wait", Seconds(used), Seconds(MOST_PROCESSOR));
    Tell(STARVED, "lines in the log for that", std::to_string(lines), "1");

    Allow(RLIMIT_NOFILE, FD_SETSIZE + 1);
    EXPECT_EQ(WAITING, CountServed(waiting));
    Tell(STARVED, "of those served once there are descriptors again", std::to_string(CountServed(waiting)),
         std::to_string(WAITING));
}

TEST_F(DescriptorsTest, AServiceWithoutRoomForThreadsTurnsClientsAway)
{
    constexpr unsigned CLIENTS = 50;
    StartAndWarmUp({});
    Peer before(Tcp());
    EXPECT_EQ("<Echo>hello</Echo>", Hello(before));
    Allow(RLIMIT_AS, static_cast<rlim_t>(StatusOf(service_, "VmSize")) * 1024);
    unsigned served = 0;
    {
        std::vector<Peer> peers = Connect(CLIENTS);
        served = CountServed(peers);
        EXPECT_TRUE(
            Eventually([&] { return CountInLog(" is turned away, there is no thread for it: ") == CLIENTS - served; }));
        EXPECT_LT(served, CLIENTS / 2) << "the limit has no effect";
    }
    EXPECT_EQ("<Echo>hello</Echo>", Hello(before));
    Tell(STARVED, "without room for more threads: served; turned away",
         std::to_string(served) + "; " + std::to_string(CLIENTS - served), "");
    Allow(RLIMIT_AS, RLIM_INFINITY);
    std::vector<Peer> peers = Connect(CLIENTS);
    EXPECT_EQ(CLIENTS, CountServed(peers));
}

}}  // namespace volume
