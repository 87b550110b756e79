// A long time of ordinary work.

#include <chrono>
#include <thread>

#include "FloodedService.h"

namespace volume { namespace {

constexpr char const* FLOOD = "soak";
constexpr long MOST_GROWTH_KIB = 2048;
constexpr unsigned PARTS = 10;

class SoakTest : public FloodedService
{
protected:
    // Works in parts, the first of which warms the service up, and expects the memory to stay as it is then. `work`
    // does one part, of so many messages or connections.
    template <typename Work>
    void Soak(unsigned part, char const* what, Work work)
    {
        work();
        long const warm = Sample(part, what);
        long last = warm;
        for (unsigned i = 2; i <= PARTS; ++i) {
            work();
            last = Sample(i * part, what);
        }
        EXPECT_LE(last, warm + MOST_GROWTH_KIB);
        Tell(FLOOD, std::string("memory at the end of the ") + what, KiB(last), KiB(warm + MOST_GROWTH_KIB));
    }

private:
    long Sample(unsigned done, char const* what) const
    {
        long const memory = StatusOf(service_, "VmRSS");
        Tell(FLOOD, "memory; threads and descriptors, after " + std::to_string(done) + " " + what,
             KiB(memory) + "; " + ToText(HoldingsOf(service_)), "");
        return memory;
    }
};

// One of each kind in turn, and what its answer begins with.
struct Exchange
{
    std::string message;
    std::string answer;
};

Exchange ExchangeOf(unsigned number, std::string const& folder)
{
    std::string const text = std::to_string(number);
    switch (number % 10) {
        case 0:
            return {"<List path='" + folder + "'/>", "<Listing path=\"" + folder + "\"><Entry "};
        case 1:
            return {"<MakeGuid count='3'/>", "<Guids><Guid>"};
        case 2:
            return {"<GetInfo/>", "<Info hostName="};
        case 3:
            return {"<Status volume='/'/>", "<Status volume=\"/\" freeSpace="};
        case 4:
            return {"<Echo>" + text + std::string(3000, 'x') + "</Echo>", "<Echo>" + text + "xxx"};
        case 5:
            return {"<Echo><a b='c'>" + text + "<!--d--></a>&#xE4;</Echo>",
                    "<Echo><a b=\"c\">" + text + "<!--d--></a>"};
        case 6:
            return number % 100 == 6 ? Exchange{"<Unknown/>", "<Error code=\"0\">"}
                                     : Exchange{"<Echo/>", "<Echo></Echo>"};
        case 7:
            return number % 100 == 7 ? Exchange{"<Echo>", "<Error code=\"3\">"} : Exchange{"<Echo/>", "<Echo></Echo>"};
        default:
            return {"<Echo>" + text + "</Echo>", "<Echo>" + text + "</Echo>"};
    }
}

TEST_F(SoakTest, MemoryAndDescriptorsStayFlatOverManyMessages)
{
    constexpr unsigned CONNECTIONS = 4;
    unsigned const part = ShortOrLong(2000u, 100000u);
    std::string const folder = folder_ / "listed";
    ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
    tovu::test::WriteFile(folder + "/file", "content");
    StartAndWarmUp({});
    std::vector<Peer> peers;
    for (unsigned i = 0; i < CONNECTIONS; ++i)
        peers.emplace_back(i % 2 == 0 ? Tcp() : Local());
    unsigned next = 0;
    unsigned wrong = 0;
    Soak(part, "messages", [&] {
        for (unsigned const end = next + part / CONNECTIONS; next < end; ++next) {
            Exchange const exchange = ExchangeOf(next, folder);
            for (Peer& peer : peers)
                peer.Send(exchange.message + '\0');
            for (Peer& peer : peers)
                wrong += peer.Receive().compare(0, exchange.answer.size(), exchange.answer) == 0 ? 0 : 1;
        }
    });
    EXPECT_EQ(0u, wrong);
    Tell(FLOOD, "wrong answers of " + std::to_string(next * CONNECTIONS) + " messages", std::to_string(wrong), "0");
    peers.clear();
    ExpectAtRest(FLOOD);
}

TEST_F(SoakTest, MemoryAndDescriptorsStayFlatOverManyConnections)
{
    unsigned const part = ShortOrLong(200u, 5000u);
    StartAndWarmUp({});
    unsigned served = 0;
    Soak(part, "connections", [&] {
        for (unsigned i = 0; i < part; ++i)
            served += Peer(i % 4 == 0 ? Tcp() : Local()).Ask("<Echo>1</Echo>") == "<Echo>1</Echo>" ? 1 : 0;
        EXPECT_TRUE(Eventually([this] { return HoldingsOf(service_) == atRest_; }));
    });
    EXPECT_EQ(part * PARTS, served);
    Tell(FLOOD, "connections served, one after the other", std::to_string(served), std::to_string(part * PARTS));
    ExpectAtRest(FLOOD);
}

}}  // namespace volume
