// Hundreds of clients that send a byte now and then, beside one that works.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "FloodedService.h"

namespace volume { namespace {

using Clock = std::chrono::steady_clock;

constexpr char const* FLOOD = "slow peers";
constexpr unsigned PEERS = 500;
constexpr std::chrono::milliseconds BETWEEN_BYTES(1);  // of all peers: each sends its own after half a second
constexpr unsigned MOST_ROUNDS = 4;
constexpr double MOST_TIMES_SLOWER = 3;

std::string MessageOf(std::size_t peer)
{
    return "<Echo>" + std::to_string(peer) + "</Echo>" + '\0';
}

// One thread that gives each peer in turn a byte to send, of a message that it begins again when it is complete.
class SlowPeers
{
public:
    explicit SlowPeers(tovu::util::Socket::Address const& address)
    {
        for (unsigned i = 0; i < PEERS; ++i)
            peers_.emplace_back(address);
        thread_ = std::thread([this] { Trickle(); });
    }

    SlowPeers(SlowPeers const&) = delete;
    SlowPeers& operator=(SlowPeers const&) = delete;

    ~SlowPeers() { Stop(); }

    void Stop()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    unsigned long CountBytes() const { return bytes_; }

    // Ends each peer's message.
    // \return How many messages all have sent, each of which was answered; 0 when one was not.
    unsigned FinishAndCount()
    {
        unsigned messages = 0;
        for (std::size_t i = 0; i < PEERS; ++i) {
            std::string const message = MessageOf(i);
            std::size_t const sent = bytes_ / PEERS + (i < bytes_ % PEERS ? 1 : 0);
            peers_[i].Send(message.substr(sent % message.size()));
            for (std::size_t answers = sent / message.size() + 1; answers != 0; --answers, ++messages) {
                if (peers_[i].Receive() + '\0' != message)
                    return 0;
            }
        }
        return messages;
    }

private:
    void Trickle()
    {
        for (Clock::time_point next = Clock::now(); !stop_; next += BETWEEN_BYTES) {
            std::this_thread::sleep_until(next);
            std::size_t const peer = bytes_ % PEERS;
            std::string const message = MessageOf(peer);
            if (!peers_[peer].Send(message.substr(bytes_ / PEERS % message.size(), 1)))
                return;
            ++bytes_;
        }
    }

    std::vector<Peer> peers_;  // used by the thread until it has been joined
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<unsigned long> bytes_{0};
};

// How long answers took, in seconds; the shortest first.
class Latencies
{
public:
    void Measure(Peer& peer, std::chrono::milliseconds period)
    {
        Clock::time_point const end = Clock::now() + period;
        for (Clock::time_point start = Clock::now(); start < end; start = Clock::now()) {
            EXPECT_EQ("<Echo>work</Echo>", peer.Ask("<Echo>work</Echo>"));
            seconds_.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
        std::sort(seconds_.begin(), seconds_.end());
    }

    std::size_t Count() const { return seconds_.size(); }
    double Median() const { return Quantile(0.5); }
    double Quantile(double part) const { return seconds_[static_cast<std::size_t>(part * (seconds_.size() - 1))]; }

private:
    std::vector<double> seconds_;
};

class SlowPeersTest : public FloodedService
{
protected:
    // Measured before and after the flood as well as in it, so that what else the machine does is in both.
    void MeasureRound()
    {
        std::chrono::milliseconds const period(ShortOrLong(3000, 20000));
        Peer worker(Tcp());
        quiet_ = Latencies();
        flooded_ = Latencies();
        quiet_.Measure(worker, period / 2);
        SlowPeers slow(Tcp());
        flooded_.Measure(worker, period);
        slow.Stop();
        bytes_ += slow.CountBytes();
        unsigned const answered = slow.FinishAndCount();
        EXPECT_GE(answered, PEERS) << "a slow peer got a wrong answer, or none";
        messages_ += answered;
        quiet_.Measure(worker, period / 2);
    }

    bool IsSlowedDown() const { return flooded_.Median() > MOST_TIMES_SLOWER * quiet_.Median(); }

    Latencies quiet_;
    Latencies flooded_;
    unsigned long bytes_ = 0;
    unsigned messages_ = 0;
};

TEST_F(SlowPeersTest, AnotherClientIsServedAsQuicklyAsEver)
{
    RaiseDescriptors();
    StartAndWarmUp({});
    unsigned rounds = 0;
    do
        MeasureRound();
    while (++rounds < MOST_ROUNDS && IsSlowedDown());

    EXPECT_FALSE(IsSlowedDown());
    Tell(FLOOD, "bytes sent by 500 peers; messages so made and answered",
         std::to_string(bytes_) + "; " + std::to_string(messages_), "none without an answer");
    Tell(FLOOD, "another client's latency, quiet: median, 99th percentile",
         Microseconds(quiet_.Median()) + ", " + Microseconds(quiet_.Quantile(0.99)), "");
    Tell(FLOOD, "the same among the slow peers",
         Microseconds(flooded_.Median()) + ", " + Microseconds(flooded_.Quantile(0.99)),
         "median " + Microseconds(MOST_TIMES_SLOWER * quiet_.Median()) + " (3 times)");
    Tell(FLOOD, "answers measured, quiet and among the slow peers",
         std::to_string(quiet_.Count()) + ", " + std::to_string(flooded_.Count()), "");
    Tell(FLOOD, "rounds until the machine was calm enough to compare", std::to_string(rounds),
         std::to_string(MOST_ROUNDS));
    ExpectAtRest(FLOOD);
}

}}  // namespace volume
