// A client that misbehaves as the test wants, and never waits without end.
#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <utility>

#include "Latch.h"
#include "tovu/util/ClientSocket.h"

namespace volume {

constexpr char const* CLOSED = "(closed)";

// One thread at a time sends, and one receives.
class Peer
{
public:
    explicit Peer(tovu::util::Socket::Address const& address)
        : socket_(std::make_unique<tovu::util::ClientSocket>(address, true))
    {
        timeval const deadline = {tovu::test::DEADLINE.count(), 0};
        setsockopt(Descriptor(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline));
        setsockopt(Descriptor(), SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof(deadline));
    }

    // \return False when the service has ended the connection, or takes no more.
    bool Send(std::string const& bytes)
    {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            ssize_t const count = send(Descriptor(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count == -1)
                return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }

    // \return The next answer, without its delimiter; CLOSED when there is none, and none will come.
    std::string Receive()
    {
        for (;;) {
            std::string::size_type const end = received_.find('\0', position_);
            if (end != std::string::npos) {
                std::string const answer = received_.substr(position_, end - position_);
                position_ = end + 1;
                return answer;
            }
            if (!Fill())
                return CLOSED;
        }
    }

    // \return False when the connection ends before so many bytes have come, of whatever.
    bool Skip(std::size_t count)
    {
        while (received_.size() - position_ < count) {
            if (!Fill())
                return false;
        }
        position_ += count;
        return true;
    }

    std::string Ask(std::string const& document) { return Send(document + '\0') ? Receive() : CLOSED; }

    // Whether something comes, be it the end, within a time.
    bool HasNews(int milliseconds) const
    {
        pollfd news = {Descriptor(), POLLIN, 0};
        return poll(&news, 1, milliseconds) == 1;
    }

    // Ends the connection in the way that the other side expects.
    // \return Whether the other side has closed it as well, after nothing more than what was received before.
    bool Leave()
    {
        char byte = 0;
        return position_ == received_.size() && shutdown(Descriptor(), SHUT_WR) == 0 &&
               recv(Descriptor(), &byte, 1, 0) == 0;
    }

    // Lets whoever waits to send or to receive go on, without success.
    void Abandon() { shutdown(Descriptor(), SHUT_RDWR); }

    // Ends the connection in the way that the other side does not expect.
    void Reset()
    {
        linger const atOnce = {1, 0};
        setsockopt(Descriptor(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
        socket_->Close();
    }

private:
    int Descriptor() const { return socket_->GetDescriptor(); }

    // What has been handed out is dropped first.
    bool Fill()
    {
        received_.erase(0, std::exchange(position_, 0));
        char bytes[1 << 16];
        ssize_t const count = recv(Descriptor(), bytes, sizeof(bytes), 0);
        if (count <= 0)
            return false;
        received_.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    std::unique_ptr<tovu::util::ClientSocket> socket_;
    std::string received_;
    std::string::size_type position_ = 0;  // what stands before it has been handed out
};

}  // namespace volume
