#include "Options.h"

#include <getopt.h>

#include "common/UsageError.h"

namespace volume {

namespace {

option const LONG_OPTIONS[] = {{"socket", required_argument, nullptr, 's'},
                               {"connect", required_argument, nullptr, 'c'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

void RequireCommand(Options const& options)
{
    if (options.socketPath.empty() == options.connect.empty())
        throw UsageError("give either --socket PATH or --connect HOST:PORT");
    if (options.command.empty())
        throw UsageError("the command is missing");
}

}  // namespace

Options ParseOptions(int argc, char** argv)
{
    Options options = {"", "", false, false, {}};
    opterr = 0;
    // "+" stops at the command: what follows belongs to it.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    for (int letter = 0; (letter = getopt_long(argc, argv, "+", LONG_OPTIONS, nullptr)) != -1;) {
        switch (letter) {
            case 's':
                options.socketPath = optarg;
                break;
            case 'c':
                options.connect = optarg;
                break;
            case 'h':
                options.help = true;
                break;
            case 'V':
                options.version = true;
                break;
            default:
                throw UsageError(std::string("'") + argv[optind - 1] + "' is no option, or lacks its value");
        }
    }
    options.command.assign(argv + optind, argv + argc);
    if (!options.help && !options.version)
        RequireCommand(options);
    return options;
}

char const* Usage()
{
    return "Usage: volumectl --socket PATH | --connect HOST:PORT  COMMAND [ARGUMENT]\n"
           "Sends one message to a volume service and prints the answer.\n"
           "\n"
           "  --socket PATH        the service's local socket\n"
           "  --connect HOST:PORT  the service's TCP address\n"
           "  --help               show this text\n"
           "  --version            show the version\n"
           "\n"
           "Commands:\n"
           "  echo TEXT            get the text back\n"
           "  info                 ask for the service's host name, process id and version\n"
           "  send FILE            send any XML document; - reads it from standard input\n"
           "\n"
           "Exit status: 0 answered, 1 refused by the service (it says why on standard error), 2 the service could not "
           "be\n"
           "reached or gave no answer within 30 seconds, 64 a wrong command line, 65 nothing that could be sent, 66 a "
           "file\n"
           "that cannot be read.\n";
}

}  // namespace volume
