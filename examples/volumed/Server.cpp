#include "Server.h"

#include <sys/resource.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "Descriptor.h"
#include "tovu/util/Exception.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using tovu::util::Exception;
using tovu::util::LoggerMgr;
using tovu::util::ServerSocket;
using tovu::util::Socket;
using tovu::util::StreamSelector;

namespace {

constexpr long PAUSE_MICROSECONDS = 100000;

// The longest time until the stop flag is looked at without a notification. Only the thread sanitizer needs it: it may
// hold a signal back, and with it the handler that notifies, until the next call that it knows; select is none of those.
constexpr long LOOK_SECONDS = 1;

// The selector watches descriptors below FD_SETSIZE. A client beyond that must still be accepted, to be turned away:
// left in the queue it would keep the listener ready, and the service would spin. So the process may hold one
// descriptor more than it serves; where it may not be raised that far, it serves one client less.
int RaiseDescriptorLimit()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1)
        return FD_SETSIZE;

    rlim_t const wanted = FD_SETSIZE + 1;
    if (limit.rlim_cur < wanted) {
        rlimit raised = limit;
        raised.rlim_cur = std::min(wanted, limit.rlim_max);
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0)
            limit = raised;
    }
    return static_cast<int>(std::min(limit.rlim_cur - 1, static_cast<rlim_t>(FD_SETSIZE)));
}

}  // namespace

Server::Server(VolumeService& service) : service_(service), descriptorLimit_(RaiseDescriptorLimit()), stop_(false) {}

Server::~Server()
{
    service_.Stop();  // first, since connections wait for jobs
    for (auto const& connection : connections_)
        connection->Stop();
    for (auto const& connection : connections_)
        connection->Wait();
}

Socket::Address Server::Listen(Socket::Address const& address)
{
    listeners_.emplace_back(new ServerSocket(address, SOMAXCONN, false));
    CloseOnExec(listeners_.back()->GetDescriptor());
    Socket::Address const bound = listeners_.back()->GetHostAddress();
    if (bound.GetFamily() == AF_INET)
        tcpPort_ = bound.GetPort();
    return bound;
}

void Server::AnswerDiscovery(unsigned short port)
{
    discovery_ = std::make_unique<Discovery>(port, service_.GetGuard());
    discovery_->SetTcpPort(tcpPort_);
}

void Server::Run()
{
    while (!stop_) {
        StreamSelector selector;
        selector.AddStreamForReading(notifier_.Waiter());
        for (auto const& listener : listeners_)
            selector.AddStreamForReading(*listener);
        if (discovery_)
            selector.AddStreamForReading(discovery_->GetSocket());
        StreamSelector::TimeVal look(LOOK_SECONDS, 0);
        if (selector.Select(look))
            ServeReady(selector);
    }
}

void Server::ServeReady(StreamSelector const& selector)
{
    if (selector.IsStreamReadyForReading(notifier_.Waiter()))
        notifier_.Clear();
    RemoveEnded();
    for (auto const& listener : listeners_) {
        if (selector.IsStreamReadyForReading(*listener))
            AcceptFrom(*listener);
    }
    if (discovery_ && selector.IsStreamReadyForReading(discovery_->GetSocket()))
        discovery_->Serve();
}

void Server::Stop() noexcept
{
    stop_ = true;
    notifier_.Notify();
}

std::unique_ptr<Socket> Server::Accept(ServerSocket& listener)
{
    // cppcheck-suppress unreadVariable ; holds the lock
    std::unique_lock<std::mutex> const noSpawns = service_.HoldSpawns();
    std::unique_ptr<Socket> socket(listener.Accept());
    CloseOnExec(socket->GetDescriptor());
    return socket;
}

// An accept that fails for want of descriptors or memory leaves the client in the queue. Until a connection ends, or a
// moment has passed, another try would fail as well. The log is told of the first, not of all that follow.
void Server::AcceptFrom(ServerSocket& listener)
{
    try {
        Serve(Accept(listener));
        cannotAccept_ = false;
    } catch (std::exception const& exception) {
        if (!cannotAccept_)
            TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A client cannot be accepted: %s\n", exception.what());
        cannotAccept_ = true;
        StreamSelector selector;
        selector.AddStreamForReading(notifier_.Waiter());
        StreamSelector::TimeVal pause(0, PAUSE_MICROSECONDS);
        selector.Select(pause);
    }
}

void Server::Serve(std::unique_ptr<Socket> socket)
{
    if (socket->GetDescriptor() >= descriptorLimit_) {
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A client is turned away: %d descriptors are in use.\n", descriptorLimit_);
        return;
    }

    std::unique_ptr<Connection> connection(new Connection(std::move(socket), service_, notifier_));
    connections_.push_back(nullptr);  // before the thread starts, so that running out of memory cannot lose it
    int const error = connection->Start();
    if (error != 0) {
        errno = error;
        std::string const reason = Exception::FromErrorCode(error);
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "The client from %s is turned away, there is no thread for it: %s\n",
                 connection->GetName().c_str(), reason.c_str());
        connections_.pop_back();
        return;
    }
    connections_.back() = std::move(connection);
}

void Server::RemoveEnded()
{
    connections_.remove_if([](std::unique_ptr<Connection> const& connection) {
        return connection->HasEnded() && connection->Wait() == 0;
    });
}

}  // namespace volume
