#include "Connection.h"

#include <exception>

#include "common/HostPort.h"
#include "tovu/util/Exception.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using tovu::util::Exception;
using tovu::util::LoggerMgr;
using tovu::util::Socket;

namespace {

// A client may have gone before it was accepted; then it has no address any more.
std::string PeerName(Socket const& socket)
{
    try {
        return ToText(socket.GetPeerAddress());
    } catch (Exception const& exception) {
        return std::string("unknown (") + exception.what() + ")";
    }
}

}  // namespace

Connection::Connection(std::unique_ptr<Socket> socket, VolumeService& service, Notifier& notifier)
    : socket_(std::move(socket)), notifier_(notifier), name_(PeerName(*socket_)), messages_(service), ended_(false)
{
    socket_->SetBlocking(false);
}

int Connection::Start()
{
    return Create(0, 0, false);
}

// A thread that waits to read sees the flag only at the next byte, so it is woken by the end of the stream.
void Connection::Stop()
{
    messages_.Stop();
    shutdown(socket_->GetDescriptor(), SHUT_RDWR);
}

// Nothing may leave a thread.
void Connection::Run()
{
    try {
        ServeClient();
    } catch (Exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "The connection from %s broke: %s\n", name_.c_str(),
                 exception.Report().c_str());
    } catch (std::exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "The connection from %s failed: %s\n", name_.c_str(), exception.what());
    } catch (...) {
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "The connection from %s failed.\n", name_.c_str());
    }
    ended_ = true;
    notifier_.Notify();
}

void Connection::ServeClient()
{
    TOVU_LOG(LoggerMgr::LEVEL_INFO, "A client has connected from %s.\n", name_.c_str());
    messages_.ReadMessages(*socket_);
    std::string const& reason = messages_.GetReasonToLeave();
    if (reason.empty())
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "The client from %s has left.\n", name_.c_str());
    else
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "The client from %s is left: %s.\n", name_.c_str(), reason.c_str());
}

}  // namespace volume
