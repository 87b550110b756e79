#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "VirtualSlots.h"
#include "tovu/db/DB.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileLogger.h"
#include "tovu/util/JobQueue.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Thread.h"
#include "tovu/util/XercesUtils.h"

// The order of the virtual operations: programs that were built with an older header call them by their numbers. The
// streams have a file of their own.

namespace tovu { namespace util { namespace {

using test::ANY;
using test::ExpectSlots;
using test::Noting;
using test::SlotOf;

// ---- Foundation.

class NotingException : public Noting<Exception>
{
public:
    NotingException() : Noting("source.cpp", 1, "message") {}
    char const* what() const noexcept override
    {
        Note("what");
        return "";
    }
};

TEST(AbiSlotsTest, ExceptionHasWhat)
{
    ExpectSlots<NotingException>({SlotOf<char const*>("what")});
}

template <typename Base>
class NotingThread : public Noting<Base>
{
public:
    using Noting<Base>::Noting;
    void Run() override { this->Note("Run"); }
};

TEST(AbiSlotsTest, ThreadHasRun)
{
    ExpectSlots<NotingThread<Thread>>({SlotOf<void>("Run")});
}

TEST(AbiSlotsTest, LoggerMgrHasTheOperationsOfAThread)
{
    ExpectSlots<NotingThread<LoggerMgr>>({SlotOf<void>("Run")});
}

template <typename Base>
class NotingLogger : public Noting<Base>
{
public:
    using Noting<Base>::Noting;
    void Log(std::string const& /*header*/, std::string const& /*message*/) override { this->Note("Log"); }
};

TEST(AbiSlotsTest, LoggerHasLog)
{
    ExpectSlots<NotingLogger<Logger>>({SlotOf<void>("Log", ANY, ANY)});
}

class NotingFileLogger : public NotingLogger<FileLogger>
{
public:
    NotingFileLogger() : NotingLogger("text") {}
};

TEST(AbiSlotsTest, FileLoggerHasTheOperationsOfALogger)
{
    ExpectSlots<NotingFileLogger>({SlotOf<void>("Log", ANY, ANY)});
}

// ---- XML messages.

class NotingHandler : public Noting<XercesErrorHandler>
{
public:
    void warning(xercesc::SAXParseException const& /*exception*/) override { Note("warning"); }
    void error(xercesc::SAXParseException const& /*exception*/) override { Note("error"); }
    void fatalError(xercesc::SAXParseException const& /*exception*/) override { Note("fatalError"); }
    void resetErrors() override { Note("resetErrors"); }
};

TEST(AbiSlotsTest, XercesErrorHandlerHasTheParsersOperations)
{
    ExpectSlots<NotingHandler>({SlotOf<void>("warning", ANY), SlotOf<void>("error", ANY),
                                SlotOf<void>("fatalError", ANY), SlotOf<void>("resetErrors")});
}

class NotingProcessor : public Noting<MessageProcessor>
{
public:
    unsigned ParseMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/) const override
    {
        return Note("ParseMessage");
    }
    bool IsValidMessage(std::string const& /*name*/) const override { return Note("IsValidMessage"); }
    void HandleMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& /*element*/) const override
    {
        Note("HandleMessage");
    }
    void HandleError(int /*code*/, Stream& /*stream*/, unsigned char const* /*data*/,
                     unsigned /*length*/) const override
    {
        Note("HandleError");
    }
    ByteSpan GetDelimiter() const override
    {
        Note("GetDelimiter");
        return ByteSpan();
    }
};

TEST(AbiSlotsTest, MessageProcessorHasItsHooks)
{
    ExpectSlots<NotingProcessor>({SlotOf<unsigned>("ParseMessage", ANY, ANY, 0u), SlotOf<bool>("IsValidMessage", ANY),
                                  SlotOf<void>("HandleMessage", ANY, ANY, 0u, ANY),
                                  SlotOf<void>("HandleError", 0, ANY, ANY, 0u),
                                  SlotOf<MessageProcessor::ByteSpan>("GetDelimiter")});
}

class NotingBroadcastProcessor : public Noting<BroadcastMessageProcessor>
{
public:
    typedef Socket::Address Address;

    void ParseMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                      Address const& /*sender*/) const override
    {
        Note("ParseMessage");
    }
    bool IsValidMessage(std::string const& /*name*/) const override { return Note("IsValidMessage"); }
    void HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& /*element*/, Address const& /*sender*/) const override
    {
        Note("HandleMessage");
    }
    void HandleError(int /*code*/, ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/,
                     unsigned /*length*/, Address const& /*sender*/) const override
    {
        Note("HandleError");
    }
};

TEST(AbiSlotsTest, BroadcastMessageProcessorHasItsHooks)
{
    ExpectSlots<NotingBroadcastProcessor>(
        {SlotOf<void>("ParseMessage", ANY, ANY, 0u, ANY), SlotOf<bool>("IsValidMessage", ANY),
         SlotOf<void>("HandleMessage", ANY, ANY, 0u, ANY, ANY), SlotOf<void>("HandleError", 0, ANY, ANY, 0u, ANY)});
}

// ---- Jobs, processes and the database.

class NotingJob : public Noting<JobQueue::Job>
{
public:
    std::string GetName() const override
    {
        Note("GetName");
        return "a name that is too long to be kept in a string itself";
    }
    void Setup(bool const& /*stop*/) override { Note("Setup"); }
    void Execute(bool const& /*stop*/) override { Note("Execute"); }
    void Cleanup(bool const& /*stop*/) override { Note("Cleanup"); }
};

TEST(AbiSlotsTest, JobHasItsNameThenItsSteps)
{
    ExpectSlots<NotingJob>({SlotOf<std::string>("GetName"), SlotOf<void>("Setup", ANY), SlotOf<void>("Execute", ANY),
                            SlotOf<void>("Cleanup", ANY)});
}

class NotingWorker : public NotingThread<JobQueue::Worker>
{
public:
    NotingWorker() : NotingThread(nullptr) {}
};

TEST(AbiSlotsTest, WorkerHasTheOperationsOfAThread)
{
    ExpectSlots<NotingWorker>({SlotOf<void>("Run")});
}

class NotingQueue : public Noting<JobQueue>
{
public:
    NotingQueue() : Noting(0, 0) {}
};

TEST(AbiSlotsTest, JobQueueHasItsDestructorsOnly)
{
    ExpectSlots<NotingQueue>({});
}

class NotingProcess : public Noting<ChildProcess>
{
public:
    NotingProcess() : Noting("program", false) {}
};

TEST(AbiSlotsTest, ChildProcessHasItsDestructorsOnly)
{
    ExpectSlots<NotingProcess>({});
}

class NotingDatabase : public Noting<db::DB>
{
public:
    void NotifyAction(std::string const& /*action*/, std::string const& /*detail*/) const override
    {
        Note("NotifyAction");
    }
};

TEST(AbiSlotsTest, DatabaseHasNotifyAction)
{
    ExpectSlots<NotingDatabase>({SlotOf<void>("NotifyAction", ANY, ANY)});
}

}}}  // namespace tovu::util
