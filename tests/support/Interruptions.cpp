#include "Interruptions.h"

#include <gtest/gtest.h>

namespace tovu { namespace test {

namespace {

std::atomic<unsigned> count{0};

void CountSignal(int /*signal*/)
{
    ++count;
}

void SetTimer(long microseconds)
{
    itimerval timer = {};
    timer.it_interval.tv_usec = microseconds;
    timer.it_value.tv_usec = microseconds;
    EXPECT_EQ(0, setitimer(ITIMER_REAL, &timer, nullptr));
}

}  // namespace

Interruptions::Interruptions(long microseconds) : before_()
{
    count = 0;
    struct sigaction action = {};
    action.sa_handler = &CountSignal;
    EXPECT_EQ(0, sigaction(SIGALRM, &action, &before_));
    SetTimer(microseconds);
}

Interruptions::~Interruptions()
{
    SetTimer(0);
    // A signal that is still on its way must not meet the default action, which ends the process.
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    EXPECT_EQ(0, sigaction(SIGALRM, &ignore, nullptr));
    EXPECT_EQ(0, sigaction(SIGALRM, &before_, nullptr));
}

unsigned Interruptions::Count()
{
    return count;
}

}}  // namespace tovu::test
