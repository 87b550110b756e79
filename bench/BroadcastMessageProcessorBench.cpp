// What does the road of one datagram, from the wait to the hook, cost beside the bare calls and a bare parser?

#include "tovu/util/BroadcastMessageProcessor.h"

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "Documents.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/XercesUtils.h"

using namespace tovu::util;

namespace {

// Datagrams to this process itself; what sending takes is in both numbers.
class Road
{
public:
    explicit Road(benchmark::State const& state)
        : datagram_(bench::MakeDocument(static_cast<std::size_t>(state.range()))),
          receiver(Socket::Address(0, htonl(INADDR_LOOPBACK)), true),
          sender_(AF_INET, SOCK_DGRAM, 0),
          to_(receiver.GetHostAddress())
    {}

    void Send() const
    {
        if (sendto(sender_.GetDescriptor(), datagram_.data(), datagram_.size(), 0, &to_.address.generic, to_.length) ==
            -1)
            throw std::runtime_error("the datagram was not sent");
    }

private:
    std::string const datagram_;

public:
    ServerBroadcastSocket receiver;

private:
    Socket const sender_;
    Socket::Address const to_;
};

class Messages : public BroadcastMessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override { return name == "Volumes"; }

    void HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& /*element*/, Socket::Address const& /*sender*/) const override
    {
        ++handled;
    }

    mutable std::int64_t handled = 0;
};

void ReadOurs(benchmark::State& state)
{
    Road road(state);
    Messages messages;
    for (auto _ : state) {
        road.Send();
        messages.ReadMessage(road.receiver);
    }
    if (messages.handled != state.iterations())
        throw std::logic_error("a datagram was not handled");
    state.SetBytesProcessed(state.range() * state.iterations());
}

void Parse(std::vector<unsigned char> const& datagram)
{
    XercesErrorHandler errorHandler;
    xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
    parser.setErrorHandler(&errorHandler);
    xercesc::MemBufInputSource source(datagram.data(), datagram.size(), "", false,
                                      xercesc::XMLPlatformUtils::fgMemoryManager);
    parser.parse(source);
    benchmark::DoNotOptimize(parser.getDocument()->getDocumentElement());
}

void ReadBare(benchmark::State& state)
{
    Road road(state);
    int const descriptor = road.receiver.GetDescriptor();
    for (auto _ : state) {
        road.Send();
        fd_set reading;
        FD_ZERO(&reading);
        FD_SET(descriptor, &reading);
        select(descriptor + 1, &reading, nullptr, nullptr, nullptr);
        int available = 0;
        ioctl(descriptor, FIONREAD, &available);
        std::vector<unsigned char> bytes(static_cast<std::size_t>(available));
        sockaddr_in from = {};
        socklen_t length = sizeof(from);
        recvfrom(descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        Parse(bytes);
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}

void ThreeDatagrams(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(200)->Arg(1400)->Arg(8000);
}

BENCHMARK(ReadOurs)->Name("BroadcastMessageProcessor_ReadMessage/tovuutil")->Apply(ThreeDatagrams);
BENCHMARK(ReadBare)->Name("BroadcastMessageProcessor_ReadMessage/bare")->Apply(ThreeDatagrams);

}  // namespace
