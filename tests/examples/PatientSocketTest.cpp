#include "volumed/PatientSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
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

    // What comes until the other side has shut down, however often a signal interrupts it.
    static std::string ReceiveAll(int descriptor)
    {
        std::string bytes;
        char block[1 << 16];
        for (;;) {
            ssize_t const count = recv(descriptor, block, sizeof(block), 0);
            if (count > 0)
                bytes.append(block, static_cast<std::size_t>(count));
            else if (count == 0 || errno != EINTR)
                return bytes;
        }
    }

    tovu::test::ConnectedPair pair_ = tovu::test::ConnectLocalPair();
    std::atomic<bool> stopping_{false};
    PatientSocket socket_{*pair_.near, stopping_};
};

TEST_F(PatientSocketTest, WritesAllOfItsBytesAsThereIsRoomForThem)
{
    std::string const bytes(4 << 20, 'x');
    auto reader = std::async(std::launch::async, [&] { return ReceiveAll(pair_.far->GetDescriptor()); });
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
