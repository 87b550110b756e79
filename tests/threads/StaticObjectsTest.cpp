// Logging where there is no main yet, or no more: objects with static storage of a program, a library and a plug-in.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "ForeignPrograms.h"
#include "OwnLog.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

using Lines = std::vector<std::string>;

TEST(StaticObjectsTest, EveryOneIsHeardAsItIsMadeAndAsItGoes)
{
    if (!test::CanStart(LOGGING_PROGRAM))
        GTEST_SKIP() << test::CANNOT_START;
    test::ChildResult const result = test::RunInChild([] {
        execl(LOGGING_PROGRAM, LOGGING_PROGRAM, LOGGING_PLUGIN, static_cast<char*>(nullptr));
        FAIL() << "the program could not be started";
    });
    EXPECT_TRUE(result.exited) << "ended by signal " << result.code;
    EXPECT_EQ(0, result.code);
    EXPECT_EQ(
        "library is made\nprogram is made\n"
        "plug-in is made\nplug-in goes\n"
        "main returns\nprogram goes\nlibrary goes\nthis is all\n",
        result.output);
}

// True while the plug-in is in memory, for whatever reason.
bool IsLoaded(std::string const& plugin)
{
    void* const handle = dlopen((plugin + ".so").c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

// The lines wait while the plug-in goes out of memory, and with it its formats, its texts and the names of its files.
TEST(StaticObjectsTest, LinesOfAPluginOutliveIt)
{
    test::ExpectPassesInChild([] {
        test::OwnLog log(LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION);
        log.Hold();
        DynamicLibrary plugin;
        plugin.Load(LOGGING_PLUGIN);
        EXPECT_TRUE(IsLoaded(LOGGING_PLUGIN));
        plugin.Unload();
        ASSERT_FALSE(IsLoaded(LOGGING_PLUGIN)) << "what follows proves nothing";
        log.LetGo();
        Lines lines = log.Take();
        lines.erase(lines.begin());  // the one that held the sink
        EXPECT_EQ((Lines{"Info tests/helpers/LoggingObject.h:14 plug-in is made\n",
                         "Info tests/helpers/LoggingObject.h:20 plug-in goes\n"}),
                  lines);
    });
}

#ifdef HAS_UNIQUE_SYMBOLS

// For the sake of objects that are to be one for the process g++ lets a plug-in stay.
TEST(StaticObjectsTest, PluginWithSharedObjectsStaysInMemoryUnlessItIsBuiltToGo)
{
    test::ExpectPassesInChild([] {
        test::OwnLog log;
        DynamicLibrary plugin;
        plugin.Load(RESIDENT_PLUGIN);
        plugin.Unload();
        EXPECT_TRUE(IsLoaded(RESIDENT_PLUGIN));
        EXPECT_EQ(Lines{"plug-in is made\n"}, log.Take()) << "it has not gone";
    });
}

#endif

TEST(StaticObjectsTest, PluginMayComeAndGoAgainAndAgainWhileAnotherThreadLogs)
{
    test::ExpectPassesInChild([] {
        constexpr unsigned ROUNDS = 200;
        test::OwnLog log;
        std::atomic<bool> stop{false};
        std::thread other([&stop] {
            while (!stop) {
                TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s", "");  // an empty line reaches no sink
                std::this_thread::yield();
            }
        });
        for (unsigned round = 0; round < ROUNDS; ++round) {
            DynamicLibrary plugin;
            plugin.Load(LOGGING_PLUGIN);
        }
        stop = true;
        other.join();
        EXPECT_FALSE(IsLoaded(LOGGING_PLUGIN));
        Lines expected;
        for (unsigned round = 0; round < ROUNDS; ++round)
            expected.insert(expected.end(), {"plug-in is made\n", "plug-in goes\n"});
        EXPECT_EQ(expected, log.Take());
    });
}

}}}  // namespace tovu::util
