// What does a request with its answer cost between two threads on one processor, over a local socket and over TCP,
// beyond the bare calls? Both ends wait with a selector, ask how many bytes wait, read them, and write through a
// MessageWriter, which waits as well; "bare" makes the same system calls itself. "bare_one_wait" does not wait before
// it writes: what that prescribed wait costs. The processor's time is that of both ends.

#include "tovu/util/Socket.h"

#include <benchmark/benchmark.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tovu/util/ClientSocket.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/StreamSelector.h"

using tovu::util::ClientSocket;
using tovu::util::MessageWriter;
using tovu::util::ServerSocket;
using tovu::util::Socket;
using tovu::util::StreamSelector;

namespace {

using Message = std::vector<char>;

// Keeps the calling thread, and those that it starts meanwhile, on the processor that it runs on.
class OneProcessor
{
public:
    OneProcessor()
    {
        pthread_getaffinity_np(pthread_self(), sizeof(before_), &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
    }
    OneProcessor(OneProcessor const&) = delete;
    OneProcessor& operator=(OneProcessor const&) = delete;
    ~OneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof(before_), &before_); }

private:
    cpu_set_t before_;
};

// A connection from this process to itself.
class Connection
{
public:
    explicit Connection(int family)
    {
        std::string const path = "/tmp/tovu-socket-bench-" + std::to_string(getpid());
        ServerSocket listener(family == AF_INET ? Socket::Address(0, htonl(INADDR_LOOPBACK)) : Socket::Address(path), 1,
                              true);
        client_.reset(new ClientSocket(listener.GetHostAddress(), true));
        server_.reset(listener.Accept().release());
        unlink(path.c_str());
        if (family == AF_INET) {
            SendAtOnce(*client_);
            SendAtOnce(*server_);
        }
    }

    Socket& Client() { return *client_; }
    Socket& Server() { return *server_; }

private:
    static void SendAtOnce(Socket const& socket)
    {
        int const yes = 1;
        setsockopt(socket.GetDescriptor(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    }

    std::unique_ptr<Socket> client_;
    std::unique_ptr<Socket> server_;
};

// One end, with the library's classes. Receive and the others' are false once the peer has gone.
class OurEnd
{
public:
    explicit OurEnd(Socket& socket) : socket_(socket), writer_(socket) {}

    bool Receive(Message& message)
    {
        unsigned const size = static_cast<unsigned>(message.size());
        for (unsigned done = 0; done < size;) {
            StreamSelector selector;
            selector.AddStreamForReading(socket_);
            if (!selector.Select() || !selector.IsStreamReadyForReading(socket_))
                continue;
            unsigned long long waiting = 0;
            if (!socket_.IsDataAvailable(&waiting))
                return false;
            unsigned const part = static_cast<unsigned>(std::min<unsigned long long>(waiting, size - done));
            done += static_cast<unsigned>(socket_.Read(message.data() + done, part));
        }
        return true;
    }

    void Send(Message const& message) { writer_.Write(message.data(), static_cast<unsigned>(message.size())); }

private:
    Socket& socket_;
    MessageWriter writer_;
};

// The same with the bare calls, at will without the wait before each write.
template <bool WAITS_FOR_ROOM>
class BareEnd
{
public:
    explicit BareEnd(Socket const& socket) : descriptor_(socket.GetDescriptor()) {}

    bool Receive(Message& message)
    {
        for (std::size_t done = 0; done < message.size();) {
            fd_set set = OwnSet();
            if (select(descriptor_ + 1, &set, nullptr, nullptr, nullptr) < 0 || !FD_ISSET(descriptor_, &set))
                continue;
            int waiting = 0;
            if (ioctl(descriptor_, FIONREAD, &waiting) < 0 || waiting == 0)
                return false;
            std::size_t const part = std::min(static_cast<std::size_t>(waiting), message.size() - done);
            ssize_t const received = recv(descriptor_, message.data() + done, part, 0);
            if (received < 0)
                return false;
            done += static_cast<std::size_t>(received);
        }
        return true;
    }

    void Send(Message const& message)
    {
        for (std::size_t done = 0; done < message.size();) {
            fd_set set = OwnSet();
            if (WAITS_FOR_ROOM &&
                (select(descriptor_ + 1, nullptr, &set, nullptr, nullptr) < 0 || !FD_ISSET(descriptor_, &set)))
                continue;
            ssize_t const sent = send(descriptor_, message.data() + done, message.size() - done, 0);
            if (sent < 0)
                return;
            done += static_cast<std::size_t>(sent);
        }
    }

private:
    fd_set OwnSet() const
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(descriptor_, &set);
        return set;
    }

    int descriptor_;
};

template <typename End>
void RequestAndAnswer(benchmark::State& state, int family)
{
    OneProcessor const oneProcessor;
    Connection connection(family);
    std::size_t const size = static_cast<std::size_t>(state.range(0));
    std::thread server([&] {
        End end(connection.Server());
        for (Message message(size); end.Receive(message);)
            end.Send(message);
    });

    End end(connection.Client());
    Message const request(size, 'r');
    Message answer(size);
    for (auto _ : state) {
        end.Send(request);
        end.Receive(answer);
    }
    if (answer != request)
        state.SkipWithError("the answer is not the request");

    shutdown(connection.Client().GetDescriptor(), SHUT_WR);
    server.join();
    state.SetBytesProcessed(state.iterations() * 2 * state.range(0));
}

void OfBytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(64)->Arg(1024)->Arg(16384)->MeasureProcessCPUTime()->UseRealTime();
}

void LocalOurs(benchmark::State& state)
{
    RequestAndAnswer<OurEnd>(state, AF_LOCAL);
}

void LocalBare(benchmark::State& state)
{
    RequestAndAnswer<BareEnd<true>>(state, AF_LOCAL);
}

void LocalBareOneWait(benchmark::State& state)
{
    RequestAndAnswer<BareEnd<false>>(state, AF_LOCAL);
}

void TcpOurs(benchmark::State& state)
{
    RequestAndAnswer<OurEnd>(state, AF_INET);
}

void TcpBare(benchmark::State& state)
{
    RequestAndAnswer<BareEnd<true>>(state, AF_INET);
}

void TcpBareOneWait(benchmark::State& state)
{
    RequestAndAnswer<BareEnd<false>>(state, AF_INET);
}

BENCHMARK(LocalOurs)->Name("Socket_RequestAnswer_Local/tovuutil")->Apply(OfBytes);
BENCHMARK(LocalBare)->Name("Socket_RequestAnswer_Local/bare")->Apply(OfBytes);
BENCHMARK(LocalBareOneWait)->Name("Socket_RequestAnswer_Local/bare_one_wait")->Apply(OfBytes);
BENCHMARK(TcpOurs)->Name("Socket_RequestAnswer_Tcp/tovuutil")->Apply(OfBytes);
BENCHMARK(TcpBare)->Name("Socket_RequestAnswer_Tcp/bare")->Apply(OfBytes);
BENCHMARK(TcpBareOneWait)->Name("Socket_RequestAnswer_Tcp/bare_one_wait")->Apply(OfBytes);

}  // namespace
