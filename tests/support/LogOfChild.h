#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "ChildProcess.h"
#include "Latch.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// The lines that `action` logs, each with its header (0x82: the level's name and the location), in a child process
/// whose log manager has this threshold. For a program that does not initialise the manager itself.
inline std::string LogOf(unsigned threshold, std::function<void()> const& action)
{
    static std::string const MARK = "everything before this line has been printed";
    static Latch done;  // in use until the process ends

    class PrintingLogger : public util::Logger
    {
        void Log(std::string const& header, std::string const& message) override
        {
            if (message == MARK)
                done.Arrive();
            else
                std::printf("%s%s", header.c_str(), message.c_str());
        }
    };

    ChildResult const result = RunInChild([&] {
        util::LoggerMgr& manager = util::LoggerMgr::Instance();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
        manager.AddLogger(std::auto_ptr<util::Logger>(new PrintingLogger));
#pragma GCC diagnostic pop
        manager.Init("test", threshold, util::LoggerMgr::HEADER_LEVEL | util::LoggerMgr::HEADER_LOCATION, 0);
        action();
        manager.Log(util::LoggerMgr::LEVEL_ERROR, "", 0, "%s", MARK.c_str());
        EXPECT_TRUE(done.WaitFor()) << "the mark in the log";
    });
    EXPECT_TRUE(result.exited && result.code == 0) << result.output;
    return result.output;
}

}}  // namespace tovu::test
