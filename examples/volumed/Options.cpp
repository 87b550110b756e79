#include "Options.h"

#include <getopt.h>

#include <iterator>
#include <sstream>

#include "common/UsageError.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using tovu::util::LoggerMgr;

namespace {

option const LONG_OPTIONS[] = {
    {"socket", required_argument, nullptr, 's'},   {"listen", required_argument, nullptr, 'l'},
    {"discover", required_argument, nullptr, 'd'}, {"send-folder", required_argument, nullptr, 'S'},
    {"job", required_argument, nullptr, 'j'},      {"database", required_argument, nullptr, 'b'},
    {"plugins", required_argument, nullptr, 'p'},  {"log-level", required_argument, nullptr, 'v'},
    {"foreground", no_argument, nullptr, 'f'},     {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},        {nullptr, 0, nullptr, 0}};

unsigned ParseLevel(std::string const& name)
{
    unsigned const level = LoggerMgr::string2level(name);
    if (level == 0)
        throw UsageError("there is no log level '" + name + "'");
    return level;
}

// "NAME=PROGRAM ARGUMENT...", at blanks.
void AddJob(JobPrograms& jobs, std::string const& text)
{
    std::string::size_type const equals = text.find('=');
    std::istringstream words(equals == std::string::npos ? std::string() : text.substr(equals + 1));
    std::vector<std::string> const command{std::istream_iterator<std::string>(words),
                                           std::istream_iterator<std::string>()};
    // cppcheck-suppress knownConditionTrueFalse ; without a word behind the sign the range is empty
    if (equals == 0 || command.empty())
        throw UsageError("the job '" + text + "' is not of the form NAME=PROGRAM");
    if (!jobs.emplace(text.substr(0, equals), command).second)
        throw UsageError("there are two jobs of the name " + text.substr(0, equals));
}

}  // namespace

Options ParseOptions(int argc, char** argv)
{
    Options options = {"", "", "", "", "", "", {}, LoggerMgr::LEVEL_INFO, false, false, false};
    opterr = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    for (int letter = 0; (letter = getopt_long(argc, argv, "", LONG_OPTIONS, nullptr)) != -1;) {
        switch (letter) {
            case 's':
                options.socketPath = optarg;
                break;
            case 'l':
                options.listen = optarg;
                break;
            case 'd':
                options.discover = optarg;
                break;
            case 'S':
                options.sendFolder = optarg;
                break;
            case 'j':
                AddJob(options.jobs, optarg);
                break;
            case 'b':
                options.database = optarg;
                break;
            case 'p':
                options.plugins = optarg;
                break;
            case 'v':
                options.logLevel = ParseLevel(optarg);
                break;
            case 'f':
                options.foreground = true;
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
    if (optind < argc)
        throw UsageError(std::string("'") + argv[optind] + "' is no option");
    if (options.socketPath.empty() && !options.help && !options.version)
        throw UsageError("--socket PATH is missing");
    return options;
}

char const* Usage()
{
    return "Usage: volumed --socket PATH [OPTION]...\n"
           "Answers XML messages about the volumes of this machine, on a local socket and on TCP.\n"
           "\n"
           "  --socket PATH        listen on this local socket; one left by an earlier run is removed\n"
           "  --listen HOST:PORT   listen on TCP as well; port 0 lets the system choose one\n"
           "  --discover PORT      answer clients that look for services on this UDP port\n"
           "  --send-folder FOLDER send files from inside this folder to whoever asks\n"
           "  --job NAME=PROGRAM   let clients run this program, a path, with the arguments that follow it after "
           "blanks;\n"
           "                       may be given again\n"
           "  --database FILE      keep a record of the volumes that were asked about in this SQLite database\n"
           "  --plugins FOLDER     load further messages from the plug-ins of this folder\n"
           "  --log-level LEVEL    log Error, Warning, Info (unless told otherwise) or Debug, and what is worse\n"
           "  --foreground         stay in the foreground, and log to standard error as well\n"
           "  --help               show this text\n"
           "  --version            show the version\n"
           "\n"
           "Logs to the system log, facility local5. SIGINT and SIGTERM end it.\n"
           "Exit status: 0 after a signal, 1 when it cannot start or go on, 64 for a wrong command line.\n";
}

}  // namespace volume
