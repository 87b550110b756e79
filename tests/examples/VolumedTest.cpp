// What the example service promises whatever it is asked: roads, refusals, clients that misbehave, its start and end.

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "Emulation.h"
#include "RunningService.h"
#include "common/HostPort.h"
#include "tovu/util/Directory.h"
#include "tovu/util/Exception.h"
#include "tovu/util/StreamSelector.h"

namespace volume { namespace {

using namespace tovu::util;
using tovu::test::ReadFile;
using tovu::test::WriteFile;

char const* const MESSAGES = TOVU_SOURCE_DIR "/examples/messages/";

class VolumedTest : public RunningService
{
protected:
    void SetUp() override
    {
        RunningService::SetUp();
        if (!IsSkipped())
            StartService({});
    }
};

TEST_F(VolumedTest, EchoReturnsItsContentOnBothRoads)
{
    Answer const local = ControlLocal({"--xml", "echo", "a < b & \"c\""});
    EXPECT_EQ(0, local.status);
    EXPECT_EQ("<Echo>a &lt; b &amp; &quot;c&quot;</Echo>\n", local.output);
    EXPECT_EQ("", local.error);

    Answer const tcp = Control({"--connect", tcp_, "--xml", "echo", "over TCP"});
    EXPECT_EQ(0, tcp.status);
    EXPECT_EQ("<Echo>over TCP</Echo>\n", tcp.output);
}

TEST_F(VolumedTest, InfoTellsHostProcessAndVersion)
{
    std::string const process = std::to_string(service_);
    EXPECT_EQ("<Info hostName=\"" + Socket::GetHostName() + "\" processId=\"" + process +
                  "\" version=\"" VOLUME_VERSION "\"/>\n",
              ControlLocal({"--xml", "info"}).output);
    EXPECT_EQ(
        "host        " + Socket::GetHostName() + "\nprocess     " + process + "\nversion     " VOLUME_VERSION "\n",
        ControlLocal({"info"}).output);
}

TEST_F(VolumedTest, ContentComesBackWithItsMarkup)
{
    EXPECT_EQ(
        "<Echo><a x=\"&lt;1&#10;&quot;\"><b/>t</a><!--c--><![CDATA[<&]]><?p d?>&#13;\xC3\xA4</Echo>|",
        Talk(*Connect(),
             Message("<Echo y='1'><a x='&lt;1&#10;\"'><b></b>t</a><!--c--><![CDATA[<&]]><?p d?>&#13;&#xE4;</Echo>"),
             1));
}

TEST_F(VolumedTest, MessagesOfOneBurstAreAnsweredInOrder)
{
    std::string burst;
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        burst += Message("<Echo>" + std::to_string(i) + "</Echo>");
        expected += "<Echo>" + std::to_string(i) + "</Echo>|";
    }
    EXPECT_EQ(expected, Talk(*Connect(), burst, 200));
}

TEST_F(VolumedTest, EmptyMessagesGetNoAnswer)
{
    EXPECT_EQ("<Echo>after</Echo>|", Talk(*Connect(), std::string(3, '\0') + Message("<Echo>after</Echo>"), 1));
}

TEST_F(VolumedTest, RefusalsAreAnsweredWithTheirCodeAndTheConnectionLives)
{
    std::unique_ptr<ClientSocket> const client = Connect();
    struct
    {
        char const* document;
        char const* answer;
    } const refusals[] = {
        {"<Unknown/>", "<Error code=\"0\">The message name is not known.</Error>|"},
        {"<Echo>", "<Error code=\"3\">The message is malformed, or handling it failed.</Error>|"},
        {"no XML", "<Error code=\"3\">The message is malformed, or handling it failed.</Error>|"},
        {"<?xml version='1.2'?><Echo/>", "<Error code=\"3\">The message is malformed, or handling it failed.</Error>|"},
        {"<!DOCTYPE Echo []><Echo/>", "<Error code=\"4\">A document type declaration is not accepted.</Error>|"},
        {"<?xml version='1.0' encoding='UTF-7'?><Echo/>",
         "<Error code=\"5\">The encoding is not accepted; use UTF-8, US-ASCII or ISO-8859-1.</Error>|"},
        {"<Echo>alive</Echo>", "<Echo>alive</Echo>|"},
    };
    for (auto const& refusal : refusals)
        EXPECT_EQ(refusal.answer, Talk(*client, Message(refusal.document), 1)) << refusal.document;
}

TEST_F(VolumedTest, AnExternalEntityIsNeverRead)
{
    WriteFile(folder_ / "secret", "the secret");
    std::string const document =
        "<!DOCTYPE Echo [<!ENTITY s SYSTEM 'file://" + (folder_ / "secret") + "'>]><Echo>&s;</Echo>";
    EXPECT_EQ("<Error code=\"4\">A document type declaration is not accepted.</Error>|",
              Talk(*Connect(), Message(document), 1));
}

// An Echo with that many elements in each other.
std::string DeepEcho(int depth)
{
    std::string document = "<Echo>";
    for (int i = 1; i < depth; ++i)
        document += "<a>";
    document += "x";
    for (int i = 1; i < depth; ++i)
        document += "</a>";
    return document + "</Echo>";
}

TEST_F(VolumedTest, DeepNestingIsEchoed)
{
    EXPECT_EQ(DeepEcho(100) + "|", Talk(*Connect(), Message(DeepEcho(100)), 1));
}

TEST_F(VolumedTest, HostileShapesAreRefusedAndTheConnectionLives)
{
    std::string wide = "<Echo";
    for (int i = 0; i <= 100; ++i)
        wide += " a" + std::to_string(i) + "=''";
    std::unique_ptr<ClientSocket> const client = Connect();
    EXPECT_EQ("<Error code=\"12\">The elements of the message are nested too deeply.</Error>|",
              Talk(*client, Message(DeepEcho(101)), 1));
    EXPECT_EQ("<Error code=\"13\">An element of the message has too many attributes.</Error>|",
              Talk(*client, Message(wide + "/>"), 1));
    EXPECT_EQ("<Echo>alive</Echo>|", Talk(*client, Message("<Echo>alive</Echo>"), 1));
}

TEST_F(VolumedTest, AMessageThatIsTooLongIsAnsweredAndEndsTheConnection)
{
    std::unique_ptr<ClientSocket> const client = Connect();
    EXPECT_EQ("<Error code=\"11\">The message is too long.</Error>|",
              Talk(*client, Message("<Echo>" + std::string(1 << 20, 'x') + "</Echo>"), 1));
    char byte = 0;
    EXPECT_EQ(0, client->Read(&byte, 1));
    EXPECT_TRUE(AwaitLog("The client from local is left: its message is too long.\n")) << Log();
}

TEST_F(VolumedTest, ClientTellsThatItsMessageIsTooLong)
{
    WriteFile(folder_ / "large", "<Echo>" + std::string(20 << 20, 'x') + "</Echo>");
    Answer const local = ControlLocal({"send", folder_ / "large"});
    EXPECT_EQ(1, local.status);
    EXPECT_EQ("volumectl: refused: The message is too long.\n", local.error);
}

TEST_F(VolumedTest, EveryDocumentOfTheExamplesIsAnsweredAsExpected)
{
    struct
    {
        char const* name;
        int status;
        char const* words;
    } const documents[] = {
        {"01-get-info.xml", 0, "<Info hostName="},
        {"02-echo-short.xml", 0, "<Echo>Is anybody there?</Echo>\n"},
        {"03-echo-declaration.xml", 0, "A declaration, attributes and line ends."},
        {"04-echo-utf8.xml", 0, "\xD0\xA2\xD0\xBE\xD0\xBC"},
        {"05-echo-entities.xml", 0, "&lt; 6 &amp;&amp; 7 &gt; 6, &apos;quoted&apos;, \xC3\xA4, \xE2\x82\xAC"},
        {"06-echo-comments.xml", 0, "<!-- kept -->text<![CDATA[ <raw> & unescaped ]]><?pause 3?><!-- kept, too -->"},
        {"07-echo-volumes.xml", 0, "Share &amp; Archive 16"},
        {"08-echo-latin1.xml", 0, "Caf\xC3\xA9, na\xC3\xAFve, "},
        {"09-echo-long.xml", 0, "<Line number=\"160\">"},
        {"10-malformed.xml", 1, "volumectl: refused: The message is malformed, or handling it failed.\n"},
        {"11-unknown-root.xml", 1, "volumectl: refused: The message name is not known.\n"},
        {"12-doctype.xml", 1, "volumectl: refused: A document type declaration is not accepted.\n"},
        {"13-encoding.xml", 1,
         "volumectl: refused: The encoding is not accepted; use UTF-8, US-ASCII or ISO-8859-1.\n"},
        {"14-unknown-version.xml", 1, "volumectl: refused: The message is malformed, or handling it failed.\n"},
    };
    for (auto const& document : documents) {
        Answer const answer = ControlLocal({"send", std::string(MESSAGES) + document.name});
        EXPECT_EQ(document.status, answer.status) << document.name;
        std::string const& where = document.status == 0 ? answer.output : answer.error;
        EXPECT_NE(std::string::npos, where.find(document.words)) << document.name << ": " << where;
    }
}

TEST_F(VolumedTest, ServesManyClientsAtOnce)
{
    std::vector<std::unique_ptr<ClientSocket>> clients;
    for (int i = 0; i < 50; ++i)
        clients.push_back(Connect());
    for (auto const& client : clients)
        EXPECT_EQ("<Echo>1</Echo>|", Talk(*client, Message("<Echo>1</Echo>"), 1));
}

TEST_F(VolumedTest, SurvivesClientsThatCloseAtAnyMoment)
{
    std::string const bytes = Message("<Echo>" + std::string(100, 'x') + "</Echo>");
    for (std::size_t cut = 0; cut <= bytes.size(); cut += 7)
        Connect()->Write(bytes.data(), static_cast<unsigned>(cut));
    EXPECT_EQ("<Echo>alive</Echo>|", Talk(*Connect(), Message("<Echo>alive</Echo>"), 1));
}

TEST_F(VolumedTest, SurvivesResetsBeforeTheAnswerIsRead)
{
    for (int i = 0; i < 20; ++i) {
        ClientSocket client(ParseHostPort(tcp_), true);
        linger const reset = {1, 0};
        ASSERT_EQ(0, setsockopt(client.GetDescriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset)));
        std::string const bytes = Message("<Echo>" + std::string(200000, 'x') + "</Echo>");
        client.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    EXPECT_EQ("<Echo>alive</Echo>|", Talk(*Connect(), Message("<Echo>alive</Echo>"), 1));
}

TEST_F(VolumedTest, AMessageIsNotBlamedForAClientThatGoesBeforeItsAnswerIsWritten)
{
    {
        std::unique_ptr<ClientSocket> const client = Connect();
        std::string const bytes = Message("<Echo>" + std::string(1 << 19, 'x') + "</Echo>");
        client->Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        StreamSelector selector;
        selector.AddStreamForReading(*client);
        EXPECT_TRUE(selector.Select()) << "the answer has begun";
    }
    EXPECT_TRUE(AwaitLog("The client from local is left: its connection broke: ")) << Log();
    EXPECT_EQ(std::string::npos, Log().find("Error ")) << Log();
}

// Each client that leaves has it try again, in vain. One has left before: the undefined-behaviour sanitizer needs
// descriptors when the first object of a class goes.
TEST_F(VolumedTest, TellsOnceThatItCannotAcceptClients)
{
    EXPECT_EQ(0, ControlLocal({"info"}).status);
    EXPECT_TRUE(AwaitLog(" has left.\n")) << Log();
    std::vector<std::unique_ptr<ClientSocket>> leaving;
    for (int i = 0; i < 5; ++i) {
        leaving.push_back(Connect());
        EXPECT_EQ("<Echo></Echo>|", Talk(*leaving.back(), Message("<Echo/>"), 1));
    }
    rlimit limit = {};
    ASSERT_EQ(0, prlimit(service_, RLIMIT_NOFILE, nullptr, &limit));
    rlimit const nothingNew = {1, limit.rlim_max};
    ASSERT_EQ(0, prlimit(service_, RLIMIT_NOFILE, &nothingNew, nullptr));

    std::unique_ptr<ClientSocket> const waiting = Connect();
    std::string const line = "A client cannot be accepted: Too many open files\n";
    EXPECT_TRUE(AwaitLog(line)) << Log();
    for (auto& client : leaving) {
        std::size_t const logged = Log().size();
        client.reset();
        EXPECT_TRUE(Eventually([&] { return Log().find("has left.", logged) != std::string::npos; })) << Log();
    }
    ASSERT_EQ(0, prlimit(service_, RLIMIT_NOFILE, &limit, nullptr));
    EXPECT_EQ("<Echo>served</Echo>|", Talk(*waiting, Message("<Echo>served</Echo>"), 1));
    EXPECT_EQ(Log().find(line), Log().rfind(line)) << Log();
}

TEST_F(VolumedTest, SigTermAndSigIntEndItCleanlyWhileClientsAreConnected)
{
    for (int signal : {SIGTERM, SIGINT}) {
        std::unique_ptr<ClientSocket> const idle = Connect();
        std::unique_ptr<ClientSocket> const half = Connect();
        half->Write("<Echo>", 6);
        EXPECT_EQ("<Echo></Echo>|", Talk(*idle, Message("<Echo/>"), 1));
        EXPECT_EQ(0, StopService(signal));
        EXPECT_NE(std::string::npos, Log().find("volumed has stopped.\n"));
        EXPECT_NE(0, access(socket_.c_str(), F_OK)) << "the socket file is still there";
        char byte = 0;
        EXPECT_EQ(0, idle->Read(&byte, 1));
        StartService({});
    }
}

std::vector<pid_t> ThreadsOf(pid_t process)
{
    std::vector<pid_t> threads;
    Directory tasks("/proc/" + std::to_string(process) + "/task");
    Directory::Entry entry;
    for (bool isThere = tasks.GetFirstEntry(entry); isThere; isThere = tasks.GetNextEntry(entry)) {
        if (entry.name[0] != '.')
            threads.push_back(std::stoi(entry.name));
    }
    return threads;
}

// The system hands a signal to whichever thread it likes.
TEST_F(VolumedTest, SigTermEndsItCleanlyOnAnyThread)
{
    if (tovu::test::THREADS_ARE_WATCHED || tovu::test::IsEmulated())
        GTEST_SKIP() << "the sanitizer, or the emulator, has threads of its own";

    std::size_t const count = ThreadsOf(service_).size();
    EXPECT_LT(1u, count);
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(0, syscall(SYS_tgkill, service_, ThreadsOf(service_).at(i), SIGTERM));
        EXPECT_EQ(0, WaitFor(service_));
        EXPECT_NE(std::string::npos, Log().find("volumed has stopped.\n"));
        StartService({});
    }
}

TEST_F(VolumedTest, EndsWhileAClientDoesNotReadItsAnswer)
{
    std::unique_ptr<ClientSocket> const client = Connect();
    std::string const bytes = Message("<Echo>" + std::string((1 << 20) - 100, 'x') + "</Echo>");
    client->Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    StreamSelector selector;
    selector.AddStreamForReading(*client);
    EXPECT_TRUE(selector.Select()) << "the answer has begun";
    EXPECT_EQ(0, StopService(SIGTERM));
}

// A service whose threads have small stacks: on 32 bits there is no room for a thousand of the usual ones.
class CrowdedServiceTest : public RunningService
{
protected:
    CrowdedServiceTest() { launcher_ = {"/bin/sh", "-c", "ulimit -s 1024; exec \"$@\"", "sh"}; }
};

TEST_F(CrowdedServiceTest, TurnsClientsAwayBeyondTheDescriptorsOfTheSelector)
{
    StartService({});
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit more = before;
    more.rlim_cur = before.rlim_max;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &more));
    if (more.rlim_cur < FD_SETSIZE + 64)
        GTEST_SKIP() << "this machine allows only " << more.rlim_cur << " descriptors";

    std::vector<std::unique_ptr<ClientSocket>> clients;
    for (int i = 0; i < FD_SETSIZE + 8; ++i)
        clients.push_back(Connect());
    EXPECT_TRUE(AwaitLog("A client is turned away: 1024 descriptors are in use.\n"));

    char byte = 0;
    EXPECT_EQ(0, clients.back()->Read(&byte, 1)) << "the last one is closed";
    EXPECT_EQ("<Echo>first</Echo>|", Talk(*clients.front(), Message("<Echo>first</Echo>"), 1));

    clients.erase(clients.begin() + 10, clients.end());
    EXPECT_TRUE(Eventually([this] { return ControlLocal({"echo", "again"}).status == 0; }));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
}

TEST_F(VolumedTest, RefusesToStartWhereAServiceAnswers)
{
    pid_t const second = Start({VOLUMED, "--socket", socket_, "--foreground"}, folder_ / "o2", folder_ / "e2");
    EXPECT_EQ(1, WaitFor(second));
    EXPECT_EQ("volumed: cannot start: a service answers on " + socket_ + " already\n", ReadFile(folder_ / "e2"));
    EXPECT_EQ(0, ControlLocal({"info"}).status) << "the first one still answers";
}

TEST_F(VolumedTest, RefusesToReplaceWhatIsNoSocket)
{
    WriteFile(folder_ / "precious", "data");
    pid_t const second = Start({VOLUMED, "--socket", folder_ / "precious"}, folder_ / "o2", folder_ / "e2");
    EXPECT_EQ(1, WaitFor(second));
    EXPECT_EQ("data", ReadFile(folder_ / "precious"));
}

// Where 32 bits are not enough for its size, too.
TEST_F(VolumedTest, RefusesToReplaceALargeFile)
{
    std::string const large = folder_ / "large";
    WriteFile(large, "data");
    ASSERT_EQ(0, truncate64(large.c_str(), 5LL << 30));
    EXPECT_EQ(1, WaitFor(Start({VOLUMED, "--socket", large}, folder_ / "o2", folder_ / "e2")));
    EXPECT_EQ(0, access(large.c_str(), F_OK));
}

TEST_F(VolumedTest, ReplacesTheSocketOfAServiceThatWasKilled)
{
    EXPECT_EQ(128 + SIGKILL, StopService(SIGKILL));
    EXPECT_EQ(0, access(socket_.c_str(), F_OK));
    StartService({});
    EXPECT_EQ(0, ControlLocal({"info"}).status);
}

TEST_F(VolumedTest, LogLevelErrorLeavesOutWarnings)
{
    EXPECT_EQ(0, StopService(SIGTERM));
    std::string const path = folder_ / "quiet.sock";
    service_ =
        Start({VOLUMED, "--socket", path, "--foreground", "--log-level", "Error"}, folder_ / "o", folder_ / "log");
    EXPECT_TRUE(Eventually([&] {
        return Control({"--socket", path, "send", std::string(MESSAGES) + "11-unknown-root.xml"}).status == 1;
    }));
    EXPECT_EQ("", Log());
}

TEST_F(VolumedTest, DetachesFromItsStarterOnceItCanBeReached)
{
    std::string const path = folder_ / "background.sock";
    EXPECT_EQ(0, WaitFor(Start({VOLUMED, "--socket", path}, folder_ / "o", folder_ / "e")));
    Answer const answer = Control({"--socket", path, "--xml", "info"});
    EXPECT_EQ(0, answer.status) << answer.error;
    EXPECT_EQ("", ReadFile(folder_ / "o") + ReadFile(folder_ / "e"));

    std::string::size_type const number = answer.output.find("processId=\"") + 11;
    pid_t const background = static_cast<pid_t>(std::stol(answer.output.substr(number)));
    EXPECT_EQ(0, kill(background, SIGTERM));
    EXPECT_TRUE(Eventually([&] { return access(path.c_str(), F_OK) == -1; }));
}

TEST_F(VolumedTest, ClientTellsAServiceThatCannotBeReached)
{
    Answer const answer = Control({"--socket", folder_ / "nobody", "info"});
    EXPECT_EQ(2, answer.status);
    EXPECT_EQ("volumectl: cannot reach " + (folder_ / "nobody") + ": No such file or directory\n", answer.error);
    EXPECT_EQ("", answer.output);
}

TEST_F(VolumedTest, ClientSendsStandardInput)
{
    WriteFile(folder_ / "document", "<Echo>from a pipe</Echo>");
    std::string const command = "cat '" + (folder_ / "document") + "' | " VOLUMECTL " --socket '" + socket_ +
                                "' send - > '" + (folder_ / "piped") + "'";
    EXPECT_EQ(0, WaitFor(Start({"/bin/sh", "-c", command}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ("<Echo>from a pipe</Echo>\n", ReadFile(folder_ / "piped"));
}

TEST_F(VolumedTest, ClientSendsTheRestOfStandardInput)
{
    WriteFile(folder_ / "document", "a line that somebody else reads\n<Echo>the rest</Echo>");
    std::string const command = "{ read line; " VOLUMECTL " --socket '" + socket_ + "' send -; } < '" +
                                (folder_ / "document") + "' > '" + (folder_ / "sent") + "'";
    EXPECT_EQ(0, WaitFor(Start({"/bin/sh", "-c", command}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ("<Echo>the rest</Echo>\n", ReadFile(folder_ / "sent"));
}

TEST_F(VolumedTest, ClientTellsThatThereIsNoStandardInput)
{
    std::string const command = VOLUMECTL " --socket '" + socket_ + "' send - <&-";
    EXPECT_EQ(66, WaitFor(Start({"/bin/sh", "-c", command}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ("volumectl: cannot read -: Bad file descriptor\n", ReadFile(folder_ / "e"));
}

TEST_F(VolumedTest, ClientRefusesWhatCannotBeOneMessage)
{
    WriteFile(folder_ / "empty", "");
    EXPECT_EQ(65, ControlLocal({"send", folder_ / "empty"}).status);
    WriteFile(folder_ / "zero", std::string("<a/>\0<b/>", 9));
    EXPECT_EQ(65, ControlLocal({"send", folder_ / "zero"}).status);
    EXPECT_EQ(66, ControlLocal({"send", folder_ / "missing"}).status);
}

TEST_F(VolumedTest, WrongCommandLinesAreExplained)
{
    EXPECT_EQ(64, Control({}).status);
    EXPECT_EQ(64, Control({"--socket", "a", "--connect", "b:1", "info"}).status);
    EXPECT_EQ(64, ControlLocal({}).status);
    EXPECT_EQ(64, ControlLocal({"dance"}).status);
    EXPECT_EQ(64, ControlLocal({"echo"}).status);
    EXPECT_EQ(64, Control({"--nonsense"}).status);
    EXPECT_EQ(2, Control({"--connect", "nonsense", "info"}).status);

    EXPECT_EQ(64, WaitFor(Start({VOLUMED}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ(0u, ReadFile(folder_ / "e").find("volumed: --socket PATH is missing\n\nUsage: volumed "));
    EXPECT_EQ(64, WaitFor(Start({VOLUMED, "--socket", "a", "--log-level", "loud"}, folder_ / "o", folder_ / "e")));
}

TEST_F(VolumedTest, BothProgramsShowHelpAndVersion)
{
    EXPECT_EQ("volumectl " VOLUME_VERSION "\n", Control({"--version"}).output);
    EXPECT_EQ(0u, Control({"--help"}).output.find("Usage: volumectl "));

    EXPECT_EQ(0, WaitFor(Start({VOLUMED, "--version"}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ("volumed " VOLUME_VERSION "\n", ReadFile(folder_ / "o"));
    EXPECT_EQ(0, WaitFor(Start({VOLUMED, "--help"}, folder_ / "o", folder_ / "e")));
    EXPECT_EQ(0u, ReadFile(folder_ / "o").find("Usage: volumed "));
}

}}  // namespace volume
