#pragma once

#include <list>
#include <memory>
#include <vector>

#include "Connection.h"
#include "Notifier.h"
#include "tovu/util/ServerSocket.h"

namespace volume {

/// Accepts clients on any number of listeners and serves each on a thread of its own, until it is told to stop.
///
/// Threads: one thread calls everything, except that Stop may be called from any thread and from a signal handler.
class Server
{
public:
    /// Throws tovu::util::Exception when there are no descriptors left.
    Server();
    Server(Server const&) = delete;
    Server& operator=(Server const&) = delete;

    /// Stops serving: waits for every connection's thread.
    ~Server();

    /// Listens on one more address. Throws tovu::util::Exception when that is not possible.
    /// \return The address, with the port that the system chose when it was asked for port 0.
    tovu::util::Socket::Address Listen(tovu::util::Socket::Address const& address);

    /// Serves until Stop is called.
    void Run();

    void Stop() noexcept;

private:
    void AcceptFrom(tovu::util::ServerSocket& listener);
    void Serve(std::unique_ptr<tovu::util::Socket> socket);
    void RemoveEnded();

    int const descriptorLimit_;  // connections have descriptors below it
    Notifier notifier_;
    std::atomic<bool> stop_;
    std::vector<std::unique_ptr<tovu::util::ServerSocket>> listeners_;
    std::list<std::unique_ptr<Connection>> connections_;  // each with a thread that has not been waited for
};

}  // namespace volume
