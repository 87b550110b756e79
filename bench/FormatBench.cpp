// What does a formatted text cost beyond snprintf into a buffer of the caller's, and what does a hex dump cost beside
// spdlog's and a bare loop over a table? The longer texts show what the prescribed passes (2,048 bytes, doubled) add.

#include "tovu/util/Format.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

using tovu::util::FormatString;

namespace {

// "volume photos has 1234567 of 7654321 KiB" has forty characters.
constexpr char const* FORMAT = "volume %s has %d of %d KiB";

void FormatOurs(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(FormatString(FORMAT, "photos", 1234567, 7654321));
}
BENCHMARK(FormatOurs)->Name("Format_FormatString_40Characters/tovuutil");

void FormatBare(benchmark::State& state)
{
    for (auto _ : state) {
        char buffer[2048];
        int const length = std::snprintf(buffer, sizeof(buffer), FORMAT, "photos", 1234567, 7654321);
        benchmark::DoNotOptimize(std::string(buffer, static_cast<std::size_t>(length)));
    }
}
BENCHMARK(FormatBare)->Name("Format_FormatString_40Characters/snprintf");

}  // namespace
