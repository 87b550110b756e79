// System logs of a service that has a /dev of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "Latch.h"

namespace volume {

// Listens on a local datagram socket. Whatever stood at the path is replaced at once.
class LogDaemon
{
public:
    explicit LogDaemon(std::string const& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        std::string const newPath = path + ".new";
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, newPath.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, bind(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof(address)));
        EXPECT_EQ(0, std::rename(newPath.c_str(), path.c_str()));
        timeval const deadline = {tovu::test::DEADLINE.count(), 0};
        EXPECT_EQ(0, setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline)));
    }

    LogDaemon(LogDaemon const&) = delete;
    LogDaemon& operator=(LogDaemon const&) = delete;
    ~LogDaemon() { close(socket_); }

    // The next line; empty when none comes any more.
    std::string Receive() const
    {
        char bytes[1 << 16];
        ssize_t const count = recv(socket_, bytes, sizeof(bytes), 0);
        return std::string(bytes, count == -1 ? 0 : static_cast<std::size_t>(count));
    }

    // Wakes who waits for a line: none comes.
    void Shut() const { shutdown(socket_, SHUT_RDWR); }

private:
    int const socket_;
};

// One that takes every line and keeps none.
class PatientLogDaemon
{
public:
    explicit PatientLogDaemon(std::string const& path) : daemon_(path), thread_([this] { Take(); }) {}
    PatientLogDaemon(PatientLogDaemon const&) = delete;
    PatientLogDaemon& operator=(PatientLogDaemon const&) = delete;

    ~PatientLogDaemon()
    {
        stop_ = true;
        daemon_.Shut();
        thread_.join();
    }

private:
    void Take() const
    {
        while (!stop_)
            daemon_.Receive();
    }

    LogDaemon daemon_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace volume
