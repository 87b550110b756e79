// The example service and its client, as programs: started, talked to, and stopped.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ForeignPrograms.h"
#include "Interruptions.h"
#include "Latch.h"
#include "Sanitizers.h"
#include "TemporaryDirectory.h"
#include "tovu/util/ClientSocket.h"

namespace volume {

// Starts a program with its standard output and error in files, which are there, and empty, from the beginning.
inline pid_t Start(std::vector<std::string> const& arguments, std::string const& output, std::string const& error)
{
    tovu::test::WriteFile(output, "");
    tovu::test::WriteFile(error, "");
    std::vector<char*> argv;
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    pid_t const child = fork();
    if (child == 0) {
        if (std::freopen(output.c_str(), "w", stdout) != nullptr && std::freopen(error.c_str(), "w", stderr) != nullptr)
            execv(argv[0], argv.data());
        _exit(127);
    }
    return child;
}

// \return The exit status, or 128 and the signal.
inline int WaitFor(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Its status stays, to be waited for.
inline bool HasEnded(pid_t child)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == child;
}

// Asks every few milliseconds, since another process cannot tell when it is so far.
template <typename Condition>
bool Eventually(Condition condition)
{
    auto const deadline = std::chrono::steady_clock::now() + tovu::test::DEADLINE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A service on a local socket and on TCP, once StartService was called. Where tests are interrupted, it is the service
// that is; its clients are sockets that throw then.
class RunningService : public testing::Test
{
protected:
    struct Answer
    {
        int status;
        std::string output;
        std::string error;
    };

    RunningService() : socket_(folder_ / "volumed.sock")
    {
        if (tovu::test::Interruptions::AreWanted())
            tovu::test::Interruptions::End();
    }

    ~RunningService() override
    {
        if (service_ != -1) {
            EXPECT_EQ(0, StopService(SIGTERM)) << Log();
        }
    }

    void SetUp() override
    {
        static bool const canStart = tovu::test::CanStart(VOLUMECTL);
        if (!canStart)
            GTEST_SKIP() << tovu::test::CANNOT_START;
    }

    void StartService(std::vector<std::string> const& more)
    {
        std::vector<std::string> arguments = {VOLUMED, "--socket", socket_, "--listen", "127.0.0.1:0", "--foreground"};
        if (tovu::test::Interruptions::AreWanted())
            arguments.insert(arguments.begin(), {"/usr/bin/env", "LD_PRELOAD=" INTERRUPTER});
        arguments.insert(arguments.begin(), launcher_.begin(), launcher_.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        service_ = Start(arguments, folder_ / "output", folder_ / "log");
        EXPECT_TRUE(AwaitLog(" listens on ")) << Log();

        std::string const log = Log();
        std::string::size_type const port = log.find(" and 127.0.0.1:") + 5;
        tcp_ = log.substr(port, log.find(".\n", port) - port);
    }

    int StopService(int signal)
    {
        kill(service_, signal);
        if (tovu::test::THREADS_ARE_WATCHED) {
            // ThreadSanitizer may drop a signal that comes while threads end, so there it is sent until it is seen.
            EXPECT_TRUE(Eventually([&] { return HasEnded(service_) || kill(service_, signal) == -1; })) << Log();
        }
        int const status = WaitFor(service_);
        service_ = -1;
        return status;
    }

    std::string Log() const { return tovu::test::ReadFile(folder_ / "log"); }

    bool AwaitLog(std::string const& text) const
    {
        return Eventually([&] { return Log().find(text) != std::string::npos; });
    }

    Answer Control(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), VOLUMECTL);
        std::string const output = folder_ / "control-output";
        std::string const error = folder_ / "control-error";
        int const status = WaitFor(Start(arguments, output, error));
        return {status, tovu::test::ReadFile(output), tovu::test::ReadFile(error)};
    }

    Answer ControlLocal(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--socket", socket_});
        return Control(arguments);
    }

    std::unique_ptr<tovu::util::ClientSocket> Connect() const
    {
        return std::unique_ptr<tovu::util::ClientSocket>(
            new tovu::util::ClientSocket(tovu::util::Socket::Address(socket_), true));
    }

    // Sends bytes as they are and reads as many answers, each up to its delimiter.
    static std::string Talk(tovu::util::Socket& socket, std::string const& bytes, unsigned answers)
    {
        socket.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        std::string text;
        while (answers != 0) {
            char byte = 0;
            if (socket.Read(&byte, 1) == 0)
                return text + "(closed)";
            if (byte == '\0')
                --answers;
            text += byte == '\0' ? '|' : byte;
        }
        return text;
    }

    static std::string Message(std::string const& document) { return document + '\0'; }

    tovu::test::TemporaryDirectory folder_;
    std::string const socket_;
    std::string tcp_;
    std::vector<std::string> launcher_;  // what becomes the service; itself when empty
    pid_t service_ = -1;
};

}  // namespace volume
