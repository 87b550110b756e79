// A log whose sink does not come back for a while.

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "OwnLog.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

constexpr unsigned LINES = 20000;
constexpr std::size_t LINE_SIZE = 1024;

std::string LineOf(unsigned number)
{
    std::string line = std::to_string(number) + " ";
    line.resize(LINE_SIZE, '.');
    return line;
}

// The memory that this process really has, in bytes.
std::size_t ResidentSize()
{
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(StalledLogTest, KeepsEveryLineInMemoryAndDeliversThemAllInTheEnd)
{
    test::ChildResult const result = test::RunInChild([] {
        test::OwnLog log;
        log.Hold();
        malloc_trim(0);  // or the lines would find room in what earlier cases have given back
        std::size_t const before = ResidentSize();
        for (unsigned line = 0; line < LINES; ++line)
            TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s", LineOf(line).c_str());
        std::size_t const grown = ResidentSize() - before;
        EXPECT_LE(LINES * LINE_SIZE, grown);
        std::printf("%u lines of %zu bytes behind a sink that is stuck take %zu KiB\n", LINES, LINE_SIZE, grown / 1024);

        log.LetGo();
        std::vector<std::string> const lines = log.Take();
        ASSERT_EQ(1 + LINES, lines.size()) << "with the one that held the sink";
        for (unsigned line = 0; line < LINES; ++line)
            ASSERT_EQ(LineOf(line), lines[1 + line]);
    });
    EXPECT_TRUE(result.exited && result.code == 0) << result.code;
    std::printf("%s", result.output.c_str());
}

}}}  // namespace tovu::util
