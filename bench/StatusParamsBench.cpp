// What do the volume registry's probes and accesses cost beyond the system's calls and a guarded map of the caller's
// own? It is asked for one volume, and for each of a hundred and of ten thousand.

#include "tovu/util/StatusParams.h"

#include <benchmark/benchmark.h>
#include <sys/statvfs.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

using tovu::util::StatusParams;

namespace {

// As /proc/meminfo begins; the key that is asked for stands in the middle.
char const MEMINFO[] =
    "MemTotal:        1026532 kB\nMemFree:          104232 kB\nMemAvailable:     655360 kB\nBuffers:           20480 "
    "kB\n"
    "Cached:           524288 kB\nSwapCached:            0 kB\nActive:           409600 kB\nInactive:         262144 "
    "kB\n";

std::vector<std::string> VolumeNames(long count)
{
    std::vector<std::string> names;
    for (long i = 0; i < count; ++i)
        names.push_back("/srv/volumes/volume-" + std::to_string(i));
    return names;
}

// ---- The registry.

void AskOurs(benchmark::State& state)
{
    std::vector<std::string> const names = VolumeNames(state.range(0));
    for (std::string const& name : names)
        StatusParams::InsertNewEntry(name);

    std::size_t next = 0;
    for (auto _ : state) {
        StatusParams::DISK_INFO info;
        if (!StatusParams::GetDiskInfo(names[next], info))
            state.SkipWithError("a volume is not known");
        benchmark::DoNotOptimize(info);
        next = (next + 1) % names.size();
    }
    state.SetItemsProcessed(state.iterations());

    for (std::string const& name : names)
        StatusParams::RemoveDiskInfo(name);
}
BENCHMARK(AskOurs)->Name("StatusParams_GetDiskInfo_Known/tovuutil")->Arg(1)->Arg(100)->Arg(10000);

void AskBare(benchmark::State& state)
{
    std::vector<std::string> const names = VolumeNames(state.range(0));
    std::mutex mutex;
    std::map<std::string, StatusParams::DISK_INFO> volumes;
    for (std::string const& name : names)
        StatusParams::InitDiskInfoStruct(volumes[name]);

    std::size_t next = 0;
    for (auto _ : state) {
        StatusParams::DISK_INFO info;
        {
            std::lock_guard<std::mutex> const guard(mutex);
            info = volumes.find(names[next])->second;
        }
        benchmark::DoNotOptimize(info);
        next = (next + 1) % names.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(AskBare)->Name("StatusParams_GetDiskInfo_Known/bare")->Arg(1)->Arg(100)->Arg(10000);

// ---- Free space.

void FreeSpaceOurs(benchmark::State& state)
{
    std::string const volume = "/";
    for (auto _ : state)
        benchmark::DoNotOptimize(StatusParams::GetFreeDiskSpace(volume));
}
BENCHMARK(FreeSpaceOurs)->Name("StatusParams_GetFreeDiskSpace_Root/tovuutil");

void FreeSpaceBare(benchmark::State& state)
{
    for (auto _ : state) {
        struct statvfs status = {};
        statvfs("/", &status);
        char text[32];
        std::snprintf(text, sizeof(text), "%llu bytes",
                      static_cast<unsigned long long>(status.f_bsize) * status.f_bfree);
        benchmark::DoNotOptimize(std::string(text));
    }
}
BENCHMARK(FreeSpaceBare)->Name("StatusParams_GetFreeDiskSpace_Root/bare");

// ---- Memory.

void MemoryOurs(benchmark::State& state)
{
    for (auto _ : state) {
        std::string text = MEMINFO;
        if (StatusParams::ParseMemInfo("Cached:", text) != 524288)
            state.SkipWithError("another number");
    }
}
BENCHMARK(MemoryOurs)->Name("StatusParams_ParseMemInfo_FifthLine/tovuutil");

void MemoryBare(benchmark::State& state)
{
    for (auto _ : state) {
        std::string const text = MEMINFO;
        char const* const found = std::strstr(text.c_str(), "Cached:");
        if (std::strtoull(found + std::strlen("Cached:"), nullptr, 10) != 524288)
            state.SkipWithError("another number");
    }
}
BENCHMARK(MemoryBare)->Name("StatusParams_ParseMemInfo_FifthLine/bare");

// ---- A command's output.

void CommandOurs(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(StatusParams::DoPopen("echo 1048576"));
}
BENCHMARK(CommandOurs)->Name("StatusParams_DoPopen_OneLine/tovuutil");

void CommandBare(benchmark::State& state)
{
    for (auto _ : state) {
        std::string output;
        std::FILE* const pipe = popen("echo 1048576", "r");
        char buffer[4096];
        for (std::size_t count = 1; count != 0; output.append(buffer, count))
            count = std::fread(buffer, 1, sizeof(buffer), pipe);
        pclose(pipe);
        benchmark::DoNotOptimize(output);
    }
}
BENCHMARK(CommandBare)->Name("StatusParams_DoPopen_OneLine/bare");

}  // namespace
