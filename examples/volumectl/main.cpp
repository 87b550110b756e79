// volumectl: sends one message to the volume service and prints the answer.

#include <fcntl.h>
#include <sysexits.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <xercesc/util/PlatformUtils.hpp>

#include "AnswerReader.h"
#include "Options.h"
#include "common/HostPort.h"
#include "common/Protocol.h"
#include "common/UsageError.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/XercesUtils.h"

namespace volume { namespace {

using namespace tovu::util;

constexpr int EXIT_REFUSED = 1;
constexpr int EXIT_NO_ANSWER = 2;

// What ends the program before the service is asked, with the exit status to end it with.
class LocalError : public std::runtime_error
{
public:
    LocalError(int exitStatus, std::string const& words) : std::runtime_error(words), status(exitStatus) {}

    int const status;
};

std::string ReadDocument(std::string const& path)
{
    try {
        std::string document;
        FileHandleStream file;
        file.Open(path == "-" ? "/dev/stdin" : path, O_RDONLY, 0);
        char buffer[65536];
        for (int count = 0; (count = file.Read(buffer, sizeof(buffer))) != 0;)
            document.append(buffer, static_cast<std::size_t>(count));
        return document;
    } catch (Exception const& exception) {
        throw LocalError(EX_NOINPUT, "cannot read " + path + ": " + exception.what());
    }
}

std::string Document(std::vector<std::string> const& command)
{
    if (command.size() == 2 && command[0] == "echo")
        return "<Echo>" + EncodeXMLCharEntities(command[1]) + "</Echo>";
    if (command.size() == 1 && command[0] == "info")
        return "<GetInfo/>";
    if (command.size() == 2 && command[0] == "send")
        return ReadDocument(command[1]);
    throw UsageError("'" + command[0] + "' is no command, or its arguments are wrong");
}

// A zero byte ends a message: a document cannot hold one, and an empty one is dropped without an answer.
void RequireOneMessage(std::string const& document)
{
    if (document.empty())
        throw LocalError(EX_DATAERR, "the document is empty");
    if (document.find('\0') != std::string::npos)
        throw LocalError(EX_DATAERR, "the document holds a zero byte, which ends a message");
}

Socket::Address ServiceAddress(Options const& options)
{
    return options.connect.empty() ? Socket::Address(options.socketPath) : ParseHostPort(options.connect);
}

int SendAndPrint(Options const& options, std::string const& document)
{
    AnswerReader answer;
    ClientSocket service(ServiceAddress(options), true);
    MessageWriter(service).Write(document.c_str(), static_cast<unsigned>(document.size() + 1));
    answer.Read(service);

    if (answer.IsRefusal()) {
        std::fprintf(stderr, "volumectl: refused: %s\n", answer.GetWords().c_str());
        return EXIT_REFUSED;
    }
    std::printf("%s\n", answer.GetDocument().c_str());
    return EXIT_SUCCESS;
}

// Everything that can go wrong between here and the service has the same exit status.
int AskService(Options const& options, std::string const& document)
{
    std::string const where = options.connect + options.socketPath;
    try {
        return SendAndPrint(options, document);
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "volumectl: cannot reach %s: %s\n", where.c_str(), exception.what());
        return EXIT_NO_ANSWER;
    }
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

    std::string const document = Document(options.command);
    RequireOneMessage(document);
    xercesc::XMLPlatformUtils::Initialize();
    int const status = AskService(options, document);
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
