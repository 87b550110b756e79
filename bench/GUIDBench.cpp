// What does a random identifier cost beyond opening the random device, reading 16 bytes and closing it, and what do the
// text form and its way back cost? Beside ours: what libuuid, Boost and POCO make and print. The first two ask the
// kernel with getrandom, without the device; POCO reads the device, as we do.

#include "tovu/util/GUID.h"

#include <Poco/UUID.h>
#include <Poco/UUIDGenerator.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <array>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdio>
#include <string>

using tovu::util::GUID;

namespace {

using Bytes = std::array<unsigned char, 16>;

// The digits of TEXT, with the dashes that others want.
constexpr char const* DASHED = "01234567-89ab-4def-bedc-ba9876543210";
constexpr char const* TEXT = "0123456789ab4defbedcba9876543210";

// ---- Random identifiers.

void RandomOurs(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(GUID::FromRandom());
}
BENCHMARK(RandomOurs)->Name("GUID_FromRandom_OneCall/tovuutil");

void RandomBare(benchmark::State& state)
{
    for (auto _ : state) {
        Bytes bytes = {};
        int const device = open("/dev/urandom", O_RDONLY);
        if (read(device, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            state.SkipWithError("no random bytes");
        close(device);
        bytes[8] = static_cast<unsigned char>((bytes[8] & 0xBF) | 0x80);
        bytes[6] = static_cast<unsigned char>((bytes[6] & 0x4F) | 0x40);
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(RandomBare)->Name("GUID_FromRandom_OneCall/bare");

void RandomLibuuid(benchmark::State& state)
{
    for (auto _ : state) {
        uuid_t identifier;
        uuid_generate_random(identifier);
        benchmark::DoNotOptimize(identifier);
    }
}
BENCHMARK(RandomLibuuid)->Name("GUID_FromRandom_OneCall/libuuid");

void RandomBoost(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(boost::uuids::random_generator()());
}
BENCHMARK(RandomBoost)->Name("GUID_FromRandom_OneCall/Boost");

void RandomPoco(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Poco::UUIDGenerator::defaultGenerator().createRandom());
}
BENCHMARK(RandomPoco)->Name("GUID_FromRandom_OneCall/POCO");

// ---- The text form.

void PrintOurs(benchmark::State& state)
{
    GUID const guid(TEXT);
    for (auto _ : state)
        benchmark::DoNotOptimize(guid.ToString());
}
BENCHMARK(PrintOurs)->Name("GUID_ToString_32Digits/tovuutil");

void PrintBare(benchmark::State& state)
{
    GUID const guid(TEXT);
    char const* const digits = "0123456789abcdef";
    for (auto _ : state) {
        char text[32];
        char* end = text;
        for (unsigned char const* byte = guid.GetBytes(); byte != guid.GetBytes() + 16; ++byte) {
            *end++ = digits[*byte >> 4];
            *end++ = digits[*byte & 0xF];
        }
        benchmark::DoNotOptimize(std::string(text, sizeof(text)));
    }
}
BENCHMARK(PrintBare)->Name("GUID_ToString_32Digits/bare");

void PrintLibuuid(benchmark::State& state)
{
    uuid_t identifier;
    uuid_parse(DASHED, identifier);
    for (auto _ : state) {
        char text[37];
        uuid_unparse_lower(identifier, text);
        benchmark::DoNotOptimize(std::string(text));
    }
}
BENCHMARK(PrintLibuuid)->Name("GUID_ToString_32Digits/libuuid");

void PrintBoost(benchmark::State& state)
{
    boost::uuids::uuid const identifier = boost::uuids::string_generator()(DASHED);
    for (auto _ : state)
        benchmark::DoNotOptimize(boost::uuids::to_string(identifier));
}
BENCHMARK(PrintBoost)->Name("GUID_ToString_32Digits/Boost");

void PrintPoco(benchmark::State& state)
{
    Poco::UUID const identifier(DASHED);
    for (auto _ : state)
        benchmark::DoNotOptimize(identifier.toString());
}
BENCHMARK(PrintPoco)->Name("GUID_ToString_32Digits/POCO");

// ---- And back.

void ParseOurs(benchmark::State& state)
{
    std::string const text = TEXT;
    for (auto _ : state)
        benchmark::DoNotOptimize(GUID(text));
}
BENCHMARK(ParseOurs)->Name("GUID_Parse_32Digits/tovuutil");

void ParseLibuuid(benchmark::State& state)
{
    std::string const text = DASHED;
    for (auto _ : state) {
        uuid_t identifier;
        uuid_parse(text.c_str(), identifier);
        benchmark::DoNotOptimize(identifier);
    }
}
BENCHMARK(ParseLibuuid)->Name("GUID_Parse_32Digits/libuuid");

void ParseBoost(benchmark::State& state)
{
    std::string const text = DASHED;
    for (auto _ : state)
        benchmark::DoNotOptimize(boost::uuids::string_generator()(text));
}
BENCHMARK(ParseBoost)->Name("GUID_Parse_32Digits/Boost");

void ParsePoco(benchmark::State& state)
{
    std::string const text = DASHED;
    for (auto _ : state)
        benchmark::DoNotOptimize(Poco::UUID(text));
}
BENCHMARK(ParsePoco)->Name("GUID_Parse_32Digits/POCO");

}  // namespace
