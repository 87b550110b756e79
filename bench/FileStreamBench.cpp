// What do the file streams cost beyond the calls under them: small reads and writes through a buffer beside stdio, the
// same without a buffer beside read and write, and the values and texts that are kept at offsets of a file? The
// buffered stream and the unbuffered one do the same work here, so the two tables also tell which to take.

#include "tovu/util/FileStream.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "tovu/util/FileHandleStream.h"

using tovu::util::FileHandleStream;
using tovu::util::FileStream;
using tovu::util::RandomSeekStream;

namespace {

constexpr std::size_t FILE_SIZE = 1 << 17;

// A file of FILE_SIZE bytes; removed at the end of the scope.
class SmallFile
{
public:
    SmallFile()
    {
        char path[] = "/tmp/tovu-file-bench-XXXXXX";
        int const descriptor = mkstemp(path);
        std::vector<char> const bytes(FILE_SIZE, 'b');
        if (descriptor == -1 || write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("no file");
        close(descriptor);
        path_ = path;
    }
    SmallFile(SmallFile const&) = delete;
    SmallFile& operator=(SmallFile const&) = delete;
    ~SmallFile() { unlink(path_.c_str()); }

    std::string const& Path() const { return path_; }

private:
    std::string path_;
};

// A file in pieces, from its first byte to its last: `transfer(buffer)` moves one.
template <typename Rewind, typename Transfer>
void MeasurePieces(benchmark::State& state, Rewind rewind, Transfer transfer)
{
    std::vector<char> piece(static_cast<std::size_t>(state.range(0)), 'p');
    for (auto _ : state) {
        rewind();
        for (std::size_t done = 0; done < FILE_SIZE; done += piece.size()) {
            if (transfer(piece) != piece.size())
                throw std::runtime_error("a piece is missing");
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(FILE_SIZE / piece.size()));
}

void OfPieces(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(16)->Arg(256)->Arg(4096);
}

void BufferedReadOurs(benchmark::State& state)
{
    SmallFile const file;
    FileStream stream;
    stream.Open(file.Path(), "r");
    MeasurePieces(
        state, [&] { stream.Seek(0, SEEK_SET); },
        [&](std::vector<char>& piece) {
            return static_cast<std::size_t>(stream.Read(piece.data(), static_cast<unsigned>(piece.size())));
        });
}
BENCHMARK(BufferedReadOurs)->Name("FileStream_Read_Pieces/tovuutil")->Apply(OfPieces);

void BufferedReadBare(benchmark::State& state)
{
    SmallFile const file;
    std::FILE* const stream = std::fopen(file.Path().c_str(), "r");
    MeasurePieces(
        state, [&] { std::fseek(stream, 0, SEEK_SET); },
        [&](std::vector<char>& piece) { return std::fread(piece.data(), 1, piece.size(), stream); });
    std::fclose(stream);
}
BENCHMARK(BufferedReadBare)->Name("FileStream_Read_Pieces/stdio")->Apply(OfPieces);

void BufferedWriteOurs(benchmark::State& state)
{
    SmallFile const file;
    FileStream stream;
    stream.Open(file.Path(), "r+");
    MeasurePieces(
        state, [&] { stream.Seek(0, SEEK_SET); },
        [&](std::vector<char> const& piece) {
            return static_cast<std::size_t>(stream.Write(piece.data(), static_cast<unsigned>(piece.size())));
        });
}
BENCHMARK(BufferedWriteOurs)->Name("FileStream_Write_Pieces/tovuutil")->Apply(OfPieces);

void BufferedWriteBare(benchmark::State& state)
{
    SmallFile const file;
    std::FILE* const stream = std::fopen(file.Path().c_str(), "r+");
    MeasurePieces(
        state, [&] { std::fseek(stream, 0, SEEK_SET); },
        [&](std::vector<char> const& piece) { return std::fwrite(piece.data(), 1, piece.size(), stream); });
    std::fclose(stream);
}
BENCHMARK(BufferedWriteBare)->Name("FileStream_Write_Pieces/stdio")->Apply(OfPieces);

void UnbufferedReadOurs(benchmark::State& state)
{
    SmallFile const file;
    FileHandleStream stream;
    stream.Open(file.Path(), O_RDONLY, 0);
    MeasurePieces(
        state, [&] { stream.Seek(0, SEEK_SET); },
        [&](std::vector<char>& piece) {
            return static_cast<std::size_t>(stream.Read(piece.data(), static_cast<unsigned>(piece.size())));
        });
}
BENCHMARK(UnbufferedReadOurs)->Name("FileHandleStream_Read_Pieces/tovuutil")->Apply(OfPieces);

void UnbufferedReadBare(benchmark::State& state)
{
    SmallFile const file;
    int const descriptor = open(file.Path().c_str(), O_RDONLY);
    MeasurePieces(
        state, [&] { lseek(descriptor, 0, SEEK_SET); },
        [&](std::vector<char>& piece) {
            return static_cast<std::size_t>(read(descriptor, piece.data(), piece.size()));
        });
    close(descriptor);
}
BENCHMARK(UnbufferedReadBare)->Name("FileHandleStream_Read_Pieces/bare")->Apply(OfPieces);

void UnbufferedWriteOurs(benchmark::State& state)
{
    SmallFile const file;
    FileHandleStream stream;
    stream.Open(file.Path(), O_RDWR, 0);
    MeasurePieces(
        state, [&] { stream.Seek(0, SEEK_SET); },
        [&](std::vector<char> const& piece) {
            return static_cast<std::size_t>(stream.Write(piece.data(), static_cast<unsigned>(piece.size())));
        });
}
BENCHMARK(UnbufferedWriteOurs)->Name("FileHandleStream_Write_Pieces/tovuutil")->Apply(OfPieces);

void UnbufferedWriteBare(benchmark::State& state)
{
    SmallFile const file;
    int const descriptor = open(file.Path().c_str(), O_RDWR);
    MeasurePieces(
        state, [&] { lseek(descriptor, 0, SEEK_SET); },
        [&](std::vector<char> const& piece) {
            return static_cast<std::size_t>(write(descriptor, piece.data(), piece.size()));
        });
    close(descriptor);
}
BENCHMARK(UnbufferedWriteBare)->Name("FileHandleStream_Write_Pieces/bare")->Apply(OfPieces);

// ---- What is kept at offsets. Both sides store the most significant byte first.

constexpr unsigned long long OFFSET = 4096;
constexpr unsigned long long VALUE = 0x0102030405060708ULL;

void PtrOurs(benchmark::State& state)
{
    SmallFile const file;
    FileHandleStream stream;
    stream.Open(file.Path(), O_RDWR, 0);
    for (auto _ : state) {
        stream.WritePtr(OFFSET, VALUE);
        if (stream.ReadPtr(OFFSET) != VALUE)
            state.SkipWithError("another value");
    }
}
BENCHMARK(PtrOurs)->Name("RandomSeekStream_Ptr_WriteAndRead/tovuutil");

void PtrBare(benchmark::State& state)
{
    SmallFile const file;
    int const descriptor = open(file.Path().c_str(), O_RDWR);
    for (auto _ : state) {
        std::uint64_t stored = htobe64(VALUE);
        lseek(descriptor, static_cast<off_t>(OFFSET), SEEK_SET);
        benchmark::DoNotOptimize(write(descriptor, &stored, sizeof(stored)));
        stored = 0;
        lseek(descriptor, static_cast<off_t>(OFFSET), SEEK_SET);
        benchmark::DoNotOptimize(read(descriptor, &stored, sizeof(stored)));
        if (be64toh(stored) != VALUE)
            state.SkipWithError("another value");
    }
    close(descriptor);
}
BENCHMARK(PtrBare)->Name("RandomSeekStream_Ptr_WriteAndRead/bare");

void OpenFor(FileHandleStream& stream, std::string const& path)
{
    stream.Open(path, O_RDWR, 0);
}

void OpenFor(FileStream& stream, std::string const& path)
{
    stream.Open(path, "r+");
}

template <typename StreamType>
void StringOurs(benchmark::State& state)
{
    SmallFile const file;
    std::string const text(static_cast<std::size_t>(state.range(0)), 't');
    StreamType stream;
    OpenFor(stream, file.Path());
    stream.Writestring(OFFSET, text);
    for (auto _ : state) {
        if (stream.Readstring(OFFSET) != text)
            state.SkipWithError("another text");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(StringOurs, FileHandleStream)
    ->Name("RandomSeekStream_Readstring_FileHandle/tovuutil")
    ->Apply(OfPieces);
BENCHMARK_TEMPLATE(StringOurs, FileStream)->Name("RandomSeekStream_Readstring_Buffered/tovuutil")->Apply(OfPieces);

// A byte at a time, as the library is to.
void StringBare(benchmark::State& state)
{
    SmallFile const file;
    std::string const text(static_cast<std::size_t>(state.range(0)), 't');
    int const descriptor = open(file.Path().c_str(), O_RDWR);
    benchmark::DoNotOptimize(pwrite(descriptor, text.c_str(), text.size() + 1, static_cast<off_t>(OFFSET)));
    for (auto _ : state) {
        lseek(descriptor, static_cast<off_t>(OFFSET), SEEK_SET);
        std::string found;
        char byte = '\0';
        while (read(descriptor, &byte, 1) == 1 && byte != '\0')
            found += byte;
        if (found != text)
            state.SkipWithError("another text");
    }
    close(descriptor);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StringBare)->Name("RandomSeekStream_Readstring_FileHandle/bare")->Apply(OfPieces);

void StringStdio(benchmark::State& state)
{
    SmallFile const file;
    std::string const text(static_cast<std::size_t>(state.range(0)), 't');
    std::FILE* const stream = std::fopen(file.Path().c_str(), "r+");
    std::fseek(stream, static_cast<long>(OFFSET), SEEK_SET);
    std::fwrite(text.c_str(), 1, text.size() + 1, stream);
    for (auto _ : state) {
        std::fseek(stream, static_cast<long>(OFFSET), SEEK_SET);
        std::string found;
        char byte = '\0';
        while (std::fread(&byte, 1, 1, stream) == 1 && byte != '\0')
            found += byte;
        if (found != text)
            state.SkipWithError("another text");
    }
    std::fclose(stream);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StringStdio)->Name("RandomSeekStream_Readstring_Buffered/stdio")->Apply(OfPieces);

}  // namespace
