// Clients that are gone at once, at every point of a message and of its answer.

#include "FloodedService.h"

namespace volume { namespace {

constexpr char const* FLOOD = "resets";

class ResetTest : public FloodedService
{
protected:
    void SetUp() override
    {
        FloodedService::SetUp();
        if (!IsSkipped())
            StartAndWarmUp({});
    }

    void TearDown() override
    {
        if (IsSkipped())
            return;
        EXPECT_EQ("<Echo>alive</Echo>", Peer(Tcp()).Ask("<Echo>alive</Echo>"));
        ExpectAtRest(FLOOD);
        EXPECT_EQ("", FirstError()) << "a message is blamed for a client that has gone";
    }

private:
    std::string FirstError() const
    {
        std::string const log = "\n" + Log();
        std::string::size_type const error = log.find("\nError ");
        return error == std::string::npos ? std::string() : log.substr(error + 1, 200);
    }
};

TEST_F(ResetTest, AtEveryByteOfAMessage)
{
    unsigned resets = 0;
    unsigned const passes = ShortOrLong(5u, 50u);
    for (unsigned pass = 0; pass < passes; ++pass) {
        std::string const message = "<?xml version=\"1.0\"?><Echo a='b'>text<c/></Echo>" + std::string(1, '\0');
        for (std::size_t sent = 0; sent <= message.size(); ++sent, ++resets) {
            Peer peer(Tcp());
            EXPECT_TRUE(peer.Send(message.substr(0, sent)));
            peer.Reset();
        }
    }
    Tell(FLOOD, "at every byte of a message", std::to_string(resets), "the service lives");
}

TEST_F(ResetTest, AtEveryByteOfAShortAnswer)
{
    unsigned resets = 0;
    unsigned const passes = ShortOrLong(5u, 50u);
    for (unsigned pass = 0; pass < passes; ++pass) {
        std::string const message = "<Echo>text</Echo>" + std::string(1, '\0');
        for (std::size_t read = 0; read <= message.size(); ++read, ++resets) {
            Peer peer(Tcp());
            EXPECT_TRUE(peer.Send(message + message));
            EXPECT_TRUE(peer.Skip(read));
            peer.Reset();
        }
    }
    Tell(FLOOD, "at every byte of a short answer", std::to_string(resets), "the service lives");
}

// The answers are more than the buffers on the way take: the service has not written them all when the client goes.
TEST_F(ResetTest, WhileTheServiceWritesALongAnswer)
{
    constexpr unsigned QUESTIONS = 300;
    constexpr std::size_t STEP = 40001;
    std::string questions;
    for (unsigned i = 0; i < QUESTIONS; ++i)
        questions += "<MakeGuid count='1000'/>" + std::string(1, '\0');

    unsigned const resets = ShortOrLong(20u, 200u);
    for (unsigned i = 0; i < resets; ++i) {
        Peer peer(Tcp());
        EXPECT_TRUE(peer.Send(questions));
        EXPECT_TRUE(peer.Skip(i * STEP % (1 << 20)));
        peer.Reset();
    }
    EXPECT_TRUE(Eventually([&] { return CountInLog(" is left: its connection broke: ") == resets; }));
    Tell(FLOOD, "while the service writes, at points 40001 bytes apart", std::to_string(resets),
         "each is told in the log");
}

}}  // namespace volume
