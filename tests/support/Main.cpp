// The main function of every test program: the Xerces platform lives as long as the tests, as it does in a server.

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <xercesc/util/PlatformUtils.hpp>

#include "Interruptions.h"

namespace tovu { namespace test { namespace {

// Interrupts each case all the time, see tools/interrupt. Cases that have interruptions of their own end these.
class InterruptEveryTest : public testing::EmptyTestEventListener
{
    void OnTestStart(testing::TestInfo const& /*test*/) override { interruptions_.reset(new Interruptions(1000)); }
    void OnTestEnd(testing::TestInfo const& /*test*/) override { interruptions_.reset(); }

    std::unique_ptr<Interruptions> interruptions_;
};

}}}  // namespace tovu::test

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);            // a write to a closed pipe or connection is to fail with EPIPE
    xercesc::XMLPlatformUtils::Initialize();  // first: the parameters of tests may hold what the parser makes
    testing::InitGoogleTest(&argc, argv);
    if (tovu::test::Interruptions::AreWanted())
        testing::UnitTest::GetInstance()->listeners().Append(new tovu::test::InterruptEveryTest);
    int const result = RUN_ALL_TESTS();
    xercesc::XMLPlatformUtils::Terminate();
    return result;
}
