// What does sending a file through a pipe or a socket cost beyond a bare loop of read, select and write with 32 KiB,
// which is what the library does as well? And what do whole buffers cost, written and read with a wait before each
// call? The other side is a thread with plain reads or writes; the processor's time is that of both.

#include "tovu/util/StreamWriter.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StreamReader.h"

using tovu::util::Pipe;
using tovu::util::Socket;
using tovu::util::Stream;
using tovu::util::StreamReader;
using tovu::util::StreamWriter;

namespace {

constexpr std::size_t PIECE = 32768;
constexpr std::size_t PEER_BUFFER = 65536;
constexpr std::size_t MEGABYTE = 1 << 20;

// A file of so many bytes, none of them a hole, which stays in the page cache; removed at the end of the scope.
class CachedFile
{
public:
    explicit CachedFile(std::size_t size)
    {
        char path[] = "/tmp/tovu-writer-bench-XXXXXX";
        int const descriptor = mkstemp(path);
        if (descriptor == -1)
            throw std::runtime_error("no file");
        path_ = path;
        std::vector<char> const piece(MEGABYTE, 'b');
        for (std::size_t done = 0; done < size; done += piece.size()) {
            if (write(descriptor, piece.data(), piece.size()) != static_cast<ssize_t>(piece.size()))
                throw std::runtime_error("no room");
        }
        close(descriptor);
    }
    CachedFile(CachedFile const&) = delete;
    CachedFile& operator=(CachedFile const&) = delete;
    ~CachedFile() { unlink(path_.c_str()); }

    std::string const& Path() const { return path_; }

private:
    std::string path_;
};

// The file of so many megabytes, which is made once: the disk is not to be busy with many.
std::string const& PathOfMegabytes(std::int64_t megabytes)
{
    static std::map<std::int64_t, std::unique_ptr<CachedFile>> files;
    std::unique_ptr<CachedFile>& file = files[megabytes];
    if (file == nullptr)
        file.reset(new CachedFile(static_cast<std::size_t>(megabytes) * MEGABYTE));
    return file->Path();
}

// The two ends of a channel: what is written to the second can be read from the first.
struct Ends
{
    int ends[2];
};

struct PipeChannel
{
    using StreamType = Pipe;
    static Ends Open()
    {
        Ends ends;
        if (Pipe::CreatePipe(ends.ends) != 0)
            throw std::runtime_error("no pipe");
        return ends;
    }
};

struct SocketChannel
{
    using StreamType = Socket;
    static Ends Open()
    {
        Ends ends;
        if (socketpair(AF_LOCAL, SOCK_STREAM, 0, ends.ends) != 0)
            throw std::runtime_error("no sockets");
        return ends;
    }
};

// A channel with a thread that reads all that is written to it, and counts.
template <typename Channel>
class DrainedChannel
{
public:
    DrainedChannel() : DrainedChannel(Channel::Open()) {}
    DrainedChannel(DrainedChannel const&) = delete;
    DrainedChannel& operator=(DrainedChannel const&) = delete;
    ~DrainedChannel()
    {
        if (drain_.joinable())
            Finish();
    }

    Stream& Writing() { return writing_; }
    int Descriptor() const { return writing_.GetDescriptor(); }

    // Closes the channel; returns how many bytes have come.
    std::size_t Finish()
    {
        writing_.Close();
        drain_.join();
        return drained_;
    }

private:
    explicit DrainedChannel(Ends const& ends) : reading_(ends.ends[0]), writing_(ends.ends[1])
    {
        drain_ = std::thread([this] {
            std::vector<char> buffer(PEER_BUFFER);
            for (ssize_t part = 1; part > 0; drained_ += static_cast<std::size_t>(part))
                part = read(reading_.GetDescriptor(), buffer.data(), buffer.size());
        });
    }

    typename Channel::StreamType reading_;
    typename Channel::StreamType writing_;
    std::size_t drained_ = 0;
    std::thread drain_;
};

void WaitFor(int descriptor, bool writing)
{
    fd_set set;
    do {
        FD_ZERO(&set);
        FD_SET(descriptor, &set);
    } while (select(descriptor + 1, writing ? nullptr : &set, writing ? &set : nullptr, nullptr, nullptr) < 0 ||
             !FD_ISSET(descriptor, &set));
}

void WriteBare(int descriptor, char const* bytes, std::size_t length)
{
    while (length != 0) {
        WaitFor(descriptor, true);
        ssize_t const written = write(descriptor, bytes, length);
        if (written < 0)
            throw std::runtime_error("not written");
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
}

void WriteFileBare(int descriptor, std::string const& path)
{
    int const file = open(path.c_str(), O_RDONLY);
    std::vector<char> buffer(PIECE);
    for (ssize_t part = read(file, buffer.data(), PIECE); part > 0; part = read(file, buffer.data(), PIECE))
        WriteBare(descriptor, buffer.data(), static_cast<std::size_t>(part));
    close(file);
}

// Has `write` put `size` bytes into a channel in each pass, and compares what has come at its other end.
template <typename Channel, typename Write>
void MeasureWriting(benchmark::State& state, std::size_t size, Write write)
{
    DrainedChannel<Channel> channel;
    for (auto _ : state)
        write(channel);
    if (channel.Finish() != static_cast<std::size_t>(state.iterations()) * size)
        state.SkipWithError("bytes are missing");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

template <typename Channel>
void FileOurs(benchmark::State& state)
{
    std::string const& path = PathOfMegabytes(state.range(0));
    MeasureWriting<Channel>(state, static_cast<std::size_t>(state.range(0)) * MEGABYTE,
                            [&](DrainedChannel<Channel>& channel) { StreamWriter(channel.Writing()).WriteFile(path); });
}

template <typename Channel>
void FileBare(benchmark::State& state)
{
    std::string const& path = PathOfMegabytes(state.range(0));
    MeasureWriting<Channel>(state, static_cast<std::size_t>(state.range(0)) * MEGABYTE,
                            [&](DrainedChannel<Channel>& channel) { WriteFileBare(channel.Descriptor(), path); });
}

void OfMegabytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(1)->Arg(64)->Arg(512)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_TEMPLATE(FileOurs, PipeChannel)->Name("StreamWriter_WriteFile_PipeMegabytes/tovuutil")->Apply(OfMegabytes);
BENCHMARK_TEMPLATE(FileBare, PipeChannel)->Name("StreamWriter_WriteFile_PipeMegabytes/bare")->Apply(OfMegabytes);
BENCHMARK_TEMPLATE(FileOurs, SocketChannel)
    ->Name("StreamWriter_WriteFile_SocketMegabytes/tovuutil")
    ->Apply(OfMegabytes);
BENCHMARK_TEMPLATE(FileBare, SocketChannel)->Name("StreamWriter_WriteFile_SocketMegabytes/bare")->Apply(OfMegabytes);

void BufferOurs(benchmark::State& state)
{
    std::vector<char> const bytes(static_cast<std::size_t>(state.range(0)), 'b');
    MeasureWriting<PipeChannel>(state, bytes.size(), [&](DrainedChannel<PipeChannel>& channel) {
        StreamWriter(channel.Writing()).Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    });
}

void BufferBare(benchmark::State& state)
{
    std::vector<char> const bytes(static_cast<std::size_t>(state.range(0)), 'b');
    MeasureWriting<PipeChannel>(state, bytes.size(), [&](DrainedChannel<PipeChannel>& channel) {
        WriteBare(channel.Descriptor(), bytes.data(), bytes.size());
    });
}

void OfBytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(64)->Arg(4096)->Arg(65536)->MeasureProcessCPUTime()->UseRealTime();
}

BENCHMARK(BufferOurs)->Name("StreamWriter_Write_PipeBytes/tovuutil")->Apply(OfBytes);
BENCHMARK(BufferBare)->Name("StreamWriter_Write_PipeBytes/bare")->Apply(OfBytes);

// A pipe that holds what is asked for before it is read, so that no other thread takes part.
class FilledPipe
{
public:
    explicit FilledPipe(std::size_t size) : FilledPipe(PipeChannel::Open(), size) {}

    void Fill() { writing_.Write(bytes.data(), static_cast<unsigned>(bytes.size())); }

    Pipe reading;
    std::vector<char> bytes;

private:
    FilledPipe(Ends const& ends, std::size_t size) : reading(ends.ends[0]), bytes(size, 'b'), writing_(ends.ends[1]) {}

    Pipe writing_;
};

template <typename Read>
void MeasureReading(benchmark::State& state, Read read)
{
    FilledPipe pipe(static_cast<std::size_t>(state.range(0)));
    std::vector<char> buffer(pipe.bytes.size());
    for (auto _ : state) {
        pipe.Fill();
        read(pipe.reading, buffer);
    }
    if (buffer != pipe.bytes)
        state.SkipWithError("other bytes have come");
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void ReadOurs(benchmark::State& state)
{
    MeasureReading(state, [](Stream& pipe, std::vector<char>& buffer) {
        StreamReader(pipe).Read(buffer.data(), static_cast<unsigned>(buffer.size()));
    });
}
BENCHMARK(ReadOurs)->Name("StreamReader_Read_PipeBytes/tovuutil")->Arg(64)->Arg(4096)->Arg(65536);

void ReadBare(benchmark::State& state)
{
    MeasureReading(state, [](Pipe const& pipe, std::vector<char>& buffer) {
        for (std::size_t done = 0; done < buffer.size();) {
            WaitFor(pipe.GetDescriptor(), false);
            ssize_t const part = read(pipe.GetDescriptor(), buffer.data() + done, buffer.size() - done);
            if (part <= 0)
                throw std::runtime_error("not read");
            done += static_cast<std::size_t>(part);
        }
    });
}
BENCHMARK(ReadBare)->Name("StreamReader_Read_PipeBytes/bare")->Arg(64)->Arg(4096)->Arg(65536);

}  // namespace
