#include "tovu/util/LoggerMgr.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <boost/thread/exceptions.hpp>
#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "Interposition.h"
#include "Latch.h"
#include "LatinLocale.h"
#include "MutexCalls.h"
#include "NoThreads.h"
#include "ParameterName.h"
#include "PrivateMember.h"
#include "Sanitizers.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

// The time that every thread reads while it is set.
std::atomic<std::time_t> stoppedTime{-1};

// The mutex that the calling thread held alone when it read the time last, of those that it took in a MutexCalls.
thread_local void const* mutexAtTime = nullptr;

// How the calling thread's waits for a condition go, and how often it woke others.
struct Conditions
{
    test::Latch* waiting;    ///< When set, told of each wait before it begins.
    unsigned spuriousWakes;  ///< So many waits end at once, for no reason.
    unsigned signals;
    unsigned broadcasts;
    bool neverWaits;  ///< A wait fails the test, instead of holding it up for ever.
};
thread_local Conditions conditions = {nullptr, 0, 0, 0, false};

// Thrown out of a wait that must not be.
struct WouldWait
{};

}}}  // namespace tovu::util

extern "C" time_t time(time_t* result) noexcept
{
    tovu::test::MutexCalls const* const calls = tovu::test::MutexCalls::Running();
    if (calls != nullptr && calls->Names() == "lock ")
        tovu::util::mutexAtTime = calls->All().front().mutex;
    timespec now = {tovu::util::stoppedTime, 0};
    if (now.tv_sec == -1)
        clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr)
        *result = now.tv_sec;
    return now.tv_sec;
}

extern "C" int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_wait)>("pthread_cond_wait");
    tovu::util::Conditions& conditions = tovu::util::conditions;
    if (conditions.neverWaits) {
        ADD_FAILURE() << "the thread waits for a line that nobody will log";
        throw tovu::util::WouldWait();
    }
    if (conditions.waiting != nullptr)
        conditions.waiting->Arrive();
    if (conditions.spuriousWakes == 0)
        return next(condition, mutex);
    --conditions.spuriousWakes;
    return 0;
}

extern "C" int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_signal)>("pthread_cond_signal");
    ++tovu::util::conditions.signals;
    return next(condition);
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast");
    ++tovu::util::conditions.broadcasts;
    return next(condition);
}

namespace tovu { namespace util { namespace {

using test::ExpectPassesInChild;
using test::Latch;
using test::MutexCalls;
using Entry = std::pair<std::string, std::string>;
using Texts = std::vector<std::string>;

static_assert(std::is_convertible<LoggerMgr*, Thread*>::value, "its own thread");
static_assert(std::is_convertible<LoggerMgr*, Singleton<LoggerMgr>*>::value, "one for the process");
static_assert(!std::is_copy_constructible<LoggerMgr>::value && !std::is_copy_assignable<LoggerMgr>::value, "one");
static_assert(std::is_same<decltype(std::declval<LoggerMgr&>().Deq()), Entry>::value, "header and message");

constexpr char const* FILE_NAME = "src/Volume.cpp";
constexpr unsigned LINE = 42;

// Stops the clock at a second that this test has to itself, in a time zone of its own.
class StoppedClock
{
public:
    explicit StoppedClock(std::time_t now, char const* zone = "UTC0")
    {
        char const* const before = std::getenv("TZ");
        hadZone_ = before != nullptr;
        before_ = hadZone_ ? before : "";
        SetZone(zone);
        SetTime(now);
    }

    StoppedClock(StoppedClock const&) = delete;
    StoppedClock& operator=(StoppedClock const&) = delete;

    ~StoppedClock()
    {
        stoppedTime = -1;
        if (hadZone_)
            SetZone(before_.c_str());
        else
            unsetenv("TZ");
        tzset();
    }

    static void SetTime(std::time_t now) { stoppedTime = now; }
    static void SetZone(char const* zone) { EXPECT_EQ(0, setenv("TZ", zone, 1)); }

private:
    bool hadZone_;
    std::string before_;
};

// Gives a manager its settings but no thread, so that the test itself takes the lines out.
void InitWithoutThread(LoggerMgr& manager, std::string const& name, unsigned level, unsigned flags)
{
    test::NoThreads noThreads;
    manager.Init(name, level, flags, 0);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
void AddLogger(LoggerMgr& manager, Logger* logger)
{
    std::auto_ptr<Logger> owner(logger);
    manager.AddLogger(owner);
    EXPECT_EQ(nullptr, owner.get()) << "the manager is the owner now";
}
#pragma GCC diagnostic pop

// The message that ends Run where a StopSink is among the sinks.
char const* const STOP = "stop";
struct Stopped
{};

// What the sinks of one manager tell, in order.
class Sink : public Logger
{
public:
    Sink(std::string const& name, Texts& events) : name_(name), events_(events) {}
    ~Sink() override { events_.push_back(name_ + " deleted"); }
    void Log(std::string const& header, std::string const& message) override
    {
        events_.push_back(name_ + ":" + header + "|" + message);
    }

private:
    std::string name_;
    Texts& events_;
};

class FunctionSink : public Logger
{
public:
    explicit FunctionSink(std::function<void(std::string const&)> action) : action_(std::move(action)) {}
    void Log(std::string const& /*header*/, std::string const& message) override { action_(message); }

private:
    std::function<void(std::string const&)> action_;
};

// Run leaves the thread only by an exception that is none of the standard's.
Logger* NewStopSink()
{
    return new FunctionSink([](std::string const& message) {
        if (message == STOP)
            throw Stopped();
    });
}

// The test's own thread takes out what it has put in before: it never has to wait.
class ManagerTest : public testing::Test
{
protected:
    ManagerTest() { conditions.neverWaits = true; }
    ~ManagerTest() override { conditions.neverWaits = false; }
};

class LoggerMgrTest : public ManagerTest
{
protected:
    LoggerMgrTest() : manager_(new LoggerMgr) {}

    void Add(std::string const& name) { AddLogger(*manager_, new Sink(name, events_)); }
    void Add(std::function<void(std::string const&)> const& action) { AddLogger(*manager_, new FunctionSink(action)); }

    void Log(std::string const& message) { manager_->Log(1, FILE_NAME, LINE, "%s", message.c_str()); }

    // Runs the manager on the calling thread until the lines logged so far have come through.
    void Deliver()
    {
        AddLogger(*manager_, NewStopSink());
        Log(STOP);
        EXPECT_THROW(manager_->Run(), Stopped);
    }

    // The header of a line, with these flags, of a manager that was named "volumed".
    static std::string HeaderFor(unsigned flags, unsigned level = LoggerMgr::LEVEL_WARNING)
    {
        LoggerMgr manager;
        InitWithoutThread(manager, "volumed", LoggerMgr::LEVEL_DEBUG, flags);
        manager.Log(level, FILE_NAME, LINE, "message");
        return manager.Deq().first;
    }

    Texts events_;
    std::unique_ptr<LoggerMgr> manager_;
};

struct LevelRow
{
    unsigned level;
    char const* name;
};

class LevelTest : public testing::TestWithParam<LevelRow>
{};

TEST_P(LevelTest, HasItsNameAndTheWayBack)
{
    EXPECT_EQ(GetParam().name, LoggerMgr::level2string(GetParam().level));
    EXPECT_EQ(GetParam().level, LoggerMgr::string2level(GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(Names, LevelTest,
                         testing::Values(LevelRow{1, "Error"}, LevelRow{2, "Warning"}, LevelRow{3, "Info"},
                                         LevelRow{4, "Debug"}));

class InvalidLevelTest : public testing::TestWithParam<unsigned>
{};

TEST_P(InvalidLevelTest, IsNamedInvalid)
{
    EXPECT_EQ("Invalid", LoggerMgr::level2string(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Numbers, InvalidLevelTest, testing::Values(0u, 5u, 6u, 256u, UINT_MAX));

class UnknownLevelNameTest : public testing::TestWithParam<char const*>
{};

TEST_P(UnknownLevelNameTest, IsLevelZero)
{
    EXPECT_EQ(0u, LoggerMgr::string2level(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownLevelNameTest,
                         testing::Values("", "Invalid", "error", "ERROR", "Err", "Error ", " Error", "Errors", "1"));

TEST_F(LoggerMgrTest, ConstantsAreTheNumbersThatProgramsWereBuiltWith)
{
    unsigned const levels[] = {LoggerMgr::LEVEL_ERROR, LoggerMgr::LEVEL_WARNING, LoggerMgr::LEVEL_INFO,
                               LoggerMgr::LEVEL_DEBUG};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(i + 1, levels[i]);

    unsigned const flags[] = {LoggerMgr::HEADER_BANNER, LoggerMgr::HEADER_LEVEL,   LoggerMgr::HEADER_TIME,
                              LoggerMgr::HEADER_HOST,   LoggerMgr::HEADER_NAME,    LoggerMgr::HEADER_PROCESS,
                              LoggerMgr::HEADER_THREAD, LoggerMgr::HEADER_LOCATION};
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(1u << i, flags[i]);
}

TEST_F(LoggerMgrTest, StartsWithThresholdZeroAndEmptyHeaders)
{
    EXPECT_EQ(0u, manager_->GetLevel());
    Log("message");
    EXPECT_EQ(Entry("", "message"), manager_->Deq());
}

TEST_F(LoggerMgrTest, InitSetsTheThreshold)
{
    InitWithoutThread(*manager_, "volumed", LoggerMgr::LEVEL_INFO, 0);
    EXPECT_EQ(3u, manager_->GetLevel());
}

TEST_F(LoggerMgrTest, LogItselfDoesNotTestTheThreshold)
{
    manager_->Log(LoggerMgr::LEVEL_DEBUG, FILE_NAME, LINE, "kept");
    manager_->Log(UINT_MAX, FILE_NAME, LINE, "kept as well");
    EXPECT_EQ("kept", manager_->Deq().second);
    EXPECT_EQ("kept as well", manager_->Deq().second);
}

TEST_F(LoggerMgrTest, DeqReturnsHeaderThenMessage)
{
    InitWithoutThread(*manager_, "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL);
    manager_->Log(LoggerMgr::LEVEL_ERROR, FILE_NAME, LINE, "message\n");
    EXPECT_EQ(Entry("Error ", "message\n"), manager_->Deq());
}

TEST_F(LoggerMgrTest, LinesComeOutInTheOrderTheyWentIn)
{
    for (int i = 0; i < 1000; ++i)
        Log(std::to_string(i));
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(std::to_string(i), manager_->Deq().second);
}

// Headers.

std::string ThreadText(pthread_t thread)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%p", reinterpret_cast<void*>(thread));
    return text;
}

std::string OwnHostName()
{
    char name[256] = "";
    EXPECT_EQ(0, gethostname(name, sizeof(name)));
    return name;
}

// Puts the values of this process in the place of their names.
std::string FillIn(std::string text)
{
    std::pair<char const*, std::string> const values[] = {{"{banner}", std::string(100, '*') + "\n"},
                                                          {"{time}", "Nov 14 22:13:20"},
                                                          {"{host}", OwnHostName()},
                                                          {"{process}", std::to_string(getpid())},
                                                          {"{thread}", ThreadText(pthread_self())}};
    for (auto const& value : values) {
        std::size_t const place = text.find(value.first);
        if (place != std::string::npos)
            text.replace(place, std::string(value.first).size(), value.second);
    }
    return text;
}

struct HeaderRow
{
    unsigned flags;
    char const* header;
};

class HeaderTest : public LoggerMgrTest, public testing::WithParamInterface<HeaderRow>
{
protected:
    StoppedClock clock_{1700000000};
};

TEST_P(HeaderTest, HasTheElementsOfItsFlags)
{
    EXPECT_EQ(FillIn(GetParam().header), HeaderFor(GetParam().flags));
}

// The blank of the ids stands there without ids too, and the last blank always.
INSTANTIATE_TEST_SUITE_P(
    Flags, HeaderTest,
    testing::Values(HeaderRow{0x00, ""},                                    //
                    HeaderRow{0x01, "{banner}  "},                          //
                    HeaderRow{0x02, "Warning "},                            //
                    HeaderRow{0x03, "{banner}  Warning "},                  //
                    HeaderRow{0x04, "{time}  "},                            //
                    HeaderRow{0x05, "{banner} {time}  "},                   //
                    HeaderRow{0x06, "{time}  Warning "},                    //
                    HeaderRow{0x08, "{host}  "},                            //
                    HeaderRow{0x0c, "{time} {host}  "},                     //
                    HeaderRow{0x10, "volumed  "},                           //
                    HeaderRow{0x18, "{host} volumed  "},                    //
                    HeaderRow{0x20, "[{process}] "},                        //
                    HeaderRow{0x21, "{banner} [{process}] "},               //
                    HeaderRow{0x22, "[{process}] Warning "},                //
                    HeaderRow{0x30, "volumed [{process}] "},                //
                    HeaderRow{0x40, "[{thread}] "},                         //
                    HeaderRow{0x50, "volumed [{thread}] "},                 //
                    HeaderRow{0x60, "[{process}:{thread}] "},               //
                    HeaderRow{0x80, " src/Volume.cpp:42 "},                 //
                    HeaderRow{0x81, "{banner}  src/Volume.cpp:42 "},        //
                    HeaderRow{0x82, "Warning src/Volume.cpp:42 "},          //
                    HeaderRow{0x86, "{time}  Warning src/Volume.cpp:42 "},  //
                    HeaderRow{0xa0, "[{process}] src/Volume.cpp:42 "},      //
                    HeaderRow{0xff, "{banner} {time} {host} volumed [{process}:{thread}] Warning src/Volume.cpp:42 "},
                    HeaderRow{0x100, " "},  // no element of its own, but not 0 either
                    HeaderRow{0x102, "Warning "}),
    [](testing::TestParamInfo<HeaderRow> const& row) { return "Flags" + std::to_string(row.param.flags); });

// The rule behind the table, for every combination.
TEST_F(LoggerMgrTest, HeaderOfEveryCombinationFollowsTheOneOrder)
{
    HeaderRow const leading[] = {{0x01, "{banner}"}, {0x04, "{time}"}, {0x08, "{host}"}, {0x10, "volumed"}};
    char const* const ids[] = {"", "[{process}]", "[{thread}]", "[{process}:{thread}]"};

    StoppedClock const clock(1700000000);
    for (unsigned flags = 1; flags <= 0xff; ++flags) {
        std::string expected;
        auto const append = [&](char const* element) {
            if (!expected.empty())
                expected += ' ';
            expected += element;
        };
        for (HeaderRow const& element : leading) {
            if ((flags & element.flags) != 0)
                append(element.header);
        }
        append(ids[flags >> 5 & 3]);
        if ((flags & 0x02) != 0)
            append("Warning");
        expected += (flags & 0x80) != 0 ? " src/Volume.cpp:42 " : " ";
        EXPECT_EQ(FillIn(expected), HeaderFor(flags)) << "flags " << flags;
    }
}

TEST_F(LoggerMgrTest, HeaderNamesTheLevelOfTheLine)
{
    for (unsigned level : {0u, 1u, 2u, 3u, 4u, 5u})
        EXPECT_EQ(LoggerMgr::level2string(level) + " ", HeaderFor(LoggerMgr::HEADER_LEVEL, level));
}

TEST_F(LoggerMgrTest, HostNameIsThatOfTheSockets)
{
    EXPECT_EQ(Socket::GetHostName() + "  ", HeaderFor(LoggerMgr::HEADER_HOST));
}

TEST_F(LoggerMgrTest, EmptyNameLeavesNoBlankOfItsOwn)
{
    InitWithoutThread(*manager_, "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_NAME);
    Log("message");
    EXPECT_EQ(" ", manager_->Deq().first);
}

TEST_F(LoggerMgrTest, NameKeepsAZeroByteInTheMiddle)
{
    std::string const name("a\0b", 3);
    InitWithoutThread(*manager_, name, LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_NAME);
    Log("message");
    EXPECT_EQ(name + "  ", manager_->Deq().first);
}

TEST_F(LoggerMgrTest, LongNameAndLongFileStandInTheHeaderWhole)
{
    std::string const name(5000, 'n');
    std::string const file(5000, 'f');
    InitWithoutThread(*manager_, name, 0, LoggerMgr::HEADER_NAME | LoggerMgr::HEADER_LOCATION);
    manager_->Log(1, file.c_str(), LINE, "message");
    EXPECT_EQ(name + "  " + file + ":42 ", manager_->Deq().first);
}

TEST_F(LoggerMgrTest, LocationIsThatOfPrintfForNoFileAndForAnyLine)
{
    InitWithoutThread(*manager_, "", 0, LoggerMgr::HEADER_LOCATION);
    manager_->Log(1, nullptr, 0, "message");
    EXPECT_EQ(" (null):0 ", manager_->Deq().first);
    manager_->Log(1, FILE_NAME, INT_MAX, "message");
    EXPECT_EQ(" src/Volume.cpp:2147483647 ", manager_->Deq().first);
    manager_->Log(1, FILE_NAME, UINT_MAX, "message");
    EXPECT_EQ(" src/Volume.cpp:-1 ", manager_->Deq().first);
    manager_->Log(1, FILE_NAME, unsigned{INT_MAX} + 1, "message");
    EXPECT_EQ(" src/Volume.cpp:-2147483648 ", manager_->Deq().first);
}

TEST_F(LoggerMgrTest, ThreadIdIsThatOfTheCaller)
{
    InitWithoutThread(*manager_, "", 0, LoggerMgr::HEADER_THREAD);
    std::string expected;
    std::thread([&] {
        expected = "[" + ThreadText(pthread_self()) + "] ";
        Log("message");
    }).join();
    EXPECT_EQ(expected, manager_->Deq().first);
}

TEST_F(LoggerMgrTest, ProcessIdIsThatOfTheCurrentProcess)
{
    InitWithoutThread(*manager_, "", 0, LoggerMgr::HEADER_PROCESS);
    Log("message");
    EXPECT_EQ("[" + std::to_string(getpid()) + "] ", manager_->Deq().first);
    ExpectPassesInChild([this] {
        Log("message");
        EXPECT_EQ("[" + std::to_string(getpid()) + "] ", manager_->Deq().first);
    });
}

TEST_F(LoggerMgrTest, TimeIsLocal)
{
    StoppedClock const clock(1700000001, "ABC-5:30");
    EXPECT_EQ("Nov 15 03:43:21  ", HeaderFor(LoggerMgr::HEADER_TIME));
}

TEST_F(LoggerMgrTest, TimeHasTwoDigitsInEachField)
{
    StoppedClock const clock(1704164645);
    EXPECT_EQ("Jan 02 03:04:05  ", HeaderFor(LoggerMgr::HEADER_TIME));
}

TEST_F(LoggerMgrTest, TimeGoesOnWhere32BitsEnd)
{
    StoppedClock const last(0x7FFFFFFF);
    EXPECT_EQ("Jan 19 03:14:07  ", HeaderFor(LoggerMgr::HEADER_TIME));
    StoppedClock const next(std::time_t{0x7FFFFFFF} + 1);
    EXPECT_EQ("Jan 19 03:14:08  ", HeaderFor(LoggerMgr::HEADER_TIME));
    StoppedClock const later(std::time_t{0xFFFFFFFF} + 1);
    EXPECT_EQ("Feb 07 06:28:16  ", HeaderFor(LoggerMgr::HEADER_TIME));
}

TEST_F(LoggerMgrTest, TimeIsThatOfTheCall)
{
    StoppedClock const clock(1700000020);
    InitWithoutThread(*manager_, "", 0, LoggerMgr::HEADER_TIME);
    for (std::time_t second : {20, 20, 21, 22, 20}) {
        StoppedClock::SetTime(1700000000 + second);
        Log("message");
        EXPECT_EQ("Nov 14 22:13:" + std::to_string(20 + second) + "  ", manager_->Deq().first);
    }
}

TEST_F(LoggerMgrTest, TimeOfAnotherThreadIsTheSame)
{
    StoppedClock const clock(1700000000);
    std::string header;
    std::thread([&] { header = HeaderFor(LoggerMgr::HEADER_TIME); }).join();
    EXPECT_EQ("Nov 14 22:13:20  ", header);
}

TEST_F(LoggerMgrTest, ChangedTimeZoneShowsFromTheNextSecondOn)
{
    StoppedClock const clock(1700000030);
    EXPECT_EQ("Nov 14 22:13:50  ", HeaderFor(LoggerMgr::HEADER_TIME));
    StoppedClock::SetZone("ABC+2");
    StoppedClock::SetTime(1700000031);
    EXPECT_EQ("Nov 14 20:13:51  ", HeaderFor(LoggerMgr::HEADER_TIME));
}

TEST_F(LoggerMgrTest, ChangedTimeZoneShowsWithinTheSecond)
{
    StoppedClock const clock(1700000032);
    std::pair<char const*, char const*> const zones[] = {{"UTC0", "Nov 14 22:13:52  "},  {"ABC+2", "Nov 14 20:13:52  "},
                                                         {"ABC+1", "Nov 14 21:13:52  "}, {"UTC0", "Nov 14 22:13:52  "},
                                                         {"ABC-1", "Nov 14 23:13:52  "}, {"", "Nov 14 22:13:52  "}};
    for (auto const& zone : zones) {
        StoppedClock::SetZone(zone.first);
        EXPECT_EQ(zone.second, HeaderFor(LoggerMgr::HEADER_TIME)) << zone.first;
        EXPECT_EQ(zone.second, HeaderFor(LoggerMgr::HEADER_TIME)) << zone.first;
    }
}

// The name of the month in the second is the beginning of that in the first.
TEST_F(LoggerMgrTest, ChangedLocaleShowsWithinTheSecond)
{
    test::LatinLocale const french("fr_FR");
    test::LatinLocale const swiss("fr_CH");
    if (!french.IsMade() || !swiss.IsMade())
        GTEST_SKIP() << "localedef makes no French locales on this machine";

    ExpectPassesInChild([&] {
        StoppedClock const clock(1700000035);
        EXPECT_EQ("Nov 14 22:13:55  ", HeaderFor(LoggerMgr::HEADER_TIME));
        french.Use();
        EXPECT_EQ("nov. 14 22:13:55  ", HeaderFor(LoggerMgr::HEADER_TIME));
        swiss.Use();
        EXPECT_EQ("nov 14 22:13:55  ", HeaderFor(LoggerMgr::HEADER_TIME));
        std::setlocale(LC_TIME, "C");
        EXPECT_EQ("Nov 14 22:13:55  ", HeaderFor(LoggerMgr::HEADER_TIME));
    });
}

// What localtime makes of the stopped second.
std::string LocalTime()
{
    std::time_t const now = stoppedTime;
    char text[100];
    std::strftime(text, sizeof(text), "%b %d %T", std::localtime(&now));
    return text;
}

TEST_F(LoggerMgrTest, TimeZoneThatIsTakenAwayIsThatOfTheSystemWithinTheSecond)
{
    StoppedClock const clock(1700000033, "ABC+7");
    EXPECT_EQ("Nov 14 15:13:53  ", HeaderFor(LoggerMgr::HEADER_TIME));
    unsetenv("TZ");
    EXPECT_EQ(LocalTime() + "  ", HeaderFor(LoggerMgr::HEADER_TIME));
    StoppedClock::SetZone("ABC+7");
    EXPECT_EQ("Nov 14 15:13:53  ", HeaderFor(LoggerMgr::HEADER_TIME));
}

// Names of zones that do not fit where the last one is kept, and one that does by a byte, which differ at their end.
TEST_F(LoggerMgrTest, TimeZoneOfAnyLengthShowsWithinTheSecond)
{
    StoppedClock const clock(1700000034);
    for (std::size_t letters : {96u, 97u, 98u, 200u, 97u}) {
        for (char const* offset : {"+3", "+4", "+3"}) {
            StoppedClock::SetZone((std::string(letters, 'Z') + offset).c_str());
            std::string const expected = LocalTime() + "  ";
            EXPECT_EQ(expected, HeaderFor(LoggerMgr::HEADER_TIME)) << letters << offset;
            EXPECT_EQ(expected, HeaderFor(LoggerMgr::HEADER_TIME)) << letters << offset;
        }
    }
}

// Messages.

std::string MessageOfSize(std::size_t size)
{
    std::string text;
    for (unsigned i = 0; text.size() < size; ++i)
        text += std::to_string(i) + ",";
    text.resize(size);
    return text;
}

TEST_F(LoggerMgrTest, MessageIsFormattedAsPrintfDoes)
{
    manager_->Log(1, FILE_NAME, LINE, "%s %d is %u%% full (0x%x)\n", "volume", 7, 93u, 31u);
    EXPECT_EQ("volume 7 is 93% full (0x1f)\n", manager_->Deq().second);
}

TEST_F(LoggerMgrTest, MessageKeepsAZeroByteInTheMiddle)
{
    manager_->Log(1, FILE_NAME, LINE, "a%cb", '\0');
    EXPECT_EQ(std::string("a\0b", 3), manager_->Deq().second);
}

class MessageSizeTest : public LoggerMgrTest, public testing::WithParamInterface<std::size_t>
{};

TEST_P(MessageSizeTest, MessageIsQueuedWhole)
{
    Log(MessageOfSize(GetParam()));
    EXPECT_EQ(MessageOfSize(GetParam()), manager_->Deq().second);
}

// Each pass starts from the first argument again: those behind the long one must not have been used up.
TEST_P(MessageSizeTest, ArgumentsBehindALongOneKeepTheirValues)
{
    std::string const text = MessageOfSize(GetParam());
    manager_->Log(1, FILE_NAME, LINE, "%d %s %u %lld %.1f %s %d %d", 1, text.c_str(), 2u, -3LL, 4.5, "end", 6, 7);
    EXPECT_EQ("1 " + text + " 2 -3 4.5 end 6 7", manager_->Deq().second);
}

INSTANTIATE_TEST_SUITE_P(AroundTheBufferAndItsDoubles, MessageSizeTest,
                         testing::Values(0u, 1u, 16383u, 16384u, 16385u, 32767u, 32768u, 40000u, 1000000u));

TEST_F(LoggerMgrTest, ConversionThatFailsEndsInBadAllocAndLeavesTheManagerUsable)
{
    if (test::MEMORY_IS_WATCHED || test::RunsUnderMemcheck())
        GTEST_SKIP() << "what watches the memory does not let it run out";

    ExpectPassesInChild([this] {
        rlimit const limit = {256u << 20, 256u << 20};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        std::setlocale(LC_ALL, "C");
        EXPECT_THROW(manager_->Log(1, FILE_NAME, LINE, "%ls", L"\u20ac"), std::bad_alloc);
        Log("the next line");
        EXPECT_EQ("the next line", manager_->Deq().second);
    });
}

// Sinks.

TEST_F(LoggerMgrTest, EachLineGoesToEverySinkInTheOrderTheyWereAdded)
{
    Add("first");
    Add("second");
    Add("third");
    Log("one");
    Log("two");
    events_.clear();
    Deliver();
    events_.resize(6);
    EXPECT_EQ((Texts{"first:|one", "second:|one", "third:|one", "first:|two", "second:|two", "third:|two"}), events_);
}

TEST_F(LoggerMgrTest, SinksGetTheHeaderAndTheMessage)
{
    InitWithoutThread(*manager_, "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION);
    Add("sink");
    Log("message\n");
    Deliver();
    EXPECT_EQ("sink:Error src/Volume.cpp:42 |message\n", events_.at(0));
}

TEST_F(LoggerMgrTest, EmptyMessageReachesNoSinkEvenWithAHeader)
{
    InitWithoutThread(*manager_, "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL);
    Add("sink");
    Log("");
    Log("message");
    Deliver();
    EXPECT_EQ("sink:Error |message", events_.at(0));
}

TEST_F(LoggerMgrTest, NullSinkChangesNothing)
{
    AddLogger(*manager_, nullptr);
    Add("sink");
    AddLogger(*manager_, nullptr);
    Log("message");
    Deliver();
    EXPECT_EQ("sink:|message", events_.at(0));
}

TEST_F(LoggerMgrTest, LinesWithoutAnySinkAreTakenOutOfTheQueue)
{
    Log("lost");
    Deliver();
    Log("the next line");
    EXPECT_EQ("the next line", manager_->Deq().second);
}

struct SinkFailure
{
    char const* name;
    void (*action)(std::string const&);
};

class FailingSinkTest : public LoggerMgrTest, public testing::WithParamInterface<SinkFailure>
{};

TEST_P(FailingSinkTest, LaterSinksGetTheSameLine)
{
    Add(GetParam().action);
    Add("later");
    Log("one");
    Log("two");
    Deliver();
    events_.resize(2);
    EXPECT_EQ((Texts{"later:|one", "later:|two"}), events_);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FailingSinkTest,
    testing::Values(SinkFailure{"Exception", [](std::string const&) { throw Exception("sink.cpp", 1, "full"); }},
                    SinkFailure{"RuntimeError", [](std::string const&) { throw std::runtime_error("full"); }},
                    SinkFailure{"BadAlloc", [](std::string const&) { throw std::bad_alloc(); }}),
    test::ParameterName());

TEST_F(LoggerMgrTest, FailingSinkLosesThatLineOnly)
{
    Texts kept;
    Add([&](std::string const& message) {
        if (message == "one")
            throw std::runtime_error("full");
        kept.push_back(message);
    });
    Log("one");
    Log("two");
    Deliver();
    kept.resize(1);
    EXPECT_EQ(Texts{"two"}, kept);
}

TEST_F(LoggerMgrTest, OtherExceptionsOfASinkAreNotCaught)
{
    Add([](std::string const&) { throw 7; });
    Add("later");
    Log("message");
    EXPECT_THROW(manager_->Run(), int);
    EXPECT_TRUE(events_.empty()) << "the later sink was not called";
}

TEST_F(LoggerMgrTest, SinkMayLogBecauseTheMutexIsNotHeld)
{
    Add([this](std::string const& message) {
        if (message == "outer")
            Log("inner");
    });
    Log("outer");
    Deliver();
    EXPECT_EQ("inner", manager_->Deq().second) << "it was queued behind the line that ended Run";
}

TEST_F(LoggerMgrTest, DestructorDeletesTheSinksInOrderAndLosesWhatIsQueued)
{
    Add("first");
    Add("second");
    Log("never delivered");
    manager_.reset();
    EXPECT_EQ((Texts{"first deleted", "second deleted"}), events_);
}

TEST_F(LoggerMgrTest, DestructorDeletesSinksThatHaveReceivedLines)
{
    Add("sink");
    Log("message");
    Deliver();
    manager_.reset();
    EXPECT_EQ("sink deleted", events_.back());
}

// Threads.

TEST_F(LoggerMgrTest, DeqBlocksUntilALineIsQueued)
{
    Latch waiting;
    Entry entry;
    std::thread consumer([&] {
        conditions.waiting = &waiting;
        entry = manager_->Deq();
        conditions.waiting = nullptr;
    });
    EXPECT_TRUE(waiting.WaitFor()) << "Deq did not wait";
    Log("message");
    consumer.join();
    EXPECT_EQ(Entry("", "message"), entry);
}

TEST_F(LoggerMgrTest, DeqWaitsOnAfterASpuriousWakeUp)
{
    Latch waiting;
    Entry entry;
    std::thread consumer([&] {
        conditions = {&waiting, 3, 0, 0, false};
        entry = manager_->Deq();
        conditions.waiting = nullptr;
    });
    EXPECT_TRUE(waiting.WaitFor(4)) << "Deq did not wait again";
    Log("message");
    consumer.join();
    EXPECT_EQ(Entry("", "message"), entry);
}

TEST_F(LoggerMgrTest, EachLineWakesOneWaiter)
{
    Conditions const before = conditions;
    Log("message");
    EXPECT_EQ(before.signals + 1, conditions.signals);
    EXPECT_EQ(before.broadcasts, conditions.broadcasts);
}

TEST_F(LoggerMgrTest, TwoWaitersGetOneLineEach)
{
    Latch waiting;
    Entry entries[2];
    std::vector<std::thread> consumers;
    for (Entry& entry : entries)
        consumers.emplace_back([&] {
            conditions.waiting = &waiting;
            entry = manager_->Deq();
            conditions.waiting = nullptr;
        });
    EXPECT_TRUE(waiting.WaitFor(2)) << "the threads did not wait";
    Log("message");
    Log("message");
    for (std::thread& consumer : consumers)
        consumer.join();
    EXPECT_EQ("message", entries[0].second);
    EXPECT_EQ("message", entries[1].second);
}

TEST_F(LoggerMgrTest, LinesOfManyThreadsStayWholeAndEachThreadsInOrder)
{
    constexpr std::size_t THREADS = 4;
    constexpr unsigned LINES = 300;
    std::string const payload = MessageOfSize(200);

    Texts received;
    Add([&](std::string const& message) { received.push_back(message); });
    AddLogger(*manager_, NewStopSink());
    std::thread consumer([this] { EXPECT_THROW(manager_->Run(), Stopped); });
    std::vector<std::thread> callers;
    for (std::size_t caller = 0; caller < THREADS; ++caller)
        callers.emplace_back([&, caller] {
            for (unsigned line = 0; line < LINES; ++line)
                manager_->Log(1, FILE_NAME, LINE, "%zu %u %s", caller, line, payload.c_str());
        });
    for (std::thread& caller : callers)
        caller.join();
    Log(STOP);
    consumer.join();

    ASSERT_EQ(THREADS * LINES + 1, received.size());
    received.pop_back();
    std::vector<unsigned> next(THREADS, 0);
    for (std::string const& message : received) {
        std::size_t const caller = static_cast<std::size_t>(message[0] - '0');
        ASSERT_LT(caller, THREADS) << message;
        ASSERT_EQ(std::to_string(caller) + " " + std::to_string(next[caller]++) + " " + payload, message);
    }
}

// The thread that Init starts never ends: it lives in a child process.

TEST_F(LoggerMgrTest, InitStartsTheThreadThatDelivers)
{
    ExpectPassesInChild([this] {
        Latch delivered;
        pid_t thread = 0;
        int priority = 0;
        cpu_set_t own;
        cpu_set_t processors;
        EXPECT_EQ(0, sched_getaffinity(0, sizeof(own), &own));
        Add([&](std::string const& /*message*/) {
            thread = gettid();
            priority = getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
            EXPECT_EQ(0, sched_getaffinity(0, sizeof(processors), &processors));
            delivered.Arrive();
        });
        manager_->Init("volumed", LoggerMgr::LEVEL_DEBUG, 0, 7);
        Log("message");

        ASSERT_TRUE(delivered.WaitFor()) << "the line was not delivered";
        EXPECT_NE(getpid(), thread);
        EXPECT_EQ(7, priority);
        EXPECT_TRUE(CPU_EQUAL(&own, &processors)) << "no processor was chosen";
        _exit(HasFailure() ? 1 : 0);
    });
}

TEST_F(LoggerMgrTest, LinesQueuedBeforeInitAreDeliveredAfterIt)
{
    ExpectPassesInChild([this] {
        Latch delivered;
        Texts received;
        Add([&](std::string const& message) {
            received.push_back(message);
            delivered.Arrive();
        });
        Log("one");
        Log("two");
        EXPECT_EQ(0u, delivered.Count());
        manager_->Init("volumed", LoggerMgr::LEVEL_DEBUG, 0, 0);

        ASSERT_TRUE(delivered.WaitFor(2)) << "the lines were not delivered";
        EXPECT_EQ((Texts{"one", "two"}), received);
        _exit(HasFailure() ? 1 : 0);
    });
}

TEST_F(LoggerMgrTest, ThreadThatCannotStartIsNotReportedByInit)
{
    test::NoThreads noThreads;
    EXPECT_NO_THROW(manager_->Init("volumed", LoggerMgr::LEVEL_INFO, LoggerMgr::HEADER_NAME, 0));
    Log("still queued");
    EXPECT_EQ(Entry("volumed  ", "still queued"), manager_->Deq());
}

TEST_F(LoggerMgrTest, UnknownExceptionOfASinkEndsTheProcess)
{
    test::ChildResult const result = test::RunInChild([this] {
        Add([](std::string const&) { throw 7; });
        manager_->Init("volumed", LoggerMgr::LEVEL_DEBUG, 0, 0);
        Log("message");
        Latch never;
        never.WaitFor();
    });
    EXPECT_FALSE(result.exited) << "status " << result.code;
    EXPECT_EQ(SIGABRT, result.code) << result.output;
}

// The mutex.

TEST_F(LoggerMgrTest, LogAndDeqHoldOneMutexFromBeginToEnd)
{
    MutexCalls const log([this] { manager_->Log(1, FILE_NAME, LINE, "message"); });
    MutexCalls const deq([this] { manager_->Deq(); });
    for (MutexCalls const* calls : {&log, &deq}) {
        ASSERT_FALSE(calls->All().empty());
        EXPECT_EQ("lock", calls->All().front().function);
        EXPECT_EQ("unlock", calls->All().back().function);
        EXPECT_EQ(log.All().front().mutex, calls->All().front().mutex);
        EXPECT_EQ(log.All().front().mutex, calls->All().back().mutex);
    }
}

TEST_F(LoggerMgrTest, MutexThatCannotBeLockedIsTheLockErrorOfBoost)
{
    MutexCalls::Failures const failures = {{"lock", {EINVAL}}};
    MutexCalls([this] { EXPECT_THROW(manager_->Log(1, FILE_NAME, LINE, "lost"), boost::lock_error); }, failures);
    Log("kept");
    MutexCalls([this] { EXPECT_THROW(manager_->Deq(), boost::lock_error); }, failures);
    EXPECT_EQ("kept", manager_->Deq().second);
}

TEST_F(LoggerMgrTest, InterruptedLockAndUnlockAreTriedAgain)
{
    MutexCalls::Failures const failures = {{"lock", {EINTR, EINTR}}, {"unlock", {EINTR}}};
    MutexCalls([this] { manager_->Log(1, FILE_NAME, LINE, "message"); }, failures);
    std::string message;
    MutexCalls([&] { message = manager_->Deq().second; }, failures);
    EXPECT_EQ("message", message);
}

TEST_F(LoggerMgrTest, MutexThatCannotBeMadeIsTheResourceErrorOfBoost)
{
    MutexCalls([] { EXPECT_THROW(LoggerMgr(), boost::thread_resource_error); }, {{"init", {EAGAIN}}});
}

// The one manager.

TEST_F(LoggerMgrTest, InstanceIsOneObject)
{
    EXPECT_EQ(&LoggerMgr::Instance(), &LoggerMgr::Instance());
}

TEST_F(LoggerMgrTest, InstanceIsNotDestroyedWhenTheProcessExits)
{
    struct Mortal : FunctionSink
    {
        Mortal() : FunctionSink(nullptr) {}
        ~Mortal() override { _exit(3); }
    };
    test::ChildResult const result = test::RunInChild([] {
        AddLogger(LoggerMgr::Instance(), new Mortal);
        std::exit(0);
    });
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(0, result.code) << result.output;
}

class LogMacroTest : public ManagerTest
{
protected:
    static void SetThreshold(unsigned level) { InitWithoutThread(LoggerMgr::Instance(), "", level, 0x80); }

    // The lines that the one manager has queued.
    static std::vector<Entry> Lines()
    {
        LoggerMgr::Instance().Log(1, "", 0, "%s", STOP);
        std::vector<Entry> lines;
        while (lines.empty() || lines.back().second != STOP)
            lines.push_back(LoggerMgr::Instance().Deq());
        lines.pop_back();
        return lines;
    }

    static Texts Messages()
    {
        Texts messages;
        for (Entry const& line : Lines())
            messages.push_back(line.second);
        return messages;
    }
};

class ThresholdTest : public LogMacroTest, public testing::WithParamInterface<unsigned>
{};

TEST_P(ThresholdTest, LevelsUpToTheThresholdAreKept)
{
    ExpectPassesInChild([] {
        SetThreshold(GetParam());
        Texts expected;
        for (unsigned level = 0; level <= 6; ++level) {
            TOVU_LOG(level, "%u", level);
            if (level <= GetParam())
                expected.push_back(std::to_string(level));
        }
        EXPECT_EQ(expected, Messages());
    });
}

INSTANTIATE_TEST_SUITE_P(Thresholds, ThresholdTest, testing::Range(0u, 6u));

TEST_F(LogMacroTest, NothingIsLoggedBeforeInit)
{
    ExpectPassesInChild([] {
        for (unsigned level = 1; level <= 5; ++level)
            TOVU_LOG(level, "%u", level);
        EXPECT_TRUE(Lines().empty());
    });
}

TEST_F(LogMacroTest, ArgumentsAreEvaluatedOnceAndOnlyWhenTheLineIsKept)
{
    ExpectPassesInChild([] {
        SetThreshold(LoggerMgr::LEVEL_WARNING);
        unsigned evaluations = 0;
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "%u", ++evaluations);
        EXPECT_EQ(0u, evaluations);
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "%u", ++evaluations);
        EXPECT_EQ(1u, evaluations);
        EXPECT_EQ(Texts{"1"}, Messages());
    });
}

TEST_F(LogMacroTest, LevelIsEvaluatedOnce)
{
    ExpectPassesInChild([] {
        SetThreshold(LoggerMgr::LEVEL_WARNING);
        unsigned level = 1;
        TOVU_LOG(level++, "kept");
        EXPECT_EQ(2u, level);
        TOVU_LOG(++level, "not kept");
        EXPECT_EQ(3u, level);
        EXPECT_EQ(Texts{"kept"}, Messages());
    });
}

TEST_F(LogMacroTest, PassesTheLevelOn)
{
    ExpectPassesInChild([] {
        InitWithoutThread(LoggerMgr::Instance(), "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_LEVEL);
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "message");
        EXPECT_EQ("Info ", Lines().at(0).first);
    });
}

TEST_F(LogMacroTest, RecordsTheFileAndLineOfTheCall)
{
    ExpectPassesInChild([] {
        SetThreshold(LoggerMgr::LEVEL_ERROR);
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%u", static_cast<unsigned>(__LINE__));
        Entry const line = Lines().at(0);
        EXPECT_EQ(" tests/LoggerMgrTest.cpp:" + line.second + " ", line.first);
    });
}

TEST_F(LogMacroTest, IsOneStatement)
{
    ExpectPassesInChild([] {
        SetThreshold(LoggerMgr::LEVEL_ERROR);
        for (bool choice : {true, false})
            if (choice)
                TOVU_LOG(LoggerMgr::LEVEL_ERROR, "yes");
            else
                TOVU_LOG(LoggerMgr::LEVEL_ERROR, "no");
        EXPECT_EQ((Texts{"yes", "no"}), Messages());
    });
}

TEST_F(LogMacroTest, TakesALevelOfAnyIntegerType)
{
    ExpectPassesInChild([] {
        SetThreshold(LoggerMgr::LEVEL_ERROR);
        TOVU_LOG(1, "%s\n", "int");
        TOVU_LOG(1ul, "%s\n", "long");
        EXPECT_EQ((Texts{"int\n", "long\n"}), Messages());
    });
}

// What it holds.

TOVU_PRIVATE_MEMBER(Name, std::string, LoggerMgr, name_);
TOVU_PRIVATE_MEMBER(Level, unsigned, LoggerMgr, level_);
TOVU_PRIVATE_MEMBER(Flags, unsigned, LoggerMgr, flags_);
TOVU_PRIVATE_MEMBER(Loggers, OwnerList<Logger>, LoggerMgr, loggers_);
TOVU_PRIVATE_MEMBER(Queue, std::list<Entry>, LoggerMgr, queue_);
TOVU_PRIVATE_MEMBER(QueueMutex, boost::mutex, LoggerMgr, mutex_);

TEST_F(LoggerMgrTest, KeepsNameLevelFlagsSinksAndQueue)
{
    InitWithoutThread(*manager_, "volumed", 3, 0x86);
    Add("sink");
    Log("message");
    EXPECT_EQ("volumed", Name::Of(*manager_));
    EXPECT_EQ(3u, Level::Of(*manager_));
    EXPECT_EQ(0x86u, Flags::Of(*manager_));
    EXPECT_EQ(1u, Loggers::Of(*manager_).size());
    EXPECT_EQ("message", Queue::Of(*manager_).front().second);
}

TEST_F(LoggerMgrTest, LogTakesTheMutexOfTheQueue)
{
    MutexCalls const calls([this] { manager_->Log(1, FILE_NAME, LINE, "message"); });
    EXPECT_EQ(static_cast<void const*>(&QueueMutex::Of(*manager_)), calls.All().at(0).mutex);
}

// Otherwise the times of the lines would not be in the order of the queue.
TEST_F(LoggerMgrTest, TimeIsReadUnderTheMutexOfTheQueue)
{
    InitWithoutThread(*manager_, "", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_TIME);
    mutexAtTime = nullptr;
    MutexCalls const calls([this] { Log("message"); });
    EXPECT_EQ(static_cast<void const*>(&QueueMutex::Of(*manager_)), mutexAtTime);
}

TEST_F(LoggerMgrTest, SinksAreAddedWithoutALock)
{
    MutexCalls const calls([this] { Add("sink"); });
    EXPECT_EQ("", calls.Names());
}

}}}  // namespace tovu::util
