// What does the allocator of a program decide? A parser takes some two hundred blocks for a small message and gives them
// back at once; a log line takes three, which another thread gives back. One program for the C library's allocator and one
// for each that Debian has beside it.

#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <sys/resource.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Documents.h"
#include "Messages.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Pipe.h"

using namespace tovu::util;

namespace {

// The peak is that of the whole process, so of the largest message.
double PeakKilobytes()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
}

void Dispatch(benchmark::State& state)
{
    std::string const message = bench::MakeDocument(static_cast<std::size_t>(state.range())) + '\0';
    bench::Messages messages;
    Pipe stream;
    for (auto _ : state)
        messages.ProcessMessages(stream, reinterpret_cast<unsigned char const*>(message.data()),
                                 static_cast<unsigned>(message.size()));
    if (messages.handled != state.iterations())
        throw std::logic_error("a message was not handled");
    state.SetBytesProcessed(state.range() * state.iterations());
    state.counters["peak_kilobytes"] = PeakKilobytes();
}
BENCHMARK(Dispatch)->Name("Allocator_Dispatch/" ALLOCATOR)->Arg(177)->Arg(1000)->Arg(5000);

constexpr unsigned LINES = 24000;

// Says when a last line has come.
class LastLine : public Logger
{
public:
    LastLine() { sem_init(&come_, 0, 0); }

    void Log(std::string const& /*header*/, std::string const& message) override
    {
        if (message.empty() || message.back() != '!')
            return;
        sem_post(&come_);
    }

    void Wait()
    {
        while (sem_wait(&come_) != 0)
            continue;
    }

private:
    sem_t come_;
};

// A manager with its thread and its sink, which live until the process ends.
struct RunningLog
{
    RunningLog() : manager(*new LoggerMgr), sink(*new LastLine)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
        manager.AddLogger(std::auto_ptr<Logger>(&sink));
#pragma GCC diagnostic pop
        manager.Init("volumed", LoggerMgr::LEVEL_INFO,
                     LoggerMgr::HEADER_TIME | LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION, 0);
    }

    LoggerMgr& manager;
    LastLine& sink;
};

void LogLines(LoggerMgr& manager)
{
    for (unsigned i = 1; i < LINES; ++i)
        manager.Log(LoggerMgr::LEVEL_INFO, "src/util/Volume.cpp", 123, "volume %s has %u files\n", "photos", i);
    manager.Log(LoggerMgr::LEVEL_INFO, "src/util/Volume.cpp", 123, "the last!");
}

// What the process takes until the last line has reached the sink. Made by a thread of their own, as most lines are: its
// part of the heap is another one than the log thread's.
void LogAndWait(benchmark::State& state)
{
    static RunningLog log;
    for (auto _ : state) {
        std::thread caller(LogLines, std::ref(log.manager));
        caller.join();
        log.sink.Wait();
    }
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(LogAndWait)->Name("Allocator_LogLines_24000/" ALLOCATOR)->MeasureProcessCPUTime();

}  // namespace
