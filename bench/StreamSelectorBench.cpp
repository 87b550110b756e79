// What does one wait cost beyond select(2) with sets of one's own: for one stream of each kind, and for many pipes? A
// wait is a selector that is made, streams that are added, the call, and the question for each stream.

#include "tovu/util/StreamSelector.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"

using tovu::util::FileHandleStream;
using tovu::util::Pipe;
using tovu::util::Socket;
using tovu::util::Stream;
using tovu::util::StreamSelector;

namespace {

unsigned WaitOurs(std::vector<Stream const*> const& streams)
{
    StreamSelector selector;
    for (Stream const* const stream : streams)
        selector.AddStreamForReading(*stream);
    selector.Select();
    unsigned ready = 0;
    for (Stream const* const stream : streams)
        ready += selector.IsStreamReadyForReading(*stream) ? 1 : 0;
    return ready;
}

unsigned WaitBare(std::vector<int> const& descriptors)
{
    fd_set set;
    FD_ZERO(&set);
    int highest = -1;
    for (int const descriptor : descriptors) {
        FD_SET(descriptor, &set);
        highest = std::max(highest, descriptor);
    }
    select(highest + 1, &set, nullptr, nullptr, nullptr);
    unsigned ready = 0;
    for (int const descriptor : descriptors)
        ready += FD_ISSET(descriptor, &set) ? 1 : 0;
    return ready;
}

void MeasureOurs(benchmark::State& state, std::vector<Stream const*> const& streams)
{
    if (WaitOurs(streams) != 1)
        state.SkipWithError("not one stream is ready");
    for (auto _ : state)
        benchmark::DoNotOptimize(WaitOurs(streams));
}

void MeasureBare(benchmark::State& state, std::vector<int> const& descriptors)
{
    if (WaitBare(descriptors) != 1)
        state.SkipWithError("not one descriptor is ready");
    for (auto _ : state)
        benchmark::DoNotOptimize(WaitBare(descriptors));
}

// Pipes, of which the last has a byte to read.
class Pipes
{
public:
    explicit Pipes(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            int ends[2];
            if (Pipe::CreatePipe(ends) != 0)
                throw std::runtime_error("no pipe");
            descriptors.push_back(ends[0]);
            owners_.emplace_back(new Pipe(ends[0]));
            streams.push_back(owners_.back().get());
            owners_.emplace_back(new Pipe(ends[1]));
        }
        owners_.back()->Write("", 1);
    }

    std::vector<int> descriptors;
    std::vector<Stream const*> streams;

private:
    std::vector<std::unique_ptr<Pipe>> owners_;
};

void PipesOurs(benchmark::State& state)
{
    Pipes const pipes(static_cast<std::size_t>(state.range(0)));
    MeasureOurs(state, pipes.streams);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(PipesOurs)->Name("StreamSelector_Wait_Pipes/tovuutil")->Arg(1)->Arg(16)->Arg(256);

void PipesBare(benchmark::State& state)
{
    Pipes const pipes(static_cast<std::size_t>(state.range(0)));
    MeasureBare(state, pipes.descriptors);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(PipesBare)->Name("StreamSelector_Wait_Pipes/bare")->Arg(1)->Arg(16)->Arg(256);

// Like a ClientSocket or one of the users' own.
class DerivedSocket : public Socket
{
public:
    using Socket::Socket;
};

// A connected pair, whose first end has a byte to read.
template <typename SocketType>
class SocketPair
{
public:
    SocketPair() : SocketPair(MakePair()) {}

    SocketType first;
    Socket second;

private:
    struct Ends
    {
        int ends[2];
    };

    explicit SocketPair(Ends const& pair) : first(pair.ends[0]), second(pair.ends[1]) { second.Write("", 1); }

    static Ends MakePair()
    {
        Ends pair;
        if (socketpair(AF_LOCAL, SOCK_STREAM, 0, pair.ends) != 0)
            throw std::runtime_error("no sockets");
        return pair;
    }
};

void SocketOurs(benchmark::State& state)
{
    SocketPair<Socket> const pair;
    MeasureOurs(state, {&pair.first});
}
BENCHMARK(SocketOurs)->Name("StreamSelector_Wait_Socket/tovuutil");

void DerivedSocketOurs(benchmark::State& state)
{
    SocketPair<DerivedSocket> const pair;
    MeasureOurs(state, {&pair.first});
}
BENCHMARK(DerivedSocketOurs)->Name("StreamSelector_Wait_DerivedSocket/tovuutil");

void SocketBare(benchmark::State& state)
{
    SocketPair<Socket> const pair;
    MeasureBare(state, {pair.first.GetDescriptor()});
}
BENCHMARK(SocketBare)->Name("StreamSelector_Wait_Socket/bare");

void FileOurs(benchmark::State& state)
{
    FileHandleStream file;
    file.Open("/dev/null", O_RDONLY, 0);
    MeasureOurs(state, {&file});
}
BENCHMARK(FileOurs)->Name("StreamSelector_Wait_File/tovuutil");

void FileBare(benchmark::State& state)
{
    FileHandleStream file;
    file.Open("/dev/null", O_RDONLY, 0);
    MeasureBare(state, {file.GetDescriptor()});
}
BENCHMARK(FileBare)->Name("StreamSelector_Wait_File/bare");

}  // namespace
