#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "LayoutCheck.h"
#include "PrivateMember.h"
#include "tovu/db/DB.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/BroadcastSocket.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Directory.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileLogger.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/GUID.h"
#include "tovu/util/JobQueue.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/Mutex.h"
#include "tovu/util/OwnerList.h"
#include "tovu/util/Path.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/RandomSeekStream.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/Singleton.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StatusParams.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamReader.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/StreamWriter.h"
#include "tovu/util/Thread.h"
#include "tovu/util/XercesUtils.h"

// What the objects hold, in which order, and how large they are: programs that were built with an older header rely on it.
// Each case states the members once, as a structure that any compiler lays out alike; that makes the expectation for
// 64 and for 32 bits.

namespace tovu { namespace util { namespace {

using test::LayoutCheck;

// What an object is that has a table of virtual operations and no members.
struct OnlyTable
{
    void* table;
};

// What an object is that holds a reference to another.
struct OnlyReference
{
    void* other;
};

// ---- Foundation.

TOVU_PRIVATE_MEMBER(ExceptionMessage, std::string, Exception, message_);

TEST(AbiLayoutTest, ExceptionHoldsTheLocationsThenTheMessage)
{
    struct Expected
    {
        void* table;
        std::vector<Exception::Location> locations;
        std::string message;
    };
    LayoutCheck<Exception, Expected>()
        .Has("locations", &Expected::locations, &Exception::locations)
        .Has("message", &Expected::message, PointerTo(ExceptionMessage()));
}

TEST(AbiLayoutTest, LocationHoldsTheFileThenTheLine)
{
    struct Expected
    {
        char const* file;
        std::uint32_t line;
    };
    LayoutCheck<Exception::Location, Expected>()
        .Has("file", &Expected::file, &Exception::Location::file)
        .Has("line", &Expected::line, &Exception::Location::line);
}

TOVU_PRIVATE_MEMBER(ThreadHandle, pthread_t, Thread, handle_);
TOVU_PRIVATE_MEMBER(ThreadPriority, int, Thread, priority_);

TEST(AbiLayoutTest, ThreadHoldsTheHandleThenThePriority)
{
    struct Expected
    {
        void* table;
        pthread_t handle;
        int priority;
    };
    LayoutCheck<Thread, Expected>()
        .Has("handle", &Expected::handle, PointerTo(ThreadHandle()))
        .Has("priority", &Expected::priority, PointerTo(ThreadPriority()));
}

TOVU_PRIVATE_MEMBER(MutexMutex, pthread_mutex_t, Mutex, mutex_);

TEST(AbiLayoutTest, MutexHoldsTheSystems)
{
    struct Expected
    {
        pthread_mutex_t mutex;
    };
    LayoutCheck<Mutex, Expected>().Has("mutex", &Expected::mutex, PointerTo(MutexMutex()));
}

TEST(AbiLayoutTest, GuardHoldsAReference)
{
    LayoutCheck<Mutex::Guard, OnlyReference>();
}

TEST(AbiLayoutTest, OwnerListIsAList)
{
    LayoutCheck<OwnerList<Logger>, std::list<Logger*>>();
    LayoutCheck<OwnerList<JobQueue::Job>, std::list<JobQueue::Job*>>();
    LayoutCheck<OwnerList<JobQueue::Worker>, std::list<JobQueue::Worker*>>();
}

TEST(AbiLayoutTest, SingletonHoldsNothing)
{
    EXPECT_TRUE(std::is_empty<Singleton<LoggerMgr>>::value);
}

typedef std::list<std::pair<std::string, std::string>> Lines;

TOVU_PRIVATE_MEMBER(ManagerName, std::string, LoggerMgr, name_);
TOVU_PRIVATE_MEMBER(ManagerLevel, unsigned, LoggerMgr, level_);
TOVU_PRIVATE_MEMBER(ManagerFlags, unsigned, LoggerMgr, flags_);
TOVU_PRIVATE_MEMBER(ManagerLoggers, OwnerList<Logger>, LoggerMgr, loggers_);
TOVU_PRIVATE_MEMBER(ManagerQueue, Lines, LoggerMgr, queue_);
TOVU_PRIVATE_MEMBER(ManagerMutex, boost::mutex, LoggerMgr, mutex_);
TOVU_PRIVATE_MEMBER(ManagerCondition, boost::condition_variable, LoggerMgr, condition_);

TEST(AbiLayoutTest, LoggerMgrHoldsItsMembersBehindThoseOfAThread)
{
    struct Expected
    {
        void* table;
        pthread_t handle;
        int priority;
        std::string name;
        unsigned level;
        unsigned flags;
        OwnerList<Logger> loggers;
        Lines queue;
        boost::mutex mutex;
        boost::condition_variable condition;
    };
    LayoutCheck<LoggerMgr, Expected>()
        .Has("handle", &Expected::handle, PointerTo(ThreadHandle()))
        .Has("priority", &Expected::priority, PointerTo(ThreadPriority()))
        .Has("name", &Expected::name, PointerTo(ManagerName()))
        .Has("level", &Expected::level, PointerTo(ManagerLevel()))
        .Has("flags", &Expected::flags, PointerTo(ManagerFlags()))
        .Has("loggers", &Expected::loggers, PointerTo(ManagerLoggers()))
        .Has("queue", &Expected::queue, PointerTo(ManagerQueue()))
        .Has("mutex", &Expected::mutex, PointerTo(ManagerMutex()))
        .Has("condition", &Expected::condition, PointerTo(ManagerCondition()));
}

TEST(AbiLayoutTest, LoggerHoldsNothing)
{
    LayoutCheck<Logger, OnlyTable>();
}

TOVU_PRIVATE_MEMBER(FileLoggerText, std::string, FileLogger, text_);

TEST(AbiLayoutTest, FileLoggerHoldsAText)
{
    struct Expected
    {
        void* table;
        std::string text;
    };
    LayoutCheck<FileLogger, Expected>().Has("text", &Expected::text, PointerTo(FileLoggerText()));
}

// ---- Streams.

TEST(AbiLayoutTest, StreamHoldsNothing)
{
    LayoutCheck<Stream, OnlyTable>();
}

TOVU_PRIVATE_MEMBER(SwapBytes, bool, RandomSeekStream, swapBytes_);

TEST(AbiLayoutTest, RandomSeekStreamHoldsTheByteOrderFlag)
{
    struct Expected
    {
        void* table;
        bool swapBytes;
    };
    LayoutCheck<RandomSeekStream, Expected>().Has("swapBytes", &Expected::swapBytes, PointerTo(SwapBytes()));
}

TEST(AbiLayoutTest, RegionHoldsTheOffsetThenTheLength)
{
    struct Expected
    {
        unsigned long long offset;
        unsigned long long length;
    };
    LayoutCheck<RandomSeekStream::Region, Expected>()
        .Has("offset", &Expected::offset, &RandomSeekStream::Region::offset)
        .Has("length", &Expected::length, &RandomSeekStream::Region::length);
}

TOVU_PRIVATE_MEMBER(HandleStreamDescriptor, int, FileHandleStream, descriptor_);
TOVU_PRIVATE_MEMBER(HandleStreamPath, std::string, FileHandleStream, path_);

TEST(AbiLayoutTest, FileHandleStreamHoldsTheFlagTheDescriptorAndThePath)
{
    struct Expected
    {
        void* table;
        bool swapBytes;
        int descriptor;
        std::string path;
    };
    LayoutCheck<FileHandleStream, Expected>()
        .Has("swapBytes", &Expected::swapBytes, PointerTo(SwapBytes()))
        .Has("descriptor", &Expected::descriptor, PointerTo(HandleStreamDescriptor()))
        .Has("path", &Expected::path, PointerTo(HandleStreamPath()));
}

TOVU_PRIVATE_MEMBER(FileStreamFile, std::FILE*, FileStream, file_);

TEST(AbiLayoutTest, FileStreamHoldsTheFlagThenTheFile)
{
    struct Expected
    {
        void* table;
        bool swapBytes;
        std::FILE* file;
    };
    LayoutCheck<FileStream, Expected>()
        .Has("swapBytes", &Expected::swapBytes, PointerTo(SwapBytes()))
        .Has("file", &Expected::file, PointerTo(FileStreamFile()));
}

TOVU_PRIVATE_MEMBER(PipeDescriptor, int, Pipe, descriptor_);

TEST(AbiLayoutTest, PipeHoldsTheDescriptor)
{
    struct Expected
    {
        void* table;
        int descriptor;
    };
    LayoutCheck<Pipe, Expected>().Has("descriptor", &Expected::descriptor, PointerTo(PipeDescriptor()));
}

TEST(AbiLayoutTest, ReaderAndWriterHoldAReference)
{
    LayoutCheck<StreamReader, OnlyReference>();
    LayoutCheck<StreamWriter, OnlyReference>();
}

TOVU_PRIVATE_MEMBER(MessageWriterMutex, Mutex, MessageWriter, mutex_);

TEST(AbiLayoutTest, MessageWriterHoldsTheMutexThenTheStream)
{
    struct Expected
    {
        Mutex mutex;
        Stream* stream;
    };
    LayoutCheck<MessageWriter, Expected>().Has("mutex", &Expected::mutex, PointerTo(MessageWriterMutex()));

    Pipe pipe;
    MessageWriter const writer(pipe);
    Stream const* stream = nullptr;  // there is no pointer to a member that is a reference
    std::memcpy(&stream, reinterpret_cast<unsigned char const*>(&writer) + test::OffsetOf(&Expected::stream),
                sizeof(stream));
    EXPECT_EQ(&pipe, stream);
}

TOVU_PRIVATE_MEMBER(SelectorReadSet, fd_set, StreamSelector, readSet_);
TOVU_PRIVATE_MEMBER(SelectorWriteSet, fd_set, StreamSelector, writeSet_);

TEST(AbiLayoutTest, StreamSelectorHoldsTheSetForReadingThenThatForWriting)
{
    struct Expected
    {
        fd_set readSet;
        fd_set writeSet;
    };
    LayoutCheck<StreamSelector, Expected>()
        .Has("readSet", &Expected::readSet, PointerTo(SelectorReadSet()))
        .Has("writeSet", &Expected::writeSet, PointerTo(SelectorWriteSet()));
}

TEST(AbiLayoutTest, TimeValIsTheSystems)
{
    LayoutCheck<StreamSelector::TimeVal, timeval>()
        .Has("tv_sec", &timeval::tv_sec, &StreamSelector::TimeVal::tv_sec)
        .Has("tv_usec", &timeval::tv_usec, &StreamSelector::TimeVal::tv_usec);
}

// ---- Sockets.

TOVU_PRIVATE_MEMBER(SocketDescriptor, int, Socket, descriptor_);

template <typename Class>
void ExpectHoldsTheDescriptor()
{
    struct Expected
    {
        void* table;
        int descriptor;
    };
    LayoutCheck<Class, Expected>().Has("descriptor", &Expected::descriptor, PointerTo(SocketDescriptor()));
}

TEST(AbiLayoutTest, SocketsHoldTheDescriptor)
{
    ExpectHoldsTheDescriptor<Socket>();
    ExpectHoldsTheDescriptor<TenantSocket>();
    ExpectHoldsTheDescriptor<ClientSocket>();
    ExpectHoldsTheDescriptor<ServerSocket>();
}

TOVU_PRIVATE_MEMBER(BroadcastAddress, Socket::Address, BroadcastSocket, address_);

template <typename Class>
void ExpectHoldsTheDescriptorThenTheAddress()
{
    struct Expected
    {
        void* table;
        int descriptor;
        Socket::Address address;
    };
    LayoutCheck<Class, Expected>()
        .Has("descriptor", &Expected::descriptor, PointerTo(SocketDescriptor()))
        .Has("address", &Expected::address, PointerTo(BroadcastAddress()));
}

TEST(AbiLayoutTest, BroadcastSocketsHoldTheDescriptorThenTheAddress)
{
    ExpectHoldsTheDescriptorThenTheAddress<BroadcastSocket>();
    ExpectHoldsTheDescriptorThenTheAddress<ClientBroadcastSocket>();
    ExpectHoldsTheDescriptorThenTheAddress<ServerBroadcastSocket>();
}

TEST(AbiLayoutTest, AddressHoldsTheStorageThenTheLength)
{
    struct Expected
    {
        Socket::Address::Storage address;
        socklen_t length;
    };
    LayoutCheck<Socket::Address, Expected>()
        .Has("address", &Expected::address, &Socket::Address::address)
        .Has("length", &Expected::length, &Socket::Address::length);
}

TEST(AbiLayoutTest, StorageIsOneOfTheSystemsAddresses)
{
    union Expected
    {
        sockaddr generic;
        sockaddr_in inet;
        sockaddr_un local;
    };
    LayoutCheck<Socket::Address::Storage, Expected>()
        .Has("generic", &Expected::generic, &Socket::Address::Storage::generic)
        .Has("inet", &Expected::inet, &Socket::Address::Storage::inet)
        .Has("local", &Expected::local, &Socket::Address::Storage::local);
    EXPECT_EQ(112u, sizeof(Socket::Address::Storage)) << "2 bytes and a path of 108, rounded up";
}

TEST(AbiLayoutTest, InterfaceInfoHoldsItsFieldsInTheirOrder)
{
    struct Expected
    {
        std::string name;
        std::string ipAddress;
        bool isUp;
        std::string broadcastAddress;
        std::string destinationAddress;
    };
    typedef Socket::InterfaceInfo InterfaceInfo;
    LayoutCheck<InterfaceInfo, Expected>()
        .Has("name", &Expected::name, &InterfaceInfo::name)
        .Has("ipAddress", &Expected::ipAddress, &InterfaceInfo::ipAddress)
        .Has("isUp", &Expected::isUp, &InterfaceInfo::isUp)
        .Has("broadcastAddress", &Expected::broadcastAddress, &InterfaceInfo::broadcastAddress)
        .Has("destinationAddress", &Expected::destinationAddress, &InterfaceInfo::destinationAddress);
}

TOVU_PRIVATE_MEMBER(GuardView, TenantSocket, SetSocketNonBlocking, view_);
TOVU_PRIVATE_MEMBER(GuardMode, bool, SetSocketNonBlocking, wasBlocking_);

TEST(AbiLayoutTest, SetSocketNonBlockingHoldsTheViewThenTheMode)
{
    struct Expected
    {
        TenantSocket view;
        bool wasBlocking;
    };
    LayoutCheck<SetSocketNonBlocking, Expected>()
        .Has("view", &Expected::view, PointerTo(GuardView()))
        .Has("wasBlocking", &Expected::wasBlocking, PointerTo(GuardMode()));
}

// ---- XML messages.

TEST(AbiLayoutTest, XercesErrorHandlerHoldsNothing)
{
    LayoutCheck<XercesErrorHandler, OnlyTable>();
}

typedef std::vector<unsigned char> Bytes;

TOVU_PRIVATE_MEMBER(ProcessorStop, bool, MessageProcessor, stop_);
TOVU_PRIVATE_MEMBER(ProcessorPending, Bytes, MessageProcessor, pending_);

TEST(AbiLayoutTest, MessageProcessorHoldsTheStopFlagThenThePendingBytes)
{
    struct Expected
    {
        void* table;
        bool stop;
        Bytes pending;
    };
    LayoutCheck<MessageProcessor, Expected>()
        .Has("stop", &Expected::stop, PointerTo(ProcessorStop()))
        .Has("pending", &Expected::pending, PointerTo(ProcessorPending()));
}

TEST(AbiLayoutTest, ByteSpanHoldsTheAddressThenTheCount)
{
    struct Expected
    {
        unsigned char const* bytes;
        unsigned count;
    };
    typedef MessageProcessor::ByteSpan ByteSpan;
    LayoutCheck<ByteSpan, Expected>()
        .Has("bytes", &Expected::bytes, &ByteSpan::first)
        .Has("count", &Expected::count, &ByteSpan::second);
}

TOVU_PRIVATE_MEMBER(BroadcastProcessorStop, bool, BroadcastMessageProcessor, stop_);

TEST(AbiLayoutTest, BroadcastMessageProcessorHoldsTheStopFlag)
{
    struct Expected
    {
        void* table;
        bool stop;
    };
    LayoutCheck<BroadcastMessageProcessor, Expected>().Has("stop", &Expected::stop,
                                                           PointerTo(BroadcastProcessorStop()));
}

// ---- Jobs, processes and plug-ins.

TEST(AbiLayoutTest, JobHoldsNothing)
{
    LayoutCheck<JobQueue::Job, OnlyTable>();
}

TOVU_PRIVATE_MEMBER(WorkerQueue, JobQueue*, JobQueue::Worker, queue_);
TOVU_PRIVATE_MEMBER(WorkerFinished, bool, JobQueue::Worker, finished_);

TEST(AbiLayoutTest, WorkerHoldsTheQueueAndAFlagBehindTheMembersOfAThread)
{
    struct Expected
    {
        void* table;
        pthread_t handle;
        int priority;
        JobQueue* queue;
        bool finished;
    };
    LayoutCheck<JobQueue::Worker, Expected>()
        .Has("handle", &Expected::handle, PointerTo(ThreadHandle()))
        .Has("priority", &Expected::priority, PointerTo(ThreadPriority()))
        .Has("queue", &Expected::queue, PointerTo(WorkerQueue()))
        .Has("finished", &Expected::finished, PointerTo(WorkerFinished()));
}

TOVU_PRIVATE_MEMBER(QueueWorkerCount, int, JobQueue, workerCount_);
TOVU_PRIVATE_MEMBER(QueuePriority, int, JobQueue, priority_);
TOVU_PRIVATE_MEMBER(QueueStop, bool, JobQueue, stop_);
TOVU_PRIVATE_MEMBER(QueueJobs, OwnerList<JobQueue::Job>, JobQueue, jobs_);
TOVU_PRIVATE_MEMBER(QueueWorkers, OwnerList<JobQueue::Worker>, JobQueue, workers_);
TOVU_PRIVATE_MEMBER(QueueStartStopLock, Mutex, JobQueue, startStopLock_);
TOVU_PRIVATE_MEMBER(QueueMutex, boost::mutex, JobQueue, mutex_);
TOVU_PRIVATE_MEMBER(QueueCondition, boost::condition_variable, JobQueue, condition_);

TEST(AbiLayoutTest, JobQueueHoldsItsMembersInTheirOrder)
{
    struct Expected
    {
        void* table;
        int workerCount;
        int priority;
        bool stop;
        OwnerList<JobQueue::Job> jobs;
        OwnerList<JobQueue::Worker> workers;
        Mutex startStopLock;
        boost::mutex mutex;
        boost::condition_variable condition;
    };
    LayoutCheck<JobQueue, Expected>()
        .Has("workerCount", &Expected::workerCount, PointerTo(QueueWorkerCount()))
        .Has("priority", &Expected::priority, PointerTo(QueuePriority()))
        .Has("stop", &Expected::stop, PointerTo(QueueStop()))
        .Has("jobs", &Expected::jobs, PointerTo(QueueJobs()))
        .Has("workers", &Expected::workers, PointerTo(QueueWorkers()))
        .Has("startStopLock", &Expected::startStopLock, PointerTo(QueueStartStopLock()))
        .Has("mutex", &Expected::mutex, PointerTo(QueueMutex()))
        .Has("condition", &Expected::condition, PointerTo(QueueCondition()));
}

typedef std::list<std::string> Texts;

TOVU_PRIVATE_MEMBER(ProcessProgram, std::string, ChildProcess, program_);
TOVU_PRIVATE_MEMBER(ProcessArguments, Texts, ChildProcess, arguments_);
TOVU_PRIVATE_MEMBER(ProcessEnvironment, Texts, ChildProcess, environment_);
TOVU_PRIVATE_MEMBER(ProcessReserved1, std::string, ChildProcess, reserved1_);
TOVU_PRIVATE_MEMBER(ProcessReserved2, std::string, ChildProcess, reserved2_);
TOVU_PRIVATE_MEMBER(ProcessFlag, bool, ChildProcess, flag_);
TOVU_PRIVATE_MEMBER(ProcessStatus, int, ChildProcess, status_);
TOVU_PRIVATE_MEMBER(ProcessPid, int, ChildProcess, pid_);
TOVU_PRIVATE_MEMBER(ProcessControlGroup, std::string, ChildProcess, controlGroup_);
TOVU_PRIVATE_MEMBER(ProcessStdIO, std::unique_ptr<ChildProcess::StdIO>, ChildProcess, stdio_);

TEST(AbiLayoutTest, ChildProcessHoldsItsMembersInTheirOrder)
{
    struct Expected
    {
        void* table;
        std::string program;
        Texts arguments;
        Texts environment;
        std::string reserved1;
        std::string reserved2;
        bool flag;
        int status;
        int pid;
        std::string controlGroup;
        std::unique_ptr<ChildProcess::StdIO> stdio;
    };
    LayoutCheck<ChildProcess, Expected>()
        .Has("program", &Expected::program, PointerTo(ProcessProgram()))
        .Has("arguments", &Expected::arguments, PointerTo(ProcessArguments()))
        .Has("environment", &Expected::environment, PointerTo(ProcessEnvironment()))
        .Has("reserved1", &Expected::reserved1, PointerTo(ProcessReserved1()))
        .Has("reserved2", &Expected::reserved2, PointerTo(ProcessReserved2()))
        .Has("flag", &Expected::flag, PointerTo(ProcessFlag()))
        .Has("status", &Expected::status, PointerTo(ProcessStatus()))
        .Has("pid", &Expected::pid, PointerTo(ProcessPid()))
        .Has("controlGroup", &Expected::controlGroup, PointerTo(ProcessControlGroup()))
        .Has("stdio", &Expected::stdio, PointerTo(ProcessStdIO()));
    EXPECT_EQ(sizeof(void*), sizeof(Expected::stdio)) << "a pointer";
}

TEST(AbiLayoutTest, StdIOHoldsThreePairs)
{
    struct Expected
    {
        int inPipe[2];
        int outPipe[2];
        int errPipe[2];
    };
    LayoutCheck<ChildProcess::StdIO, Expected>()
        .Has("inPipe", &Expected::inPipe, &ChildProcess::StdIO::inPipe)
        .Has("outPipe", &Expected::outPipe, &ChildProcess::StdIO::outPipe)
        .Has("errPipe", &Expected::errPipe, &ChildProcess::StdIO::errPipe);
}

TOVU_PRIVATE_MEMBER(LibraryHandle, void*, DynamicLibrary, handle_);

TEST(AbiLayoutTest, DynamicLibraryHoldsTheHandle)
{
    struct Expected
    {
        void* handle;
    };
    LayoutCheck<DynamicLibrary, Expected>().Has("handle", &Expected::handle, PointerTo(LibraryHandle()));
}

// ---- Files, identifiers and status.

TEST(AbiLayoutTest, PathHoldsAReference)
{
    LayoutCheck<Path, OnlyReference>();
}

TOVU_PRIVATE_MEMBER(DirectoryPath, std::string, Directory, path_);
TOVU_PRIVATE_MEMBER(DirectoryStream, DIR*, Directory, stream_);

TEST(AbiLayoutTest, DirectoryHoldsThePathTheStreamAndTheDates)
{
    struct Expected
    {
        std::string path;
        DIR* stream;
        std::int32_t lastStatusDate;
        std::int32_t lastAccessedDate;
        std::int32_t lastModifiedDate;
    };
    LayoutCheck<Directory, Expected>()
        .Has("path", &Expected::path, PointerTo(DirectoryPath()))
        .Has("stream", &Expected::stream, PointerTo(DirectoryStream()))
        .Has("lastStatusDate", &Expected::lastStatusDate, &Directory::lastStatusDate)
        .Has("lastAccessedDate", &Expected::lastAccessedDate, &Directory::lastAccessedDate)
        .Has("lastModifiedDate", &Expected::lastModifiedDate, &Directory::lastModifiedDate);
}

TEST(AbiLayoutTest, EntryHoldsItsFieldsInTheirOrder)
{
    struct Expected
    {
        int type;
        std::string name;
        std::int32_t lastStatusDate;
        std::int32_t lastAccessedDate;
        std::int32_t lastModifiedDate;
        std::uint64_t size;
    };
    typedef Directory::Entry Entry;
    LayoutCheck<Entry, Expected>()
        .Has("type", &Expected::type, &Entry::type)
        .Has("name", &Expected::name, &Entry::name)
        .Has("lastStatusDate", &Expected::lastStatusDate, &Entry::lastStatusDate)
        .Has("lastAccessedDate", &Expected::lastAccessedDate, &Entry::lastAccessedDate)
        .Has("lastModifiedDate", &Expected::lastModifiedDate, &Entry::lastModifiedDate)
        .Has("size", &Expected::size, &Entry::size);
}

typedef unsigned char SixteenBytes[16];

TOVU_PRIVATE_MEMBER(GuidBytes, SixteenBytes, GUID, bytes_);

TEST(AbiLayoutTest, GuidHoldsSixteenBytes)
{
    struct Expected
    {
        SixteenBytes bytes;
    };
    LayoutCheck<GUID, Expected>().Has("bytes", &Expected::bytes, PointerTo(GuidBytes()));
}

TEST(AbiLayoutTest, DiskInfoHoldsTheActionThenTheStatus)
{
    struct Expected
    {
        std::string action;
        std::string status;
    };
    LayoutCheck<StatusParams::DISK_INFO, Expected>()
        .Has("action", &Expected::action, &StatusParams::DISK_INFO::action)
        .Has("status", &Expected::status, &StatusParams::DISK_INFO::status);
}

TEST(AbiLayoutTest, StatusParamsHoldsNothing)
{
    EXPECT_TRUE(std::is_empty<StatusParams>::value) << "everything of it is static";
}

TEST(AbiLayoutTest, DatabaseHoldsNothing)
{
    LayoutCheck<db::DB, OnlyTable>();
}

}}}  // namespace tovu::util
