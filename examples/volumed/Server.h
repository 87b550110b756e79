#pragma once

#include <list>
#include <memory>
#include <vector>

#include "Connection.h"
#include "Discovery.h"
#include "Notifier.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/StreamSelector.h"

namespace volume {

/// Accepts clients on any number of listeners and serves each on a thread of its own, until it is told to stop.
///
/// Threads: one thread calls everything, except that Stop may be called from any thread and from a signal handler.
class Server
{
public:
    /// Borrows the service. Throws tovu::util::Exception when there are no descriptors left.
    explicit Server(VolumeService& service);
    Server(Server const&) = delete;
    Server& operator=(Server const&) = delete;

    /// Stops serving: stops the service's jobs, and waits for every connection's thread.
    ~Server();

    /// Listens on one more address. Throws tovu::util::Exception when that is not possible.
    /// \return The address, with the port that the system chose when it was asked for port 0.
    tovu::util::Socket::Address Listen(tovu::util::Socket::Address const& address);

    /// Answers discovery on a UDP port. Throws tovu::util::Exception when that is not possible.
    void AnswerDiscovery(unsigned short port);

    /// Serves until Stop is called.
    void Run();

    void Stop() noexcept;

private:
    void ServeReady(tovu::util::StreamSelector const& selector);
    std::unique_ptr<tovu::util::Socket> Accept(tovu::util::ServerSocket& listener);
    void AcceptFrom(tovu::util::ServerSocket& listener);
    void Serve(std::unique_ptr<tovu::util::Socket> socket);
    void RemoveEnded();

    VolumeService& service_;
    int const descriptorLimit_;  // connections have descriptors below it
    Notifier notifier_;
    std::atomic<bool> stop_;
    std::vector<std::unique_ptr<tovu::util::ServerSocket>> listeners_;
    unsigned short tcpPort_ = 0;                          // of the TCP listener; 0 for none
    std::unique_ptr<Discovery> discovery_;                // null for none
    bool cannotAccept_ = false;                           // the last try to accept a client failed
    std::list<std::unique_ptr<Connection>> connections_;  // each with a thread that has not been waited for
};

}  // namespace volume
