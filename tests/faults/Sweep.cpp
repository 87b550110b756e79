#include "Sweep.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/thread/exceptions.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include "Census.h"
#include "ErrorLists.h"
#include "FaultLog.h"
#include "FaultTable.h"
#include "Throws.h"
#include "tovu/util/Exception.h"

namespace tovu { namespace test {

namespace {

using util::Exception;

constexpr unsigned MAXIMUM_CALLS = 100000;  // of one function in one run

// What is told when the watchdog barks.
char _underWay[256] = "";

void Bark(int /*signal*/)
{
    char const* const words = "this run does not end: ";
    static_cast<void>(!::write(STDERR_FILENO, words, std::strlen(words)));
    static_cast<void>(!::write(STDERR_FILENO, _underWay, std::strlen(_underWay)));
    static_cast<void>(!::write(STDERR_FILENO, "\n", 1));
    _exit(3);
}

void WatchOver(Scenario const& scenario, Fault const& fault)
{
    std::snprintf(_underWay, sizeof(_underWay), "%s, kind %d of %s, call %u, error %d", scenario.name.c_str(),
                  static_cast<int>(fault.kind), NameOf(fault.call), fault.nth, fault.error);
    std::signal(SIGALRM, &Bark);
    alarm(WATCHDOG_SECONDS);
}

void DescribeException(Exception const& exception, Text& out)
{
    out << "Exception '";
    out.Append(exception.what()).Append("'");
    for (Exception::Location const& location : exception.locations) {
        out << location.file;
        out.Append(":");
        Text line;
        line << location.line;
        out.Append(line.Get());
    }
}

}  // namespace

void DescribeCaught(Text& out)
{
    out.Clear();
    try {
        throw;
    } catch (Exception const& exception) {
        DescribeException(exception, out);
    } catch (boost::lock_error const&) {
        out << "boost::lock_error";
    } catch (boost::condition_error const&) {
        out << "boost::condition_error";
    } catch (boost::thread_resource_error const&) {
        out << "boost::thread_resource_error";
    } catch (std::bad_alloc const&) {
        out << "std::bad_alloc";
    } catch (std::runtime_error const& exception) {
        out << "std::runtime_error" << exception.what();
    } catch (std::exception const& exception) {
        out << "std::exception" << exception.what();
    } catch (xercesc::OutOfMemoryException const&) {
        out << "xercesc::OutOfMemoryException";
    } catch (xercesc::XMLException const&) {
        out << "xercesc::XMLException";
    } catch (xercesc::DOMException const&) {
        out << "xercesc::DOMException";
    } catch (...) {
        out << "something";
    }
}

namespace {

// A child process that nobody waits for any more.
void ReapChildren()
{
    while (waitpid(-1, nullptr, 0) > 0)
        continue;
}

void Perform(Scenario const& scenario, Run& run)
{
    WatchOver(scenario, run.fault);
    run.out.Clear();
    try {
        scenario.run(run);
    } catch (...) {
        DescribeCaught(run.out);
    }
    ReapChildren();
    FaultLog::Take(run.out);
    alarm(0);
}

std::string Describe(Scenario const& scenario, Fault const& fault)
{
    static char const* const kinds[] = {"", "failure", "one byte", "half"};
    if (fault.kind == Fault::NONE)
        return scenario.name + " without a fault";
    return scenario.name + ", " + kinds[fault.kind] + " of call " + std::to_string(fault.nth) + " of " +
           NameOf(fault.call) + ", error " + std::to_string(fault.error);
}

// Performs a run and checks that it leaves nothing behind. What the C library makes once and keeps (a resolver's state,
// a stack for the next thread) shows in the first run of its kind, so memory counts when a second run takes more of it.
bool PerformWholly(Scenario const& scenario, Run& run)
{
    bool const withParser = run.fault.kind != Fault::FAIL || run.fault.call != Call::malloc;
    Census before = Census::Take();
    Perform(scenario, run);
    Census after = Census::Await(before);
    for (unsigned again = 0; again < 2 && before.HasTheResourcesOf(after) && !before.HasTheMemoryOf(after, withParser);
         ++again) {
        before = Census::Take();
        Perform(scenario, run);
        after = Census::Await(before);
    }
    bool const wholly = before.HasTheResourcesOf(after) && before.HasTheMemoryOf(after, withParser);
    EXPECT_TRUE(wholly) << Describe(scenario, run.fault) << " has left something behind: " << Difference(before, after);
    return wholly;
}

std::string ErrorText(Fault const& fault)
{
    if (fault.kind != Fault::FAIL)
        return ErrnoText(fault.call == Call::fread || fault.call == Call::fwrite ? EIO : 0);
    return ErrnoText(fault.error < 0 ? ERRNO_OF_RESOLVER : fault.error);
}

std::string FillIn(std::string text, char const* place, std::string const& value)
{
    std::string::size_type at = 0;
    while ((at = text.find(place, at)) != std::string::npos) {
        text.replace(at, 2, value);
        at += value.size();
    }
    return text;
}

bool EndsASource(char const* from, char const* end)
{
    std::string const text(from, end);
    auto const endsIn = [&text](std::string const& ending) {
        return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
    };
    return endsIn(".cpp") || endsIn(".h");
}

// A source without a line number in `expected` stands for any line, and a "*" for any text up to what follows it.
bool Matches(std::string const& expected, char const* actual)
{
    char const* const start = expected.c_str();
    char const* next = start;
    for (;;) {
        if (*actual == ':' && *next != ':' && EndsASource(start, next)) {
            ++actual;
            actual += std::strspn(actual, "0123456789");
        }
        if (*next == '*') {
            ++next;
            actual = *next == '\0' ? actual + std::strlen(actual) : std::strchr(actual, *next);
            if (actual == nullptr)
                return false;
        }
        if (*next != *actual)
            return false;
        if (*next == '\0')
            return true;
        ++next;
        ++actual;
    }
}

std::string TextOf(Scenario const& scenario, Expected const& expected, Fault const& fault)
{
    std::string const& text = expected.kind == Expected::IGNORED ? scenario.clean : expected.text;
    return FillIn(FillIn(text + expected.log, "%E", ErrorText(fault)), "%N", std::to_string(fault.error));
}

// Runs once without a fault, twice before that for what is made once and kept, and returns how often each function was
// called.
std::vector<unsigned> CountCalls(Scenario const& scenario)
{
    if (!scenario.comesBeforeTheLog)
        FaultLog::Install();
    CountParserPieces();
    Run run = {{Fault::NONE, Call::accept, 0, 0}, {}};
    Perform(scenario, run);
    Perform(scenario, run);
    PerformWholly(scenario, run);
    EXPECT_TRUE(Matches(scenario.clean, run.out.Get())) << scenario.name << " without a fault: " << run.out.Get();

    std::vector<unsigned> calls(CALL_COUNT);
    for (std::size_t i = 0; i < CALL_COUNT; ++i)
        calls[i] = FaultScope::CountOf(static_cast<Call>(i));
    return calls;
}

std::vector<int> ErrorsOf(Scenario const& scenario, Rule const& rule)
{
    if (rule.kind != Fault::FAIL)
        return {0};
    if (!rule.errors.empty())
        return rule.errors;

    std::vector<int> errors = test::ErrorsOf(rule.call);
    for (Rule const& other : scenario.rules) {
        if (other.call != rule.call || other.kind != Fault::FAIL)
            continue;
        for (int const error : other.errors)
            errors.erase(std::remove(errors.begin(), errors.end(), error), errors.end());
    }
    return errors;
}

// One error of one rule: call after call, until a run in which there are not so many.
void SweepRule(Scenario const& scenario, Rule const& rule, int error, FaultRow& row)
{
    row.errors.insert(error);
    for (unsigned nth = 1; !testing::Test::HasFatalFailure(); ++nth) {
        if (nth <= rule.calls.size() && rule.calls[nth - 1].kind == Expected::UNTRIED)
            continue;
        Run run = {{rule.kind, rule.call, nth, error}, {}};
        bool const wholly = PerformWholly(scenario, run);
        if (!FaultScope::HasHappened()) {
            EXPECT_EQ(rule.calls.size() + 1, nth) << Describe(scenario, run.fault) << ": not as many calls as expected";
            EXPECT_TRUE(Matches(scenario.clean, run.out.Get()))
                << Describe(scenario, run.fault) << ": " << run.out.Get();
            return;
        }
        ASSERT_LE(nth, rule.calls.size()) << Describe(scenario, run.fault) << ": more calls than expected";

        Expected const& expected = rule.calls[nth - 1];
        std::string const text = TextOf(scenario, expected, run.fault);
        bool const matches = Matches(text, run.out.Get());
        EXPECT_TRUE(matches) << Describe(scenario, run.fault) << "\n  expected: " << text
                             << "\n  came to:  " << run.out.Get();
        ++row.faults;
        if (matches && wholly)
            row.Count(expected.kind, !expected.log.empty());
        else
            ++row.other;
    }
}

bool IsOutOfMemory(std::string const& text)
{
    return text == "std::bad_alloc" || text == "xercesc::OutOfMemoryException";
}

// The outcome without what was logged on the way.
std::string WithoutLog(std::string const& text)
{
    return text.substr(0, text.find("; "));
}

void JudgeWithoutMemory(Scenario const& scenario, Run const& run, bool wholly, FaultRow& row)
{
    std::string const text = WithoutLog(run.out.Get());
    bool const documented = std::any_of(scenario.withoutMemory.begin(), scenario.withoutMemory.end(),
                                        [&](std::string const& other) { return Matches(other, text.c_str()); });
    ++row.faults;
    if (!wholly)
        ++row.other;
    else if (IsOutOfMemory(text))
        ++row.exceptions;
    else if (Matches(WithoutLog(scenario.clean), text.c_str()))
        ++row.ignored;
    else if (documented)
        ++(text.compare(0, 9, "Exception") == 0 ? row.exceptions : row.answers);
    else
        ++row.other;
    EXPECT_TRUE(IsOutOfMemory(text) || documented || Matches(WithoutLog(scenario.clean), text.c_str()))
        << Describe(scenario, run.fault) << " came to: " << run.out.Get();
}

}  // namespace

void SweepErrors(Scenario const& scenario)
{
    std::vector<unsigned> const calls = CountCalls(scenario);
    for (std::size_t i = 0; i < CALL_COUNT; ++i) {
        Call const call = static_cast<Call>(i);
        bool const known = std::any_of(scenario.rules.begin(), scenario.rules.end(),
                                       [call](Rule const& rule) { return rule.call == call; });
        EXPECT_TRUE(known || calls[i] == 0 || !NeedsRule(call))
            << scenario.name << " calls " << NameOf(call) << ", and nothing is said about its failure";
        EXPECT_TRUE(!known || calls[i] != 0) << scenario.name << " never calls " << NameOf(call);
    }

    for (Rule const& rule : scenario.rules) {
        FaultRow& row = RowOf(scenario.name, NameOf(rule.call), calls[static_cast<std::size_t>(rule.call)]);
        for (int const error : ErrorsOf(scenario, rule))
            SweepRule(scenario, rule, error, row);
    }
}

void SweepAllocations(Scenario const& scenario)
{
    std::vector<unsigned> const calls = CountCalls(scenario);
    FaultRow& row = RowOf(scenario.name, "malloc", calls[static_cast<std::size_t>(Call::malloc)]);
    row.errors.insert(ENOMEM);
    for (unsigned nth = 1; nth < MAXIMUM_CALLS; ++nth) {
        Run run = {{Fault::FAIL, Call::malloc, nth, ENOMEM}, {}};
        bool const wholly = PerformWholly(scenario, run);
        if (!FaultScope::HasHappened()) {
            EXPECT_TRUE(Matches(scenario.clean, run.out.Get()))
                << Describe(scenario, run.fault) << ": " << run.out.Get();
            return;
        }
        JudgeWithoutMemory(scenario, run, wholly, row);
    }
    ADD_FAILURE() << scenario.name << " never runs without a fault";
}

}}  // namespace tovu::test
