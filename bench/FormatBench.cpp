// What does a formatted text cost beyond snprintf into a buffer of the caller's, and what does a hex dump cost beside
// spdlog's and a bare loop over a table? The longer texts show what the prescribed passes (2,048 bytes, doubled) add.

#include "tovu/util/Format.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <spdlog/fmt/bin_to_hex.h>

#include <algorithm>
#include <boost/format.hpp>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

using tovu::util::FormatString;
using tovu::util::HexFormatBuffer;

namespace {

// A text, and how everybody makes it from a name that fills it up: "volume photos has 1234567 of 7654321 KiB".
constexpr char const* FORMAT = "volume %s has %d of %d KiB";
constexpr char const* PEER_FORMAT = "volume {} has {} of {} KiB";
constexpr std::size_t NAME_SIZE_OF_40 = 6;

std::string NameForText(std::int64_t size)
{
    return std::string(static_cast<std::size_t>(size) - 40 + NAME_SIZE_OF_40, 'n');
}

void EndUnlessEqual(std::string const& expected, std::string const& text)
{
    if (expected == text)
        return;
    std::fprintf(stderr, "the peers do not make the same text: %s\nand: %s\n", expected.c_str(), text.c_str());
    std::exit(1);
}

std::string FormatOurs(char const* name)
{
    return FormatString(FORMAT, name, 1234567, 7654321);
}

std::string FormatBare(char const* name)
{
    char buffer[131072];
    int const length = std::snprintf(buffer, sizeof(buffer), FORMAT, name, 1234567, 7654321);
    return std::string(buffer, static_cast<std::size_t>(length));
}

std::string FormatFmt(char const* name)
{
    return fmt::format(PEER_FORMAT, name, 1234567, 7654321);
}

std::string FormatBoost(char const* name)
{
    return boost::str(boost::format(FORMAT) % name % 1234567 % 7654321);
}

template <std::string (*Format)(char const*)>
void FormatText(benchmark::State& state)
{
    std::string const name = NameForText(state.range(0));
    EndUnlessEqual(FormatOurs(name.c_str()), Format(name.c_str()));
    for (auto _ : state)
        benchmark::DoNotOptimize(Format(name.c_str()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void TextSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(40)->Arg(1024)->Arg(5 * 1024)->Arg(100 * 1024);
}
BENCHMARK_TEMPLATE(FormatText, FormatOurs)->Name("Format_FormatString_Characters/tovuutil")->Apply(TextSizes);
BENCHMARK_TEMPLATE(FormatText, FormatBare)->Name("Format_FormatString_Characters/snprintf")->Apply(TextSizes);
BENCHMARK_TEMPLATE(FormatText, FormatFmt)->Name("Format_FormatString_Characters/fmt")->Apply(TextSizes);
BENCHMARK_TEMPLATE(FormatText, FormatBoost)->Name("Format_FormatString_Characters/boost")->Apply(TextSizes);

// Every value, with those in front that a text has: what the dump of a message looks like.
std::string BytesToDump(std::int64_t size)
{
    std::string bytes;
    for (std::int64_t i = 0; i < size; ++i)
        bytes += static_cast<char>(i % 3 == 0 ? i * 7 % 256 : ' ' + i % 90);
    return bytes;
}

std::string DumpOurs(std::string const& bytes)
{
    return HexFormatBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
}

// The same text without a stream: the least that it takes.
std::string DumpBare(std::string const& bytes)
{
    static char const digits[] = "0123456789abcdef";
    std::string dump((bytes.size() + 15) / 16 * 50 + bytes.size(), ' ');
    char* end = &dump[0];
    for (std::size_t line = 0; line < bytes.size(); line += 16) {
        std::size_t const count = std::min<std::size_t>(16, bytes.size() - line);
        for (std::size_t i = 0; i < count; ++i) {
            auto const byte = static_cast<unsigned char>(bytes[line + i]);
            end[3 * i] = digits[byte >> 4];
            end[3 * i + 1] = digits[byte & 0xf];
            end[49 + i] = std::isprint(byte) != 0 ? bytes[line + i] : '.';
        }
        end[49 + count] = '\n';
        end += 50 + count;
    }
    return dump;
}

// The layout that comes nearest: 16 bytes to a line, no position in front and their text behind them.
std::string DumpSpdlog(std::string const& bytes)
{
    return fmt::format("{:ap}", spdlog::to_hex(bytes, 16));
}

template <std::string (*Dump)(std::string const&)>
void DumpBytes(benchmark::State& state)
{
    std::string const bytes = BytesToDump(state.range(0));
    if (Dump != DumpSpdlog)
        EndUnlessEqual(DumpOurs(bytes), Dump(bytes));
    for (auto _ : state)
        benchmark::DoNotOptimize(Dump(bytes));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void DumpSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(256)->Arg(16 << 10)->Arg(1 << 20);
}
BENCHMARK_TEMPLATE(DumpBytes, DumpOurs)->Name("Format_HexFormatBuffer_Bytes/tovuutil")->Apply(DumpSizes);
BENCHMARK_TEMPLATE(DumpBytes, DumpBare)->Name("Format_HexFormatBuffer_Bytes/tableLoop")->Apply(DumpSizes);
BENCHMARK_TEMPLATE(DumpBytes, DumpSpdlog)->Name("Format_HexFormatBuffer_Bytes/spdlog")->Apply(DumpSizes);

}  // namespace
