// More than a client should send at once.

#include <chrono>
#include <thread>

#include "FloodedService.h"

namespace volume { namespace {

constexpr unsigned BURST = 100000;

class BurstTest : public FloodedService
{
protected:
    // Sends numbered messages as fast as the service takes them, while it reads the answers.
    // \return How many answers came in order before one was wrong, missing or repeated.
    static unsigned Exchange(Peer& peer, unsigned count)
    {
        std::thread writer([&] {
            std::string bytes;
            for (unsigned i = 0; i < count; ++i)
                bytes += Numbered(i) + '\0';
            EXPECT_TRUE(peer.Send(bytes));
        });
        unsigned answered = 0;
        while (answered < count && peer.Receive() == Numbered(answered))
            ++answered;
        if (answered < count)
            peer.Abandon();
        writer.join();
        EXPECT_FALSE(peer.HasNews(0)) << "more answers than messages";
        return answered;
    }

    static std::string Numbered(unsigned number) { return "<Echo>" + std::to_string(number) + "</Echo>"; }

    static double SecondsSince(std::chrono::steady_clock::time_point start)
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
};

TEST_F(BurstTest, NoMessageIsLostOrRepeatedAndOrderIsKept)
{
    StartAndWarmUp({});
    auto const start = std::chrono::steady_clock::now();
    unsigned answered = 0;
    {
        Peer peer(Tcp());
        answered = Exchange(peer, BURST);
    }
    EXPECT_EQ(BURST, answered);
    Tell("burst", "messages of one connection answered, in order, once", std::to_string(answered),
         std::to_string(BURST));
    Tell("burst", "took", Seconds(SecondsSince(start)), "");
    ExpectAtRest("burst");
}

TEST_F(BurstTest, ManyConnectionsKeepTheirOwnOrder)
{
    constexpr unsigned CONNECTIONS = 8;
    constexpr unsigned EACH = BURST / 10;
    StartAndWarmUp({});
    auto const start = std::chrono::steady_clock::now();
    unsigned answered[CONNECTIONS] = {};
    std::vector<std::thread> threads;
    for (unsigned& count : answered) {
        threads.emplace_back([&] {
            Peer peer(Local());
            count = Exchange(peer, EACH);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    unsigned sum = 0;
    for (unsigned const count : answered) {
        EXPECT_EQ(EACH, count);
        sum += count;
    }
    Tell("burst", "messages of 8 connections at once", std::to_string(sum), std::to_string(CONNECTIONS * EACH));
    Tell("burst", "took", Seconds(SecondsSince(start)), "");
    ExpectAtRest("burst");
}

TEST_F(BurstTest, AMessageWithoutAnEndDoesNotFillTheMemory)
{
    constexpr unsigned SIZE_MIB = 64;
    constexpr long MOST_KIB = 32 * 1024;
    StartAndWarmUp({});
    long const before = StatusOf(service_, "VmRSS");
    {
        Peer peer(Tcp());
        std::string const piece(1 << 20, 'x');
        unsigned sent = 0;
        while (sent < SIZE_MIB && peer.Send(piece))
            ++sent;
        Tell("no delimiter", "sent until the service ended the connection", std::to_string(sent) + " MiB",
             std::to_string(SIZE_MIB) + " MiB");
        EXPECT_EQ("<Echo>another</Echo>", Peer(Tcp()).Ask("<Echo>another</Echo>"));
    }
    EXPECT_TRUE(AwaitLog(" is left: its message is too long.\n")) << Log();
    ExpectAtRest("no delimiter");
    long const growth = StatusOf(service_, "VmHWM") - before;
    EXPECT_LT(growth, MOST_KIB);
    Tell("no delimiter", "most memory beyond that before", KiB(growth), KiB(MOST_KIB));
}

}}  // namespace volume
