#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Notifier.h"
#include "VolumeMessages.h"
#include "tovu/util/Socket.h"
#include "tovu/util/Thread.h"

namespace volume {

/// One client, served on a thread of its own from Start until it leaves.
///
/// Ownership: owns the socket, borrows the service, and the notifier, which tells the owner that HasEnded has become
/// true.
/// Threads: everything but Run is called by the owner, which calls Wait before it destroys a connection that was
/// started.
class Connection : public tovu::util::Thread
{
public:
    Connection(std::unique_ptr<tovu::util::Socket> socket, VolumeService& service, Notifier& notifier);

    /// Starts the thread.
    /// \return 0, or an error number: then there is no thread.
    int Start();

    /// Makes the thread end soon, whatever it waits for, except a job: those are stopped by the service.
    void Stop();

    bool HasEnded() const { return ended_; }

    /// The client's address, for the log.
    std::string const& GetName() const { return name_; }

    void Run() override;

private:
    void ServeClient();

    std::unique_ptr<tovu::util::Socket> socket_;
    Notifier& notifier_;
    std::string name_;
    VolumeMessages messages_;
    std::atomic<bool> ended_;
};

}  // namespace volume
