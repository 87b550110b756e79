// What the example service can do, asked for by its client.

#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <sstream>

#include "ChildOrSkip.h"
#include "RunningService.h"
#include "common/HostPort.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/Path.h"
#include "tovu/util/ServerBroadcastSocket.h"

namespace volume { namespace {

using namespace tovu::util;
using tovu::test::ReadFile;
using tovu::test::WriteFile;

// A port that nobody listens on, as far as the system knows.
std::string FreeUdpPort()
{
    ServerBroadcastSocket const probe(Socket::Address(0, INADDR_ANY), true);
    return std::to_string(probe.GetHostAddress().GetPort());
}

std::string Lines(std::vector<std::string> const& lines)
{
    std::string text;
    for (std::string const& line : lines)
        text += line + "\n";
    return text;
}

bool Exists(std::string const& path)
{
    return Path(path).Exists();
}

std::string Repeated(std::size_t size)
{
    std::string bytes;
    for (unsigned i = 0; bytes.size() < size; ++i)
        bytes += std::to_string(i) + '\0';
    return bytes.substr(0, size);
}

class VolumeCommandsTest : public RunningService
{
protected:
    VolumeCommandsTest() : shared_(folder_ / "shared"), database_(folder_ / "volumes.db"), discoveryPort_(FreeUdpPort())
    {
        EXPECT_EQ(0, mkdir(shared_.c_str(), 0755));
    }

    void StartWithFolder() { StartService({"--send-folder", shared_}); }

    // Makes an executable script and returns its path.
    std::string Script(std::string const& name, std::string const& lines) const
    {
        std::string const path = folder_ / name;
        WriteFile(path, "#!/bin/sh\n" + lines);
        EXPECT_EQ(0, chmod(path.c_str(), 0755));
        return path;
    }

    // Asks without waiting for the answer.
    pid_t Ask(std::vector<std::string> const& command, std::string const& name) const
    {
        std::vector<std::string> arguments = {VOLUMECTL, "--socket", socket_};
        arguments.insert(arguments.end(), command.begin(), command.end());
        return Start(arguments, folder_ / (name + ".out"), folder_ / (name + ".err"));
    }

    std::string AnswerOf(std::string const& name) const { return ReadFile(folder_ / (name + ".out")); }

    // The rows of the service's database, as "path questions action" lines.
    std::string Rows() const
    {
        std::string rows;
        sqlite3* database = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(database_.c_str(), &database));
        auto const append = [](void* text, int columns, char** values, char** /*names*/) {
            for (int i = 0; i < columns; ++i)
                *static_cast<std::string*>(text) += std::string(values[i]) + (i + 1 < columns ? " " : "\n");
            return 0;
        };
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, "SELECT * FROM Volumes ORDER BY path", append, &rows, nullptr));
        EXPECT_EQ(SQLITE_OK, sqlite3_close(database));
        return rows;
    }

    int StartAndWait(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {VOLUMED, "--socket", folder_ / "other.sock", "--foreground"});
        return WaitFor(Start(more, folder_ / "other.out", folder_ / "other.err"));
    }

    std::string const shared_;
    std::string const database_;
    std::string const discoveryPort_;
};

TEST_F(VolumeCommandsTest, EchoPrintsTheText)
{
    StartService({});
    EXPECT_EQ("a < b & \"c\"\n", ControlLocal({"echo", "a < b & \"c\""}).output);
}

TEST_F(VolumeCommandsTest, ListShowsTypesSizesAndNamesInOrder)
{
    StartService({});
    WriteFile(shared_ + "/b", "12345");
    ASSERT_EQ(0, mkdir((shared_ + "/a").c_str(), 0755));
    ASSERT_EQ(0, symlink("/nowhere", (shared_ + "/c").c_str()));

    Answer const answer = ControlLocal({"list", shared_});
    EXPECT_EQ(0, answer.status);
    std::istringstream lines(answer.output);
    std::string type, size, date, time, name, summary;
    while (lines >> type >> size >> date >> time >> name)
        summary += type + ":" + (type == "file" ? size : "") + ":" + name + " ";
    EXPECT_EQ("folder::a file:5:b other::c ", summary);
}

TEST_F(VolumeCommandsTest, ListEscapesNamesThatWouldBreakTheDocument)
{
    StartService({});
    std::set<std::string> const names = {"a\"b", "<c>", "d&e", "f'g", "gr\xC3\xBC\xC3\x9F"};
    for (std::string const& name : names)
        WriteFile(shared_ + "/" + name, "");
    WriteFile(shared_ + "/bell\a", "");
    WriteFile(shared_ + "/latin\xE4", "");

    std::string const output = ControlLocal({"list", shared_}).output;
    for (std::string const& name : names)
        EXPECT_NE(std::string::npos, output.find("  " + name + "\n")) << output;
    EXPECT_NE(std::string::npos, output.find("  bell%07\n")) << output;
    EXPECT_NE(std::string::npos, output.find("  latin%E4\n")) << output;
}

TEST_F(VolumeCommandsTest, ListOfAnEmptyFolderIsEmpty)
{
    StartService({});
    EXPECT_EQ("", ControlLocal({"list", shared_}).output);
    EXPECT_EQ("<Listing path=\"" + shared_ + "\"></Listing>\n", ControlLocal({"--xml", "list", shared_}).output);
}

TEST_F(VolumeCommandsTest, ListOfWhatIsNoFolderIsRefused)
{
    StartService({});
    WriteFile(folder_ / "file", "");
    for (std::string const& path : {folder_ / "missing", folder_ / "file"}) {
        Answer const answer = ControlLocal({"list", path});
        EXPECT_EQ(1, answer.status);
        EXPECT_EQ("volumectl: refused: There is nothing of that name.\n", answer.error);
    }
}

TEST_F(VolumeCommandsTest, StatusCountsItsQuestionsInTheDatabase)
{
    StartService({"--database", database_});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0, ControlLocal({"status", "/proc"}).status);
    EXPECT_EQ(0, ControlLocal({"status", "/proc/../proc/"}).status) << "the same volume";
    EXPECT_EQ(0, StopService(SIGTERM));
    EXPECT_EQ("/proc 4 stalled\n", Rows()) << "no byte is free there";
}

TEST_F(VolumeCommandsTest, StatusOfAVolumeWithoutSpaceIsStalled)
{
    StartService({});
    EXPECT_EQ("<Status volume=\"/proc\" freeSpace=\"0\" status=\"out of disk space\" action=\"stalled\"/>\n",
              ControlLocal({"--xml", "status", "/proc"}).output);
    EXPECT_EQ(
        Lines({"volume      /proc", "free space  0 bytes", "status      out of disk space", "action      stalled"}),
        ControlLocal({"status", "/proc"}).output);
    EXPECT_TRUE(AwaitLog("Work on /proc: stalled.\n"));
}

TEST_F(VolumeCommandsTest, StatusOfWhatIsNotThereIsRefused)
{
    StartService({});
    EXPECT_EQ(1, ControlLocal({"status", folder_ / "missing"}).status);
    EXPECT_EQ(1, ControlLocal({"status", ""}).status);
}

// A volume of its own: first roomy, then filled to the brim, with the database on it, then cleared again.
TEST_F(VolumeCommandsTest, StatusFollowsAVolumeThatFillsUpAndIsCleared)
{
    tovu::test::ExpectPassesInChildOrSkips([this] {
        if (!tovu::test::EnterMountNamespace())
            tovu::test::SkipFromChild("this machine gives a process no mounts of its own");
        std::string const volume = folder_ / "volume";
        ASSERT_EQ(0, mkdir(volume.c_str(), 0755));
        ASSERT_EQ(0, mount("none", volume.c_str(), "tmpfs", 0, "size=300m"));
        StartService({"--database", volume + "/volumes.db"});
        EXPECT_NE(std::string::npos, ControlLocal({"status", volume}).output.find("action      idle\n"));

        // All but what makes the file system's last block: the database cannot grow any more.
        std::ofstream filler(volume + "/filler", std::ios::binary);
        std::vector<char> const block(1 << 20);
        while (filler.write(block.data(), static_cast<std::streamsize>(block.size())).flush())
            continue;
        Answer const full = ControlLocal({"status", volume});
        EXPECT_NE(std::string::npos, full.output.find("status      out of disk space\naction      stalled\n"))
            << full.output << full.error;
        EXPECT_TRUE(AwaitLog("The database is not written: ")) << Log();
        EXPECT_TRUE(AwaitLog(", and work on its volume is stalled")) << Log();

        ASSERT_EQ(0, unlink((volume + "/filler").c_str()));
        filler.close();
        Answer const cleared = ControlLocal({"status", volume});
        EXPECT_NE(std::string::npos, cleared.output.find("status      normal\naction      idle\n")) << cleared.output;
        EXPECT_TRUE(AwaitLog("Work on " + volume + ": idle.\n"));
        EXPECT_EQ(0, StopService(SIGTERM));
        EXPECT_EQ(0, umount(volume.c_str()));
    });
}

TEST_F(VolumeCommandsTest, GuidMakesAsManyAsWanted)
{
    StartService({});
    std::istringstream lines(ControlLocal({"guid", "1000"}).output);
    std::set<std::string> guids;
    for (std::string guid; lines >> guid;) {
        EXPECT_EQ(32u, guid.size());
        EXPECT_EQ('4', guid[12]) << guid;
        guids.insert(guid);
    }
    EXPECT_EQ(1000u, guids.size());
    EXPECT_EQ(33u, ControlLocal({"guid"}).output.size());
}

TEST_F(VolumeCommandsTest, GuidRefusesSenselessCounts)
{
    StartService({});
    for (char const* count : {"0", "1001", "-1", "+1", "1.5", "x", "4294967297", " 1"}) {
        Answer const answer = ControlLocal({"guid", count});
        EXPECT_EQ(1, answer.status) << count;
        EXPECT_EQ("volumectl: refused: An attribute of the message is missing, or its value makes no sense.\n",
                  answer.error);
    }
}

TEST_F(VolumeCommandsTest, RunTellsHowTheProgramEnded)
{
    StartService({"--job", "good=" + Script("good", "exit 0\n"), "--job", "bad=" + Script("bad", "exit 7\n"), "--job",
                  "killed=" + Script("killed", "kill -9 $$\n")});
    Answer const good = ControlLocal({"run", "good"});
    EXPECT_EQ(0, good.status);
    EXPECT_EQ("job good succeeded\n", good.output);
    EXPECT_EQ("<Job name=\"good\" result=\"0\" status=\"0\"/>\n", ControlLocal({"--xml", "run", "good"}).output);

    Answer const bad = ControlLocal({"run", "bad"});
    EXPECT_EQ(3, bad.status);
    EXPECT_EQ("job bad failed with exit code 7\n", bad.output);
    EXPECT_EQ("<Job name=\"bad\" result=\"1\" status=\"7\"/>\n", ControlLocal({"--xml", "run", "bad"}).output);

    EXPECT_EQ("job killed was ended by signal 9\n", ControlLocal({"run", "killed"}).output);
}

TEST_F(VolumeCommandsTest, RunHandsOverTheArgumentsOfTheCommandLineAndNoOthers)
{
    std::string const output = folder_ / "arguments";
    StartService(
        {"--job", "print=" + Script("print", "printf '<%s>' \"$@\" >'" + output + "'\n") + "  one 'two'\tthree"});
    EXPECT_EQ(0, ControlLocal({"run", "print"}).status);
    EXPECT_EQ("<one><'two'><three>", ReadFile(output));
}

TEST_F(VolumeCommandsTest, RunRefusesWhatIsNotOnTheList)
{
    StartService({"--job", "good=/bin/true"});
    for (char const* name : {"bad", "/bin/true", "good ", "Good"})
        EXPECT_EQ(1, ControlLocal({"run", name}).status) << name;
}

TEST_F(VolumeCommandsTest, AProgramInheritsNeitherConnectionsNorIgnoredSignals)
{
    std::string const output = folder_ / "inherited";
    std::string const look =
        Script("look", "exec >'" + output + "'\nls -l /proc/self/fd\ngrep -E 'Sig(Blk|Ign)' /proc/self/status\n");
    StartService({"--database", database_, "--discover", discoveryPort_, "--job", "look=" + look});
    std::unique_ptr<ClientSocket> const other = Connect();
    EXPECT_EQ("<Echo></Echo>|", Talk(*other, Message("<Echo/>"), 1)) << "connected, and known to the service";
    EXPECT_EQ(0, ControlLocal({"run", "look"}).status);

    std::string const inherited = ReadFile(output);
    EXPECT_EQ(std::string::npos, inherited.find("socket:")) << inherited;
    EXPECT_EQ(std::string::npos, inherited.find("volumes.db")) << inherited;
    EXPECT_NE(std::string::npos, inherited.find("SigBlk:\t0000000000000000\n")) << inherited;
    EXPECT_NE(std::string::npos, inherited.find("SigIgn:\t0000000000000000\n")) << inherited;
}

// Two jobs run and wait for a named pipe to be opened, so the third one waits in the queue.
TEST_F(VolumeCommandsTest, CancelTakesAWaitingJobAndNoneThatRuns)
{
    std::string const gate = folder_ / "gate";
    ASSERT_EQ(0, mkfifo(gate.c_str(), 0600));
    StartService({"--job", "wait=" + Script("wait", "read line <'" + gate + "'\n"), "--job", "good=/bin/true"});
    std::vector<pid_t> const running = {Ask({"run", "wait"}, "first"), Ask({"run", "wait"}, "second")};
    auto const begun = [this] {
        std::string const log = Log();
        std::string::size_type const first = log.find("Job wait begins.");
        return first != std::string::npos && log.find("Job wait begins.", first + 1) != std::string::npos;
    };
    ASSERT_TRUE(Eventually(begun)) << Log();
    EXPECT_EQ(1, ControlLocal({"cancel", "wait"}).status) << "those that run are not found";

    pid_t const waiting = Ask({"run", "good"}, "third");
    Answer cancelled = {};
    EXPECT_TRUE(Eventually([&] { return (cancelled = ControlLocal({"cancel", "good"})).status == 0; }));
    EXPECT_EQ("job good is cancelled\n", cancelled.output);
    EXPECT_EQ(3, WaitFor(waiting));
    EXPECT_EQ("job good was cancelled\n", AnswerOf("third"));

    // Held open until both have read their line, for which each opens it on its own.
    FILE* const lines = std::fopen(gate.c_str(), "r+");
    std::fputs("\n\n", lines);
    std::fflush(lines);
    for (pid_t const client : running)
        EXPECT_EQ(0, WaitFor(client));
    std::fclose(lines);
}

TEST_F(VolumeCommandsTest, StoppingTheServiceEndsTheProgramsThatRun)
{
    std::string const gate = folder_ / "gate";
    std::string const started = folder_ / "started";
    ASSERT_EQ(0, mkfifo(gate.c_str(), 0600));
    StartService({"--job", "wait=" + Script("wait", "echo >'" + started + "'\nread line <'" + gate + "'\n")});
    pid_t const client = Ask({"run", "wait"}, "client");
    ASSERT_TRUE(Eventually([&] { return Exists(started); }));
    EXPECT_EQ(0, StopService(SIGTERM));
    EXPECT_NE(std::string::npos, Log().find("Job wait has ended with result 3, status 15.\n")) << Log();
    WaitFor(client);  // it may still get the answer, or find the connection closed
}

TEST_F(VolumeCommandsTest, AProgramThatIgnoresTheSignalIsKilled)
{
    std::string const gate = folder_ / "gate";
    std::string const started = folder_ / "started";
    ASSERT_EQ(0, mkfifo(gate.c_str(), 0600));
    StartService(
        {"--job", "stay=" + Script("stay", "trap '' TERM\necho >'" + started + "'\nread line <'" + gate + "'\n")});
    pid_t const client = Ask({"run", "stay"}, "client");
    ASSERT_TRUE(Eventually([&] { return Exists(started); }));
    EXPECT_EQ(0, StopService(SIGTERM));
    EXPECT_NE(std::string::npos, Log().find("Job stay has ended with result 3, status 9.\n")) << Log();
    WaitFor(client);
}

TEST_F(VolumeCommandsTest, GetBringsFilesOfAnySize)
{
    StartWithFolder();
    for (std::size_t const size : {0U, 1U, 4095U, 32768U, 32769U, 3000000U}) {
        std::string const bytes = Repeated(size);
        WriteFile(shared_ + "/file", bytes);
        Answer const answer = ControlLocal({"get", "file", folder_ / "copy"});
        EXPECT_EQ(0, answer.status) << answer.error;
        EXPECT_TRUE(bytes == ReadFile(folder_ / "copy")) << size;
        EXPECT_EQ("", answer.error) << "no progress bar without a terminal";
    }
    EXPECT_FALSE(Exists(folder_ / "copy.part"));
}

TEST_F(VolumeCommandsTest, GetWritesToStandardOutput)
{
    StartWithFolder();
    ASSERT_EQ(0, mkdir((shared_ + "/a").c_str(), 0755));
    WriteFile(shared_ + "/a/b", Repeated(100000));
    EXPECT_TRUE(Repeated(100000) == ControlLocal({"get", "/a//b", "-"}).output);
}

TEST_F(VolumeCommandsTest, GetAppendsToWhatStandardOutputHoldsAlready)
{
    StartWithFolder();
    WriteFile(shared_ + "/file", "new");
    std::string const command =
        "exec " VOLUMECTL " --socket '" + socket_ + "' get file - >>'" + (folder_ / "collected") + "'";
    WriteFile(folder_ / "collected", "what was there, ");
    EXPECT_EQ(0, WaitFor(Start({"/bin/sh", "-c", command}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ("what was there, new", ReadFile(folder_ / "collected"));
}

TEST_F(VolumeCommandsTest, GetReplacesAFileOnlyOnceItIsComplete)
{
    StartWithFolder();
    WriteFile(folder_ / "copy", "what was there");
    EXPECT_EQ(1, ControlLocal({"get", "missing", folder_ / "copy"}).status);
    EXPECT_EQ("what was there", ReadFile(folder_ / "copy"));

    WriteFile(shared_ + "/file", "new");
    EXPECT_EQ(folder_ / "copy" + ": 3 bytes\n", ControlLocal({"get", "file", folder_ / "copy"}).output);
    EXPECT_EQ("new", ReadFile(folder_ / "copy"));
    EXPECT_EQ(73, ControlLocal({"get", "file", folder_ / "missing/copy"}).status);
}

TEST_F(VolumeCommandsTest, GetTellsWhenTheFileCannotBeWritten)
{
    StartWithFolder();
    WriteFile(shared_ + "/file", Repeated(200000));
    std::string const command = "ulimit -f 100; trap '' XFSZ; exec " VOLUMECTL " --socket '" + socket_ +
                                "' get file '" + (folder_ / "copy") + "'";
    EXPECT_EQ(74, WaitFor(Start({"/bin/sh", "-c", command}, folder_ / "o", folder_ / "e")));
    EXPECT_NE(std::string::npos, ReadFile(folder_ / "e").find("volumectl: cannot write ")) << ReadFile(folder_ / "e");
    EXPECT_FALSE(Exists(folder_ / "copy"));
    EXPECT_FALSE(Exists(folder_ / "copy.part"));
}

TEST_F(VolumeCommandsTest, GetShowsItsProgressOnATerminal)
{
    StartWithFolder();
    WriteFile(shared_ + "/file", Repeated(300000));
    std::string const command = VOLUMECTL " --socket '" + socket_ + "' get file '" + (folder_ / "copy") + "'";
    EXPECT_EQ(0, WaitFor(Start({"/usr/bin/script", "-qec", command, "/dev/null"}, folder_ / "o", folder_ / "e")));
    std::string const shown = ReadFile(folder_ / "o");
    EXPECT_NE(std::string::npos, shown.find("\r[" + std::string(40, '#') + "] 100%  293.0 KiB of 293.0 KiB")) << shown;
}

TEST_F(VolumeCommandsTest, NothingOutsideTheFolderIsEverSent)
{
    StartWithFolder();
    WriteFile(folder_ / "secret", "secret");
    ASSERT_EQ(0, symlink((folder_ / "secret").c_str(), (shared_ + "/link").c_str()));
    ASSERT_EQ(0, symlink("..", (shared_ + "/up").c_str()));
    ASSERT_EQ(0, mkdir((shared_ + "/inner").c_str(), 0755));
    for (std::string const& path :
         {std::string("../secret"), std::string("inner/../../secret"), std::string(".."), std::string("link"),
          std::string("up/secret"), folder_ / "secret", std::string("/etc/passwd"), std::string("..\\secret")}) {
        Answer const answer = ControlLocal({"get", path, "-"});
        EXPECT_EQ(1, answer.status) << path;
        EXPECT_EQ("", answer.output) << path;
    }
}

TEST_F(VolumeCommandsTest, OnlyRegularFilesAreSent)
{
    StartWithFolder();
    ASSERT_EQ(0, mkdir((shared_ + "/inner").c_str(), 0755));
    ASSERT_EQ(0, mkfifo((shared_ + "/pipe").c_str(), 0600));
    for (char const* path : {"inner", "pipe", "missing"})
        EXPECT_EQ("volumectl: refused: There is nothing of that name.\n", ControlLocal({"get", path, "-"}).error);
    for (char const* path : {"", "/", "."})
        EXPECT_EQ(1, ControlLocal({"get", path, "-"}).status);
}

TEST_F(VolumeCommandsTest, AFileOfTwoGibibytesIsTooLarge)
{
    StartWithFolder();
    WriteFile(shared_ + "/huge", "");
    ASSERT_EQ(0, truncate((shared_ + "/huge").c_str(), 0x7FFFFFFF));
    std::unique_ptr<ClientSocket> const client = Connect();
    EXPECT_EQ("<File name=\"huge\" size=\"2147483647\"/>|", Talk(*client, Message("<Send path=\"huge\"/>"), 1));

    ASSERT_EQ(0, truncate((shared_ + "/huge").c_str(), off_t{1} << 31));
    EXPECT_EQ("volumectl: refused: The file is too large to be sent.\n", ControlLocal({"get", "huge", "-"}).error);
}

TEST_F(VolumeCommandsTest, WithoutAFolderNothingIsSent)
{
    StartService({});
    EXPECT_EQ("volumectl: refused: The service is not set up to do that.\n", ControlLocal({"get", "a", "-"}).error);
}

TEST_F(VolumeCommandsTest, MessagesBehindASendAreAnsweredBehindTheFile)
{
    StartWithFolder();
    WriteFile(shared_ + "/file", "12345");
    EXPECT_EQ("<File name=\"file\" size=\"5\"/>|12345<Echo>after</Echo>|",
              Talk(*Connect(), Message("<Send path=\"file\"/>") + Message("<Echo>after</Echo>"), 2));
}

TEST_F(VolumeCommandsTest, EndsWhileAClientDoesNotReadItsFile)
{
    StartWithFolder();
    WriteFile(shared_ + "/file", Repeated(8000000));
    std::unique_ptr<ClientSocket> const client = Connect();
    EXPECT_EQ("<File name=\"file\" size=\"8000000\"/>|", Talk(*client, Message("<Send path=\"file\"/>"), 1));
    EXPECT_EQ(0, StopService(SIGTERM));
}

TEST_F(VolumeCommandsTest, PlugInsAnswerTheirMessages)
{
    StartService({"--plugins", PLUGINS});
    WriteFile(folder_ / "question", "<GetUptime/>");
    Answer const answer = ControlLocal({"send", folder_ / "question"});
    EXPECT_EQ(0, answer.status) << answer.error;
    EXPECT_EQ(0u, answer.output.find("<Uptime seconds=\"")) << answer.output;
    EXPECT_TRUE(AwaitLog("/uptime handles GetUptime.\n"));
}

TEST_F(VolumeCommandsTest, APlugInThatCannotBeLoadedIsLeftOut)
{
    std::string const plugins = folder_ / "plugins";
    ASSERT_EQ(0, mkdir(plugins.c_str(), 0755));
    WriteFile(plugins + "/broken.so", "this is no library");
    WriteFile(plugins + "/readme.txt", "nor is this");
    ASSERT_EQ(0, symlink(PLUGINS "/uptime.so", (plugins + "/uptime.so").c_str()));
    WriteFile(plugins + "/uptime2.so", ReadFile(PLUGINS "/uptime.so"));
    StartService({"--plugins", plugins});

    std::string const log = Log();
    EXPECT_NE(std::string::npos, log.find("The plug-in " + plugins + "/broken is left out: ")) << log;
    EXPECT_NE(std::string::npos, log.find("The plug-in " + plugins + "/uptime handles GetUptime.\n")) << log;
    EXPECT_NE(std::string::npos, log.find("/uptime2 is left out: the message GetUptime has a handler already\n"))
        << log;
    EXPECT_EQ(std::string::npos, log.find("readme")) << log;
}

TEST_F(VolumeCommandsTest, DiscoverListsTheServicesThatAnswer)
{
    StartService({"--discover", discoveryPort_});
    Answer const answer = Control({"--broadcast", "127.255.255.255", "discover", discoveryPort_});
    EXPECT_EQ(0, answer.status) << answer.error;
    EXPECT_EQ(tcp_ + "  " + Socket::GetHostName() + "  volumed " VOLUME_VERSION "  process " +
                  std::to_string(service_) + "\n",
              answer.output);

    std::string const port = tcp_.substr(tcp_.find(':') + 1);
    EXPECT_EQ("<Service hostName=\"" + Socket::GetHostName() + "\" processId=\"" + std::to_string(service_) +
                  "\" version=\"" VOLUME_VERSION "\" tcpPort=\"" + port + "\"/>\n",
              Control({"--xml", "--broadcast", "127.255.255.255", "discover", discoveryPort_}).output);
}

TEST_F(VolumeCommandsTest, DiscoveryIgnoresWhatItDoesNotKnow)
{
    StartService({"--discover", discoveryPort_});
    ClientBroadcastSocket stranger(ParseHostPort(std::string("127.0.0.1:") + discoveryPort_), true);
    for (std::string const& datagram :
         {std::string(), std::string("garbage"), std::string("<Discover/>"), std::string("<Discover port=\"x\"/>"),
          std::string("<Other/>"), std::string("<!DOCTYPE Discover []><Discover port=\"1\"/>"),
          std::string("<?xml version='1.2'?><Discover port=\"1\"/>"), std::string(1, '\0'), std::string(60000, 'x')})
        stranger.Write(datagram.data(), static_cast<unsigned>(datagram.size()));
    EXPECT_EQ(0, Control({"--broadcast", "127.255.255.255", "discover", discoveryPort_}).status);
    EXPECT_EQ(std::string::npos, Log().find("127.0.0.1:1 ")) << Log();
}

TEST_F(VolumeCommandsTest, DiscoverTellsWhenNobodyAnswers)
{
    Answer const answer = Control({"--broadcast", "127.255.255.255", "discover", discoveryPort_});
    EXPECT_EQ(2, answer.status);
    EXPECT_EQ("volumectl: no service was found at 127.255.255.255:" + discoveryPort_ + ": nobody answers\n",
              answer.error);
}

TEST_F(VolumeCommandsTest, RefusesToStartWithWhatItCannotUse)
{
    WriteFile(folder_ / "text", "no database");
    struct
    {
        std::vector<std::string> options;
        int status;
    } const cases[] = {
        {{"--job", "nameless"}, 64},
        {{"--job", "=/bin/true"}, 64},
        {{"--job", "a="}, 64},
        {{"--job", "a=/bin/true", "--job", "a=/bin/false"}, 64},
        {{"--job", "a=/no/such/program"}, 1},
        {{"--send-folder", folder_ / "text"}, 1},
        {{"--plugins", folder_ / "missing"}, 1},
        {{"--database", folder_ / "text"}, 1},
        {{"--database", folder_ / "missing/db"}, 1},
        {{"--discover", "99999"}, 1},
    };
    for (auto const& wrong : cases) {
        EXPECT_EQ(wrong.status, StartAndWait(wrong.options)) << wrong.options[0] << " " << wrong.options[1];
        EXPECT_NE("", ReadFile(folder_ / "other.err"));
    }
    EXPECT_EQ("no database", ReadFile(folder_ / "text"));
}

TEST_F(VolumeCommandsTest, WrongCommandsAreExplained)
{
    EXPECT_EQ(64, Control({"discover"}).status);
    EXPECT_EQ(64, Control({"discover", "port"}).status);
    EXPECT_EQ(64, Control({"--broadcast", "", "discover", "99999"}).status);
    EXPECT_EQ(64, ControlLocal({"list"}).status);
    EXPECT_EQ(64, ControlLocal({"get", "a", "b", "c"}).status);
    EXPECT_EQ(64, ControlLocal({"guid", "1", "2"}).status);
}

}}  // namespace volume
