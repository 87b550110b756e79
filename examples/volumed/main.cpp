// volumed: a small volume service. Listens on a local socket and on TCP, and answers XML messages.

#include <sys/stat.h>
#include <sysexits.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <xercesc/util/PlatformUtils.hpp>

#include "Loggers.h"
#include "Options.h"
#include "Server.h"
#include "common/HostPort.h"
#include "common/Protocol.h"
#include "common/UsageError.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileLogger.h"
#include "tovu/util/LoggerMgr.h"

namespace volume { namespace {

using namespace tovu::util;

// Set while signals may come.
Server* signalledServer = nullptr;
pthread_t mainThread;

// Any thread may be interrupted. The main thread alone cannot destroy the server meanwhile, so the others pass it on.
void StopServer(int signal)
{
    if (pthread_equal(pthread_self(), mainThread) != 0)
        signalledServer->Stop();
    else
        pthread_kill(mainThread, signal);
}

void HandleSignals(Server& server)
{
    signalledServer = &server;
    mainThread = pthread_self();
    struct sigaction stop = {};
    stop.sa_handler = &StopServer;
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);

    // A client that is gone is an exception of its connection. Caught and not ignored: a signal that is ignored would
    // stay so in the programs that jobs run.
    struct sigaction nothing = {};
    nothing.sa_handler = [](int /*signal*/) {};
    nothing.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &nothing, nullptr);
}

void IgnoreSignals()
{
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
    signalledServer = nullptr;
}

bool IsAnswered(Socket::Address const& address)
{
    try {
        ClientSocket const probe(address, true);
        return true;
    } catch (Exception const&) {
        return false;
    }
}

// The address of a path. A listener removes whatever stands there, and nobody would notice until too late: so only what
// an earlier run has left may be replaced.
Socket::Address LocalAddress(std::string const& path)
{
    Socket::Address const address(path);
    if (address.AddrToString() != path)
        throw std::runtime_error("the path " + path + " is too long for a socket");

    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode))
        throw std::runtime_error(path + " is there already, and is no socket");
    if (IsAnswered(address))
        throw std::runtime_error("a service answers on " + path + " already");
    return address;
}

// Keeps the platform of the XML parser alive.
struct XercesPlatform
{
    XercesPlatform() { xercesc::XMLPlatformUtils::Initialize(); }
    XercesPlatform(XercesPlatform const&) = delete;
    XercesPlatform& operator=(XercesPlatform const&) = delete;
    ~XercesPlatform() { xercesc::XMLPlatformUtils::Terminate(); }
};

// \return The sink that tells when everything has been logged; the manager owns it.
LastLineLogger& StartLogging(Options const& options)
{
    openlog("volumed", LOG_PID, LOG_LOCAL5);
    if (options.foreground)
        AddLogger(std::unique_ptr<Logger>(new StandardErrorLogger));
    AddLogger(std::unique_ptr<Logger>(new FileLogger("volumed")));
    std::unique_ptr<LastLineLogger> last(new LastLineLogger("volumed has stopped.\n"));
    LastLineLogger& result = *last;
    AddLogger(std::move(last));

    LoggerMgr::Instance().Init("volumed", options.logLevel, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION, 0);
    return result;  // cppcheck-suppress returnReference ; the manager keeps it
}

// \return The exit status: a service that fails while it runs says so in the log.
int RunLogged(Server& server)
{
    try {
        server.Run();
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "volumed is told to stop.\n");
        return EXIT_SUCCESS;
    } catch (Exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "volumed cannot go on: %s\n", exception.Report().c_str());
        return EXIT_FAILURE;
    }
}

// Everything that can fail comes first, so that whoever starts the service learns by the exit status whether it can be
// reached; then it leaves the terminal, before the first thread is started.
int Serve(Options const& options)
{
    XercesPlatform const xercesPlatform;
    VolumeService service(options);
    std::unique_ptr<Server> server(new Server(service));
    server->Listen(LocalAddress(options.socketPath));
    std::string addresses = options.socketPath;
    if (!options.listen.empty())
        addresses += " and " + ToText(server->Listen(ParseHostPort(options.listen)));
    if (!options.discover.empty())
        server->AnswerDiscovery(ParsePort(options.discover));

    if (!options.foreground && daemon(1, 0) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    LastLineLogger& lastLine = StartLogging(options);
    service.Start();
    HandleSignals(*server);
    TOVU_LOG(LoggerMgr::LEVEL_INFO, "volumed %s listens on %s.\n", Version(), addresses.c_str());
    int const status = RunLogged(*server);

    IgnoreSignals();
    server.reset();
    unlink(options.socketPath.c_str());
    lastLine.LogAndWait();
    return status;
}

int Main(int argc, char** argv)
{
    Options const options = ParseOptions(argc, argv);
    if (options.help)
        std::printf("%s", Usage());
    else if (options.version)
        std::printf("volumed %s\n", Version());
    else
        return Serve(options);
    return EXIT_SUCCESS;
}

}}  // namespace volume

int main(int argc, char** argv)
{
    try {
        return volume::Main(argc, argv);
    } catch (volume::UsageError const& error) {
        std::fprintf(stderr, "volumed: %s\n\n%s", error.what(), volume::Usage());
        return EX_USAGE;
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "volumed: cannot start: %s\n", exception.what());
        return EXIT_FAILURE;
    }
}
