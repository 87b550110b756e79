#include "Interruptions.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tovu { namespace test {

namespace {

std::atomic<unsigned> count{0};

void CountSignal(int /*signal*/)
{
    ++count;
}

void HandleWith(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    EXPECT_EQ(0, sigaction(SIGALRM, &action, nullptr));
}

void SetTimer(long microseconds)
{
    itimerval timer = {};
    timer.it_interval.tv_usec = microseconds;
    timer.it_value.tv_usec = microseconds;
    EXPECT_EQ(0, setitimer(ITIMER_REAL, &timer, nullptr));
}

}  // namespace

Interruptions::Interruptions(long microseconds)
{
    count = 0;
    HandleWith(&CountSignal);
    SetTimer(microseconds);
}

Interruptions::~Interruptions()
{
    End();
}

void Interruptions::End()
{
    SetTimer(0);
    HandleWith(SIG_IGN);  // forgets a signal that is still on its way
    // A thread that was chosen already may take its signal later yet, when it runs again. The handler stays for that: the
    // default action would end the process.
    HandleWith(&CountSignal);
}

unsigned Interruptions::Count()
{
    return count;
}

bool Interruptions::AreWanted()
{
    return std::getenv("TOVU_TEST_INTERRUPT") != nullptr;
}

}}  // namespace tovu::test
