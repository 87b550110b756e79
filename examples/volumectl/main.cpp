// volumectl: asks a volume service and prints its answer.

#include <sysexits.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "AnswerReader.h"
#include "Discoverer.h"
#include "FileReceiver.h"
#include "LocalError.h"
#include "Options.h"
#include "PlainText.h"
#include "Request.h"
#include "common/HostPort.h"
#include "common/Protocol.h"
#include "common/UsageError.h"
#include "common/XmlText.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/Path.h"

namespace volume { namespace {

using namespace tovu::util;

constexpr int EXIT_REFUSED = 1;
constexpr int EXIT_NO_ANSWER = 2;
constexpr int EXIT_JOB_FAILED = 3;

// What a command makes of its answer.
struct Outcome
{
    std::string plain;
    bool isKnown = false;  // false for an answer that only a plug-in of the service knows
    int status = EXIT_SUCCESS;
    bool isFile = false;  // true for an answer that is followed by a file
    unsigned long long fileSize = 0;
};

void LookAt(xercesc::DOMNode const& element, Outcome& outcome)
{
    outcome.isKnown = PlainText(element, outcome.plain);
    std::string const name = Utf8(element.getNodeName());
    outcome.isFile = name == "File";
    outcome.fileSize = std::strtoull(AttributeText(element, "size").c_str(), nullptr, 10);
    if (name == "Job" && AttributeText(element, "result") != "0")
        outcome.status = EXIT_JOB_FAILED;
}

Socket::Address ServiceAddress(Options const& options)
{
    return options.connect.empty() ? Socket::Address(options.socketPath) : ParseHostPort(options.connect);
}

// The file is called as the service's is, unless the command line says otherwise.
std::string TargetOf(std::vector<std::string> const& command)
{
    return command.size() > 2 ? command[2] : Path(command[1]).GetFullFileName();
}

void Receive(ClientSocket& service, Options const& options, Outcome& outcome, std::string const& first)
{
    if (!outcome.isFile)
        throw NoAnswer("the answer is no file");

    std::string const target = TargetOf(options.command);
    FileReceiver(target).Receive(service, outcome.fileSize, first);
    if (target != "-")
        outcome.plain = target + ": " + ReadableSize(outcome.fileSize) + "\n";
}

void Print(bool raw, std::string const& document, std::string const& plain)
{
    std::string const text = raw ? document + "\n" : plain;
    std::printf("%s", text.c_str());
}

// A service may refuse a message before all of it has come, and close the connection: what it says then tells more than
// the failed write.
void SendAndRead(ClientSocket& service, std::string const& document, AnswerReader& answer)
{
    try {
        MessageWriter(service).Write(document.c_str(), static_cast<unsigned>(document.size() + 1));
    } catch (Exception const&) {
        // the connection is gone: reading says so, or brings the answer
    }
    answer.Read(service);
}

int SendAndPrint(Options const& options, std::string const& document)
{
    Outcome outcome;
    AnswerReader answer([&outcome](xercesc::DOMNode const& element) { LookAt(element, outcome); });
    ClientSocket service(ServiceAddress(options), true);
    SendAndRead(service, document, answer);

    if (answer.IsRefusal()) {
        std::fprintf(stderr, "volumectl: refused: %s\n", answer.GetWords().c_str());
        return EXIT_REFUSED;
    }
    bool const isFile = options.command.front() == "get";
    if (isFile)
        Receive(service, options, outcome, answer.GetRest());
    bool const raw = options.xml || !outcome.isKnown || options.command.front() == "send";
    if (!isFile || TargetOf(options.command) != "-")
        Print(raw, answer.GetDocument(), outcome.plain);
    return outcome.status;
}

// Everything that can go wrong between here and the service has the same exit status.
int AskService(Options const& options, std::string const& document)
{
    std::string const where = options.connect + options.socketPath;
    try {
        return SendAndPrint(options, document);
    } catch (LocalError const&) {
        throw;
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "volumectl: cannot reach %s: %s\n", where.c_str(), exception.what());
        return EXIT_NO_ANSWER;
    }
}

Socket::Address BroadcastAddress(Options const& options)
{
    std::string const port = options.command.size() == 2 ? options.command[1] : std::string();
    try {
        return options.broadcast.empty() ? Socket::Address(ParsePort(port), INADDR_BROADCAST)
                                         : ParseHostPort(options.broadcast + ":" + port);
    } catch (std::exception const& exception) {
        throw UsageError(exception.what());
    }
}

int Discover(Options const& options)
{
    Socket::Address const address = BroadcastAddress(options);
    try {
        std::vector<FoundService> const services = Discoverer().Ask(address);
        if (services.empty())
            throw NoAnswer("nobody answers");
        for (FoundService const& service : services) {
            std::string const where =
                service.tcpPort.empty() ? service.address : service.address + ":" + service.tcpPort;
            std::string const plain = where + "  " + service.hostName + "  volumed " + service.version + "  process " +
                                      service.processId + "\n";
            Print(options.xml, service.document, plain);
        }
        return EXIT_SUCCESS;
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "volumectl: no service was found at %s: %s\n", ToText(address).c_str(), exception.what());
        return EXIT_NO_ANSWER;
    }
}

int Run(Options const& options)
{
    if (options.command.front() == "discover")
        return Discover(options);
    return AskService(options, RequestFor(options.command));
}

int Main(int argc, char** argv)
{
    Options const options = ParseOptions(argc, argv);
    if (options.help) {
        std::printf("%s", Usage());
        return EXIT_SUCCESS;
    }
    if (options.version) {
        std::printf("volumectl %s\n", Version());
        return EXIT_SUCCESS;
    }

    xercesc::XMLPlatformUtils::Initialize();
    int const status = Run(options);
    xercesc::XMLPlatformUtils::Terminate();
    return status;
}

}}  // namespace volume

int main(int argc, char** argv)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs
    std::setlocale(LC_ALL, "");     // the service's words are printed in the terminal's encoding
    std::signal(SIGPIPE, SIG_IGN);  // a service that is gone is an exception
    try {
        return volume::Main(argc, argv);
    } catch (volume::UsageError const& error) {
        std::fprintf(stderr, "volumectl: %s\n\n%s", error.what(), volume::Usage());
        return EX_USAGE;
    } catch (volume::LocalError const& error) {
        std::fprintf(stderr, "volumectl: %s\n", error.what());
        return error.status;
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "volumectl: %s\n", exception.what());
        return EX_SOFTWARE;
    }
}
