#include "tovu/util/FileLogger.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "ChildOrSkip.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "Latch.h"
#include "PrivateMember.h"
#include "TemporaryDirectory.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

static_assert(std::is_base_of<Logger, FileLogger>::value, "a sink");
static_assert(std::is_convertible<FileLogger*, Logger*>::value, "the base is public");
static_assert(std::is_constructible<FileLogger, std::string>::value, "made of a text");
static_assert(!std::is_convertible<std::string, FileLogger>::value, "not by accident");
static_assert(!std::is_copy_constructible<FileLogger>::value, "non-copyable");

TOVU_PRIVATE_MEMBER(Text, std::string, FileLogger, text_);

// One datagram to the system log, in its parts: "<PRIORITY>Mmm dd hh:mm:ss TAG: TEXT".
struct Record
{
    std::string priority;
    std::string tag;
    std::string text;
};

// The system log of one child process: a socket at /dev/log that nobody else sees.
class SystemLog
{
public:
    SystemLog() : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {}
    SystemLog(SystemLog const&) = delete;
    SystemLog& operator=(SystemLog const&) = delete;
    ~SystemLog() { close(socket_); }

    // False with errno set when this machine does not allow it.
    bool Open()
    {
        if (!test::EnterMountNamespace() || mount("none", "/dev", "tmpfs", 0, nullptr) == -1)
            return false;

        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        timeval const deadline = {test::DEADLINE.count(), 0};
        return bind(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof(address)) == 0 &&
               setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline)) == 0;
    }

    // The next record; fails the test when none comes.
    Record Receive()
    {
        constexpr std::size_t TIME_SIZE = sizeof("Mmm dd hh:mm:ss ") - 1;

        std::string datagram(1 << 17, '\0');
        ssize_t const size = recv(socket_, &datagram[0], datagram.size(), 0);
        EXPECT_NE(-1, size) << "no record came: " << std::strerror(errno);
        datagram.resize(size == -1 ? 0 : static_cast<std::size_t>(size));

        std::size_t const time = datagram.find('>') + 1;
        std::size_t const colon = datagram.find(": ", time + TIME_SIZE);
        if (time == 0 || colon == std::string::npos) {
            ADD_FAILURE() << "not a record: " << datagram;
            return {"", "", ""};
        }
        return {datagram.substr(0, time), datagram.substr(time + TIME_SIZE, colon - time - TIME_SIZE),
                datagram.substr(colon + 2)};
    }

private:
    int socket_;
};

class FileLoggerTest : public testing::Test
{
protected:
    // Runs `body` in a child that has a system log of its own. The last call of a test: it may skip it.
    static void WithSystemLog(std::function<void(SystemLog&)> const& body)
    {
        test::ExpectPassesInChildOrSkips([&] {
            SystemLog log;
            if (!log.Open())
                test::SkipFromChild("this machine gives a process no /dev/log of its own");
            body(log);
        });
    }

    FileLogger logger_{"a text of the owner"};
};

TEST_F(FileLoggerTest, SendsHeaderBlankAndMessage)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("Error src/util/Pipe.cpp:20", "The pipe is broken.\n");
        EXPECT_EQ("Error src/util/Pipe.cpp:20 The pipe is broken.\n", log.Receive().text);
    });
}

// 174: facility local5 (21 times 8), severity info (6).
TEST_F(FileLoggerTest, EveryRecordHasPriority174)
{
    WithSystemLog([&](SystemLog& log) {
        for (char const* header : {"Error ", "Warning ", "Info ", "Debug ", "Invalid ", ""}) {
            logger_.Log(header, "message\n");
            EXPECT_EQ("<174>", log.Receive().priority) << header;
        }
    });
}

TEST_F(FileLoggerTest, EmptyHeaderLeavesTheBlankInFront)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("", "message\n");
        EXPECT_EQ(" message\n", log.Receive().text);
    });
}

TEST_F(FileLoggerTest, EmptyMessageIsSentBehindItsHeader)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("header", "");
        EXPECT_EQ("header ", log.Receive().text);
    });
}

TEST_F(FileLoggerTest, NothingIsSentForTwoEmptyTexts)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("", "");
        logger_.Log("", "the first to arrive");
        EXPECT_EQ(" the first to arrive", log.Receive().text);
    });
}

TEST_F(FileLoggerTest, PercentSignsAreText)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("100%s", "%n%d%%\n");
        EXPECT_EQ("100%s %n%d%%\n", log.Receive().text);
    });
}

TEST_F(FileLoggerTest, AZeroByteEndsTheTextItStandsInAndNotTheOther)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log(std::string("header\0more", 11), std::string("message\0more", 12));
        EXPECT_EQ("header message", log.Receive().text);
    });
}

TEST_F(FileLoggerTest, LongMessageArrivesWhole)
{
    WithSystemLog([&](SystemLog& log) {
        std::string const message(40000, 'x');
        logger_.Log("header", message);
        EXPECT_EQ("header " + message, log.Receive().text);
    });
}

TEST_F(FileLoggerTest, RecordsCarryTheProgramsNameWhenNothingElseWasChosen)
{
    WithSystemLog([&](SystemLog& log) {
        logger_.Log("header", "message");
        EXPECT_EQ(program_invocation_short_name, log.Receive().tag);
    });
}

TEST_F(FileLoggerTest, KeepsWhatTheProgramChoseWhenItOpenedTheSystemLog)
{
    WithSystemLog([&](SystemLog& log) {
        openlog("volumed", LOG_PID, LOG_DAEMON);
        std::string const tag = "volumed[" + std::to_string(getpid()) + "]";
        for (int i = 0; i < 2; ++i) {
            logger_.Log("header", "message");
            Record const record = log.Receive();
            EXPECT_EQ(tag, record.tag);
            EXPECT_EQ("<174>", record.priority);
        }
    });
}

TEST_F(FileLoggerTest, NeitherOpensNorClosesTheSystemLog)
{
    WithSystemLog([&](SystemLog& log) {
        openlog("volumed", LOG_NDELAY, LOG_DAEMON);
        std::size_t const descriptors = test::CountDescriptors();
        {
            FileLogger logger("volumed");
            logger.Log("header", "message");
        }
        EXPECT_EQ(descriptors, test::CountDescriptors());
        EXPECT_EQ("volumed", log.Receive().tag);

        syslog(LOG_INFO, "still open");
        EXPECT_EQ("volumed", log.Receive().tag);
    });
}

TEST_F(FileLoggerTest, WritesNoFileWhateverItsText)
{
    WithSystemLog([](SystemLog& log) {
        test::TemporaryDirectory directory;
        std::string const path = directory / "log";
        FileLogger(path).Log("header", "message");
        EXPECT_EQ("header message", log.Receive().text);
        EXPECT_EQ(-1, access(path.c_str(), F_OK));
    });
}

TEST_F(FileLoggerTest, ReceivesTheLinesOfAManager)
{
    WithSystemLog([](SystemLog& log) {
        LoggerMgr& manager = LoggerMgr::Instance();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
        manager.AddLogger(std::auto_ptr<Logger>(new FileLogger("")));
#pragma GCC diagnostic pop
        manager.Init("volumed", LoggerMgr::LEVEL_INFO, 0, 0);
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "%d volumes are mounted.\n", 3);
        Record const record = log.Receive();
        EXPECT_EQ("<174>", record.priority);
        EXPECT_EQ(" 3 volumes are mounted.\n", record.text) << "flags 0: the header is empty";
    });
}

TEST_F(FileLoggerTest, KeepsTheTextOfItsOwner)
{
    EXPECT_EQ("a text of the owner", Text::Of(logger_));
}

}}}  // namespace tovu::util
