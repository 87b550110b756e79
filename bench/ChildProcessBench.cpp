// What does it cost to start a program and to wait for its end, from parents of 10, 100 and 400 MB? Beside the bare
// calls that the library makes (fork, execvp, waitpid) stand posix_spawn, which copies no page tables, and the process
// classes of Boost and POCO. The time is the parent's clock: most of the work is the system's, and the child's.

#include "tovu/util/ChildProcess.h"

#include <Poco/Process.h>
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/process/child.hpp>
#include <cstddef>
#include <fstream>
#include <stdexcept>

using tovu::util::ChildProcess;

namespace {

constexpr char const* PROGRAM = "/bin/true";

std::size_t ResidentBytes()
{
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Makes the process as large as is asked for, in small pages, as the heap of a server that has run for long.
class Ballast
{
public:
    explicit Ballast(std::size_t megabytes)
    {
        std::size_t const wanted = megabytes << 20;
        std::size_t const present = ResidentBytes();
        size_ = wanted > present ? wanted - present : 1;
        pages_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages_ == MAP_FAILED)
            throw std::runtime_error("no memory");
        madvise(pages_, size_, MADV_NOHUGEPAGE);
        for (std::size_t offset = 0; offset < size_; offset += 4096)
            static_cast<char volatile*>(pages_)[offset] = 'b';
    }
    Ballast(Ballast const&) = delete;
    Ballast& operator=(Ballast const&) = delete;
    ~Ballast() { munmap(pages_, size_); }

private:
    std::size_t size_ = 0;
    void* pages_ = nullptr;
};

// `run()` starts the program, waits for it and tells whether it exited with 0.
template <typename Run>
void Measure(benchmark::State& state, Run run)
{
    Ballast const ballast(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        if (!run())
            state.SkipWithError("the program did not run");
    }
}

bool HasSucceeded(pid_t child)
{
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

void SpawnOurs(benchmark::State& state)
{
    Measure(state, [] { return ChildProcess(PROGRAM, false).Exec() == ChildProcess::RESULT_SUCCESS; });
}

void SpawnBare(benchmark::State& state)
{
    Measure(state, [] {
        char name[] = "true";
        char* const arguments[] = {name, nullptr};
        pid_t const child = fork();
        if (child == 0) {
            execvp(PROGRAM, arguments);
            _exit(127);
        }
        return HasSucceeded(child);
    });
}

void SpawnPosix(benchmark::State& state)
{
    Measure(state, [] {
        char name[] = "true";
        char* const arguments[] = {name, nullptr};
        pid_t child = -1;
        return posix_spawnp(&child, PROGRAM, nullptr, nullptr, arguments, environ) == 0 && HasSucceeded(child);
    });
}

void SpawnBoost(benchmark::State& state)
{
    Measure(state, [] {
        boost::process::child child(PROGRAM);
        child.wait();
        return child.exit_code() == 0;
    });
}

void SpawnPoco(benchmark::State& state)
{
    Measure(state, [] { return Poco::Process::launch(PROGRAM, Poco::Process::Args()).wait() == 0; });
}

void OfMegabytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(10)->Arg(100)->Arg(400)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(SpawnOurs)->Name("ChildProcess_Exec_ParentMegabytes/tovuutil")->Apply(OfMegabytes);
BENCHMARK(SpawnBare)->Name("ChildProcess_Exec_ParentMegabytes/bare")->Apply(OfMegabytes);
BENCHMARK(SpawnPosix)->Name("ChildProcess_Exec_ParentMegabytes/posix_spawn")->Apply(OfMegabytes);
BENCHMARK(SpawnBoost)->Name("ChildProcess_Exec_ParentMegabytes/boost")->Apply(OfMegabytes);
BENCHMARK(SpawnPoco)->Name("ChildProcess_Exec_ParentMegabytes/POCO")->Apply(OfMegabytes);

}  // namespace
