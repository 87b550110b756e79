// The ten operations that daemons call most, each on its own and as often as is asked for: what the emulator counts
// more for twice as many is what that many cost. One thread, so that each run counts the same.
//
//     counted_operations NAME COUNT   performs one of them, or "all"
//     counted_operations              names them, each with a number of times that is worth counting

#include <dirent.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>
#include <xercesc/util/PlatformUtils.hpp>

#include "tovu/util/Directory.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"
#include "tovu/util/JobQueue.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"
#include "tovu/util/XercesUtils.h"

using namespace tovu::util;

namespace {

// Two hundred bytes, the delimiter included.
std::string const MESSAGE = [] {
    std::string const start = "<GetFolder id=\"4711\" volume=\"photos\"><Path>/srv/volumes/photos/";
    std::string const end = "</Path><Options sort=\"name\" hidden=\"0\"/></GetFolder>";
    return start + std::string(200 - start.size() - end.size() - 1, 'p') + end + '\0';
}();

void Require(bool done)
{
    if (!done)
        throw Exception(__FILE__, __LINE__, "an operation did not do what it was asked for");
}

// ---- Log lines.

// A manager whose thread ends at once: the lines are taken out of the queue by who has put them there.
class IdleLog : public LoggerMgr
{
public:
    explicit IdleLog(unsigned flags)
    {
        Init("volumed", LEVEL_INFO, flags, 0);
        Wait();
    }

    void Run() override {}
};

// The text of a second is made once: no other second is to begin before the lines are counted.
void AwaitStartOfSecond()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    timespec const rest = {0, 1000000000 - now.tv_nsec};
    nanosleep(&rest, nullptr);
}

void LogLines(long count)
{
    IdleLog log(LoggerMgr::HEADER_TIME | LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION);
    AwaitStartOfSecond();
    for (long i = 0; i < count; ++i) {
        log.Log(LoggerMgr::LEVEL_INFO, __FILE__, __LINE__, "message %d of volume %s\n", 1234567, "photos");
        Require(log.Deq().second.size() == 33);
    }
}

void SuppressLines(long count)
{
    for (long i = 0; i < count; ++i)
        TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "message %d of volume %s\n", 1234567, "photos");
}

// ---- Texts.

void FormatTexts(long count)
{
    for (long i = 0; i < count; ++i)
        Require(FormatString("volume %s has %d of %d KiB", "photos", 1234567, 7654321).size() == 40);
}

void EncodeProse(long count)
{
    std::string prose;
    while (prose.size() < 1024)
        prose +=
            "Tom & Jerry's photos of the \"old\" mill, where 1 < 2 and the river runs wide and slowly to the sea. ";
    prose.resize(1024);
    for (long i = 0; i < count; ++i)
        Require(EncodeXMLCharEntities(prose).size() > prose.size());
}

// ---- Messages.

// Counts messages and does not look into them.
class CountingProcessor : public MessageProcessor
{
public:
    explicit CountingProcessor(long& messages) : messages_(messages) {}

    unsigned ParseMessage(Stream&, unsigned char const*, unsigned) const override
    {
        ++messages_;
        return 0;
    }

private:
    long& messages_;
};

void FrameMessages(long count)
{
    long const atOnce = 100;
    std::vector<unsigned char> bytes;
    for (long i = 0; i < atOnce; ++i) {
        bytes.insert(bytes.end(), 99, 'm');
        bytes.push_back(0);
    }

    long messages = 0;
    CountingProcessor processor(messages);
    Pipe closed;
    for (long i = 0; i < count; i += atOnce)
        processor.ProcessMessages(closed, bytes.data(), static_cast<unsigned>(bytes.size()));
    Require(messages == count);
}

// Takes messages by their name, and has something done after each.
class FolderProcessor : public MessageProcessor
{
public:
    explicit FolderProcessor(std::function<void()> const& handled) : handled_(handled) {}

    bool IsValidMessage(std::string const& name) const override { return name == "GetFolder"; }

    void HandleMessage(Stream&, unsigned char const*, unsigned, xercesc::DOMNode const&) const override { handled_(); }

private:
    std::function<void()> const handled_;
};

void DispatchMessages(long count)
{
    long messages = 0;
    FolderProcessor const processor([&messages] { ++messages; });
    Pipe closed;
    auto const* const data = reinterpret_cast<unsigned char const*>(MESSAGE.data());
    for (long i = 0; i < count; ++i)
        processor.ParseMessage(closed, data, static_cast<unsigned>(MESSAGE.size() - 1));
    Require(messages == count);
}

void ReceiveMessages(long count)
{
    int ends[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    Socket receiver(ends[0]);
    Socket sender(ends[1]);
    auto const send = [&sender] {
        Require(sender.Write(MESSAGE.data(), static_cast<unsigned>(MESSAGE.size())) == 200);
    };

    long messages = 0;
    FolderProcessor processor([&] { ++messages < count ? send() : sender.Close(); });
    send();
    processor.ReadMessages(receiver);
    Require(messages == count);
}

// ---- Jobs.

class EmptyJob : public JobQueue::Job
{
public:
    std::string GetName() const override { return "empty"; }
    void Setup(bool const&) override {}
    void Execute(bool const&) override {}
    void Cleanup(bool const&) override {}
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
void QueueJobs(long count)
{
    JobQueue queue(0, 0);
    for (long i = 0; i < count; ++i) {
        queue.Enq(std::auto_ptr<JobQueue::Job>(new EmptyJob));
        Require(queue.Deq().get() != nullptr);
    }
}
#pragma GCC diagnostic pop

// ---- Listings.

// A folder with a hundred files, whose path has the same length on every machine.
class ListedFolder
{
public:
    ListedFolder()
    {
        Require(mkdtemp(path_) != nullptr);
        for (int i = 0; i < FILES; ++i)
            Require(std::ofstream(File(i)).is_open());
    }

    ListedFolder(ListedFolder const&) = delete;
    ListedFolder& operator=(ListedFolder const&) = delete;

    ~ListedFolder()
    {
        for (int i = 0; i < FILES; ++i)
            unlink(File(i).c_str());
        rmdir(path_);
    }

    std::string Path() const { return path_; }

private:
    static constexpr int FILES = 100;

    std::string File(int number) const { return FormatString("%s/picture-%04d.jpg", path_, number); }

    char path_[sizeof("/tmp/counted.XXXXXX")] = "/tmp/counted.XXXXXX";
};

void ListEntries(long count)
{
    ListedFolder const listed;
    Directory folder(listed.Path());
    Directory::Entry entry;
    for (long i = 0; i < count; ++i)
        Require(folder.GetNextEntry(entry) || folder.GetFirstEntry(entry));
}

// ---- Exceptions.

__attribute__((noinline)) void Throw()
{
    throw Exception(__FILE__, __LINE__, "the volume photos is not there");
}

template <int HANDLERS>
__attribute__((noinline)) void ThrowThrough()
{
    try {
        ThrowThrough<HANDLERS - 1>();
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

template <>
void ThrowThrough<0>()
{
    Throw();
}

void ThrowExceptions(long count)
{
    for (long i = 0; i < count; ++i) {
        try {
            ThrowThrough<3>();
        } catch (Exception const& exception) {
            Require(exception.locations.size() == 4);
        }
    }
}

struct Operation
{
    char const* name;
    void (*perform)(long count);
    long count;  // worth counting: what happens once a hundred times is not lost in it
};

Operation const OPERATIONS[] = {
    {"LoggerMgr_Log_TimeLevelLocation", &LogLines, 2000},
    {"LoggerMgr_Log_Suppressed", &SuppressLines, 100000},
    {"Format_FormatString_40Characters", &FormatTexts, 10000},
    {"XercesUtils_EncodeXMLCharEntities_1KiB", &EncodeProse, 1000},
    {"MessageProcessor_ProcessMessages_100Bytes", &FrameMessages, 10000},
    {"MessageProcessor_ParseMessage_200Bytes", &DispatchMessages, 500},
    {"MessageProcessor_ReadMessages_200Bytes", &ReceiveMessages, 500},
    {"JobQueue_EnqDeq_EmptyJob", &QueueJobs, 10000},
    {"Directory_GetNextEntry_100Files", &ListEntries, 1020},
    {"Exception_Throw_3Handlers", &ThrowExceptions, 1000},
};

void PrintNames()
{
    for (Operation const& operation : OPERATIONS)
        std::printf("%s %ld\n", operation.name, operation.count);
}

void Perform(std::string const& name, long count)
{
    bool found = false;
    for (Operation const& operation : OPERATIONS) {
        if (name == operation.name || name == "all") {
            operation.perform(count);
            found = true;
        }
    }
    Require(found);
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3) {
        PrintNames();
        return 0;
    }

    xercesc::XMLPlatformUtils::Initialize();
    try {
        Perform(arguments[1], std::atol(arguments[2]));
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s: %s\n", arguments[1], exception.what());
        return 1;
    }
    xercesc::XMLPlatformUtils::Terminate();
}
