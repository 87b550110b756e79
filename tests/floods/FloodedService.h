// The service in a flood: alone with its clients, and watched.
#pragma once

#include <sys/resource.h>
#include <sys/stat.h>

#include "Figures.h"
#include "LogDaemon.h"
#include "Peer.h"
#include "ProcessFigures.h"
#include "RunningService.h"
#include "common/HostPort.h"

namespace volume {

// A folder, and then the program that is to see another /dev than all others.
constexpr char const* OWN_DEV = R"(
    set -e
    folder=$1
    shift
    mount --rbind /dev "$folder/dev"
    mount -t tmpfs none /dev
    for node in null random urandom; do ln -s "$folder/dev/$node" "/dev/$node"; done
    ln -s "$folder/dev-log" /dev/log
    exec "$@")";

// The service has a /dev of its own where the machine permits it: what thousands of clients make it write must not fill
// the machine's log. The system log that it sees there is the socket "dev-log" in the test's folder.
class FloodedService : public RunningService
{
protected:
    FloodedService()
    {
        std::vector<std::string> unshare = {"/usr/bin/unshare", "--mount"};
        if (geteuid() != 0)
            unshare.push_back("--map-root-user");
        unshare.insert(unshare.end(), {"/bin/sh", "-c", OWN_DEV, "sh", folder_ / ""});
        EXPECT_EQ(0, mkdir((folder_ / "dev").c_str(), 0700));

        std::vector<std::string> probe = unshare;
        probe.push_back("/bin/true");
        if (WaitFor(Start(probe, folder_ / "probe-output", folder_ / "probe-error")) == 0)
            launcher_ = unshare;
    }

    bool HasOwnSystemLog() const { return !launcher_.empty(); }

    // Lets the service run with less than this process has: what the shell's ulimit takes, "-n 64" for example.
    void Limit(std::string const& limit)
    {
        launcher_.insert(launcher_.end(), {"/bin/sh", "-c", "ulimit " + limit + R"( && exec "$@")", "sh"});
    }

    // Starts the service, with a system log unless the test has made one, and lets it do once what it does only once.
    void StartAndWarmUp(std::vector<std::string> const& more)
    {
        if (access(systemLog_.c_str(), F_OK) == -1)
            daemon_ = std::make_unique<PatientLogDaemon>(systemLog_);
        StartService(more);
        long const threads = StatusOf(service_, "Threads");
        Peer first(Tcp());
        EXPECT_EQ("<Echo>first</Echo>", first.Ask("<Echo>first</Echo>"));
        EXPECT_TRUE(first.Leave());  // the service closes its descriptor last of all, after its thread and its log line
        EXPECT_TRUE(Eventually([&] { return StatusOf(service_, "Threads") == threads; }));
        atRest_ = HoldingsOf(service_);
    }

    tovu::util::Socket::Address Tcp() const { return ParseHostPort(tcp_); }
    tovu::util::Socket::Address Local() const { return tovu::util::Socket::Address(socket_); }

    // Tells how many threads and descriptors there are when all clients have left, and expects those of the beginning.
    void ExpectAtRest(char const* flood) const
    {
        EXPECT_TRUE(Eventually([this] { return HoldingsOf(service_) == atRest_; })) << ToText(HoldingsOf(service_));
        Tell(flood, "threads and descriptors when all have left", ToText(HoldingsOf(service_)),
             "those before: " + ToText(atRest_));
    }

    // Lets this process, and what it starts from now on, hold as many descriptors as the machine permits.
    static rlim_t RaiseDescriptors()
    {
        rlimit limit = {};
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
        limit.rlim_cur = limit.rlim_max;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        return limit.rlim_cur;
    }

    unsigned CountInLog(std::string const& text) const
    {
        std::string const log = Log();
        unsigned count = 0;
        for (std::string::size_type at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }

    std::string const systemLog_ = folder_ / "dev-log";
    Holdings atRest_ = {};

private:
    std::unique_ptr<PatientLogDaemon> daemon_;
};

}  // namespace volume
