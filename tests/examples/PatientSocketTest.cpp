#include "volumed/PatientSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include "Interruptions.h"
#include "PipePair.h"
#include "Sockets.h"

namespace volume { namespace {

class PatientSocketTest : public testing::Test
{
protected:
    PatientSocketTest() { pair_.near->SetBlocking(false); }

    // What Write throws.
    std::string FailureToWrite(std::string const& bytes)
    {
        try {
            socket_.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        } catch (AnswerNotTaken const& failure) {
            return failure.reason;
        }
        return "nothing";
    }

    tovu::test::ConnectedPair pair_ = tovu::test::ConnectLocalPair();
    std::atomic<bool> stopping_{false};
    PatientSocket socket_{*pair_.near, stopping_};
};

TEST_F(PatientSocketTest, WritesAllOfItsBytesAsThereIsRoomForThem)
{
    std::string const bytes(4 << 20, 'x');
    auto reader = std::async(std::launch::async, [&] {
        std::string taken(bytes.size(), '\0');
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  recv(pair_.far->GetDescriptor(), &taken[0], taken.size(), MSG_WAITALL));
        char more = 0;
        EXPECT_EQ(0, pair_.far->Read(&more, 1)) << "there is a byte too many";
        return taken;
    });
    EXPECT_EQ(static_cast<int>(bytes.size()), socket_.Write(bytes.data(), static_cast<unsigned>(bytes.size())));
    EXPECT_EQ(bytes.size(), socket_.GetCount());
    shutdown(pair_.near->GetDescriptor(), SHUT_WR);
    EXPECT_TRUE(bytes == reader.get());
}

// More signals than it has waits, each of which is ended by one.
TEST_F(PatientSocketTest, SignalsDoNotUseUpItsPatience)
{
    tovu::test::FillUp(pair_.near->GetDescriptor());
    pair_.near->SetBlocking(false);
    tovu::test::Interruptions const interruptions(1000);
    auto const reader = std::async(std::launch::async, [&] {
        while (tovu::test::Interruptions::Count() < 500)
            std::this_thread::yield();
        tovu::test::Drain(pair_.far->GetDescriptor());
    });
    EXPECT_EQ("nothing", FailureToWrite("x"));
}

TEST_F(PatientSocketTest, StopsWithTheService)
{
    tovu::test::FillUp(pair_.near->GetDescriptor());
    pair_.near->SetBlocking(false);
    auto const stop = std::async(std::launch::async, [&] { stopping_ = true; });
    EXPECT_EQ("the service stops", FailureToWrite("x"));
}

TEST_F(PatientSocketTest, TellsOfAConnectionThatBreaks)
{
    pair_.far->Close();
    EXPECT_EQ("its connection broke: Broken pipe", FailureToWrite("x"));
}

}}  // namespace volume
