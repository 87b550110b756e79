// A library of the program that ThreadsAndForkTest starts: it is there before the program's own objects and goes behind
// them. So it has the last word in the log, and waits until that is written.

#include "LoggingLibrary.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "../support/Latch.h"
#include "LoggingObject.h"
#include "tovu/util/Logger.h"

namespace {

using tovu::test::Latch;
using tovu::util::Logger;
using tovu::util::LoggerMgr;

char const* const LAST_LINE = "this is all\n";

Latch& LastLine()
{
    static Latch* const latch = new Latch;  // the log thread uses it until the process ends
    return *latch;
}

class Sink : public Logger
{
    void Log(std::string const& /*header*/, std::string const& message) override
    {
        if (write(STDOUT_FILENO, message.data(), message.size()) == -1)
            std::abort();
        if (message == LAST_LINE)
            LastLine().Arrive();
    }
};

struct LastWord
{
    LastWord() { LoggerMgr::Instance(); }
    LastWord(LastWord const&) = delete;
    LastWord& operator=(LastWord const&) = delete;

    ~LastWord()
    {
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s", LAST_LINE);
        if (!LastLine().WaitFor())
            std::abort();
    }
};

LastWord const lastWord;  // made first, so it goes last
LoggingObject const object("library");

}  // namespace

void StartLogging()
{
    LoggerMgr& manager = LoggerMgr::Instance();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
    manager.AddLogger(std::auto_ptr<Logger>(new Sink));
#pragma GCC diagnostic pop
    manager.Init("logging", LoggerMgr::LEVEL_INFO, 0, 0);
}
