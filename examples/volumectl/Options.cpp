#include "Options.h"

#include <getopt.h>

#include "common/UsageError.h"

namespace volume {

namespace {

constexpr char const* DISCOVER = "discover";

option const LONG_OPTIONS[] = {{"socket", required_argument, nullptr, 's'},
                               {"connect", required_argument, nullptr, 'c'},
                               {"broadcast", required_argument, nullptr, 'b'},
                               {"xml", no_argument, nullptr, 'x'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

void RequireCommand(Options const& options)
{
    if (options.command.empty())
        throw UsageError("the command is missing");
    if (options.command.front() != DISCOVER && options.socketPath.empty() == options.connect.empty())
        throw UsageError("give either --socket PATH or --connect HOST:PORT");
}

}  // namespace

Options ParseOptions(int argc, char** argv)
{
    Options options = {"", "", "", false, false, false, {}};
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
            case 'b':
                options.broadcast = optarg;
                break;
            case 'x':
                options.xml = true;
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
    return "Usage: volumectl --socket PATH | --connect HOST:PORT  [--xml]  COMMAND [ARGUMENT]...\n"
           "       volumectl [--broadcast ADDRESS]  [--xml]  discover PORT\n"
           "Asks a volume service and prints its answer.\n"
           "\n"
           "  --socket PATH        the service's local socket\n"
           "  --connect HOST:PORT  the service's TCP address\n"
           "  --broadcast ADDRESS  where to look for services; all hosts of the network unless given\n"
           "  --xml                print the answer as it came\n"
           "  --help               show this text\n"
           "  --version            show the version\n"
           "\n"
           "Commands:\n"
           "  echo TEXT            get the text back\n"
           "  info                 the service's host name, process id and version\n"
           "  list FOLDER          the entries of a folder\n"
           "  status VOLUME        the free space of a volume, and whether work on it is stalled\n"
           "  guid [COUNT]         new identifiers\n"
           "  run JOB              run one of the service's jobs, and wait for its end\n"
           "  cancel JOB           cancel a job that waits for others to end\n"
           "  get PATH [FILE]      receive a file; - writes it to standard output\n"
           "  send FILE            send any XML document; - reads it from standard input\n"
           "  discover PORT        list the services that answer within a second\n"
           "\n"
           "Exit status: 0 answered, 1 refused by the service (it says why on standard error), 2 no service could be\n"
           "reached or none answered (one that is silent for 30 seconds does not), 3 the job did not succeed, 64 a\n"
           "wrong command line, 65 nothing that could be sent, 66 a file that cannot be read, 73 and 74 one that "
           "cannot\n"
           "be written.\n";
}

}  // namespace volume
