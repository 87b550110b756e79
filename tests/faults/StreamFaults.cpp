#include <fcntl.h>

#include <algorithm>
#include <new>
#include <string>

#include "FaultFixture.h"
#include "Sockets.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/StreamReader.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/StreamWriter.h"

namespace tovu { namespace test {

namespace {

using util::FileHandleStream;
using util::FileStream;
using util::MessageWriter;
using util::Pipe;
using util::RandomSeekStream;
using util::Socket;
using util::Stream;
using util::StreamReader;
using util::StreamSelector;
using util::StreamWriter;

// What a stream whose Close has failed says when it is destroyed: its descriptor has gone.
char const* const GONE = " Bad file descriptor";

void RunPipe(Run& run)
{
    FaultScope const scope(run.fault);
    int ends[2] = {0, 0};
    run.out << Pipe::CreatePipe(ends);
    Pipe reader(ends[0]);
    Pipe writer(ends[1]);

    run.out << writer.Write("hello", 5);
    unsigned long long count = 0;
    run.out << reader.IsDataAvailable(&count) << count;
    char buffer[8] = "";
    run.out << reader.Read(buffer, 5) << buffer;
    writer.Close();
    reader.Close();
    run.out << reader.IsOpen();
}

Scenario PipeScenario()
{
    Expected const refused = Throws("src/util/Pipe.cpp:42").Logging(std::string("src/util/Pipe.cpp:20") + GONE);
    return {"Pipe",
            {"Pipe"},
            RunPipe,
            "0 5 true 5 5 hello false",
            {
                Fails(Call::pipe, Gives("-1 0 false 0 0  false")),
                Fails(Call::write, Throws("src/util/Pipe.cpp:126")),
                MovesOneByte(Call::write, {Throws("src/util/Pipe.cpp:126")}),
                MovesHalf(Call::write, {Throws("src/util/Pipe.cpp:126")}),
                Fails(Call::ioctl, Gives("0 5 false 0 5 hello false")),
                Fails(Call::read, Throws("src/util/Pipe.cpp:116")),
                MovesOneByte(Call::read, {Gives("0 5 true 5 1 h false")}),
                MovesHalf(Call::read, {Gives("0 5 true 5 2 he false")}),
                Fails(Call::close, {refused, refused}),
            },
            {},
            true};
}

void RunPipeDestructor(Run& run)
{
    FaultScope const scope(run.fault);
    int ends[2] = {0, 0};
    run.out << Pipe::CreatePipe(ends);
    Pipe reader(ends[0]);
    Pipe writer(ends[1]);
}

Scenario PipeDestructorScenario()
{
    return {"PipeDestructor",
            {"Pipe"},
            RunPipeDestructor,
            "0",
            {
                Fails(Call::pipe, Gives("-1")),
                Fails(Call::close, Times(2, Ignored().Logging("src/util/Pipe.cpp:20 %E"))),
            },
            {},
            true};
}

void RunFileHandleStream(Run& run)
{
    std::string const path = FaultFolder() / "file-handle-stream";
    FaultScope const scope(run.fault);
    FileHandleStream stream;
    stream.Open(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
    run.out << stream.Write("hello world", 11);
    stream.Flush();
    run.out << stream.Seek(0, SEEK_SET);
    char buffer[8] = "";
    run.out << stream.Read(buffer, 5) << buffer << stream.Tell() << stream.GetSize();
    unsigned long long count = 0;
    run.out << stream.IsDataAvailable(&count) << count;
    RandomSeekStream::Region const region = {0, 4};
    stream.LockRegion(region, true);
    stream.UnlockRegion(region);
    stream.SetSize(4);
    stream.Close();
    run.out << stream.IsOpen();
}

Scenario FileHandleStreamScenario()
{
    std::string const source = "src/util/FileHandleStream.cpp";
    return {"FileHandleStream",
            {"FileHandleStream"},
            RunFileHandleStream,
            "11 0 5 hello 5 11 true 6 false",
            {
                Fails(Call::open, Throws(source + ":238")),
                Fails(Call::write, Throws(source + ":115")),
                MovesOneByte(Call::write, {Throws(source + ":115")}),
                MovesHalf(Call::write, {Throws(source + ":115")}),
                Fails(Call::fsync, Throws(source + ":45")),
                // One for Seek, one for Tell, four for GetSize, and five for IsDataAvailable, which asks both.
                Fails(Call::lseek, Times(11, Throws(source + ":303"))),
                Fails(Call::read, Throws(source + ":105")),
                MovesOneByte(Call::read, {Gives("11 0 1 h 1 11 true 10 false")}),
                MovesHalf(Call::read, {Gives("11 0 2 he 2 11 true 9 false")}),
                Fails(Call::fcntl, {Throws(source + ":202"), Throws(source + ":213")}),
                Fails(Call::ftruncate, Throws(source + ":272")),
                Fails(Call::close, Throws(source + ":29").Logging(source + ":18" + GONE)),
            },
            {},
            true};
}

void RunFileHandleStreamDestructor(Run& run)
{
    std::string const path = FaultFolder() / "file-handle-stream";
    FaultScope const scope(run.fault);
    FileHandleStream stream;
    stream.Open(path, O_RDWR | O_CREAT, 0600);
    run.out << stream.IsOpen();
}

Scenario FileHandleStreamDestructorScenario()
{
    std::string const source = "src/util/FileHandleStream.cpp";
    return {"FileHandleStreamDestructor",
            {"FileHandleStream"},
            RunFileHandleStreamDestructor,
            "true",
            {
                Fails(Call::open, Throws(source + ":238")),
                Fails(Call::close, Ignored().Logging(source + ":18 %E")),
            },
            {},
            true};
}

void UseFileStream(FileStream& stream, std::string const& path, Text& out)
{
    stream.Open(path, "w+");
    out << stream.Write("hello world", 11);
    stream.Flush();
    out << stream.Seek(0, SEEK_SET);
    char buffer[8] = "";
    out << stream.Read(buffer, 5) << buffer << stream.Tell();
    unsigned long long count = 0;
    out << stream.IsDataAvailable(&count) << count;
}

// A stream whose Close has failed must not be destroyed.
void RunFileStream(Run& run)
{
    std::string const path = FaultFolder() / "file-stream";
    FaultScope const scope(run.fault);
    std::aligned_storage<sizeof(FileStream), alignof(FileStream)>::type memory;
    FileStream* const stream = new (&memory) FileStream;
    try {
        UseFileStream(*stream, path, run.out);
    } catch (...) {
        stream->~FileStream();
        throw;
    }
    stream->Close();
    run.out << stream->IsOpen();
    stream->~FileStream();
}

Scenario FileStreamScenario()
{
    std::string const source = "src/util/FileStream.cpp";
    Expected const tell = Throws(source + ":90");
    Expected const seek = Throws(source + ":97");
    return {"FileStream",
            {"FileStream"},
            RunFileStream,
            "11 0 5 hello 5 true 6 false",
            {
                Fails(Call::fopen, Throws(source + ":16")),
                Fails(Call::fwrite, Throws(source + ":76")),
                MovesOneByte(Call::fwrite, {Throws(source + ":76")}),
                MovesHalf(Call::fwrite, {Throws(source + ":76")}),
                Fails(Call::fflush, Throws(source + ":33")),
                Fails(Call::fread, Throws(source + ":60")),
                MovesOneByte(Call::fread, {Throws(source + ":60")}),
                MovesHalf(Call::fread, {Throws(source + ":60")}),
                // Seek; Tell; and IsDataAvailable, which goes to the end and back. Seek looks where it has come to.
                Fails(Call::fseek, {seek, seek, seek}),
                Fails(Call::ftell, {seek, tell, tell, seek, tell, seek, tell}),
                Fails(Call::fclose, Throws(source + ":23")),
            },
            {"Exception 'Cannot allocate memory' " + source + ":16"},
            true};
}

void RunFileStreamDestructor(Run& run)
{
    std::string const path = FaultFolder() / "file-stream";
    FaultScope const scope(run.fault);
    FileStream stream;
    stream.Open(path, "w+");
    run.out << stream.IsOpen();
}

Scenario FileStreamDestructorScenario()
{
    std::string const source = "src/util/FileStream.cpp";
    return {"FileStreamDestructor",
            {"FileStream"},
            RunFileStreamDestructor,
            "true",
            {
                Fails(Call::fopen, Throws(source + ":16")),
                Fails(Call::fclose, Throws(source + ":23")),
            },
            {"Exception 'Cannot allocate memory' " + source + ":16"},
            true};
}

void RunRandomSeekStream(Run& run)
{
    FileHandleStream stream;
    stream.Open(FaultFolder() / "random-seek-stream", O_RDWR | O_CREAT | O_TRUNC, 0600);
    FaultScope const scope(run.fault);
    run.out << stream.WritePtr(0, 0x0102030405060708) << stream.Writestring(8, "ab");
    run.out << stream.WriteAtOffset(16, "xy", 2);
    run.out << stream.ReadPtr(0) << stream.Readstring(8);
    char buffer[4] = "";
    run.out << stream.ReadAtOffset(16, buffer, 2) << buffer;
}

Scenario RandomSeekStreamScenario()
{
    std::string const source = "src/util/FileHandleStream.cpp";
    return {"RandomSeekStream",
            {"RandomSeekStream"},
            RunRandomSeekStream,
            "8 3 2 72623859790382856 ab 2 xy",
            {
                Fails(Call::lseek, Times(6, Throws(source + ":303"))),
                Fails(Call::write, Times(3, Throws(source + ":115"))),
                MovesOneByte(Call::write, Times(3, Throws(source + ":115"))),
                MovesHalf(Call::write, Times(3, Throws(source + ":115"))),
                Fails(Call::read, Times(5, Throws(source + ":105"))),
            },
            {},
            true};
}

// A wait that is interrupted is taken up again; any other failure of it passes through.
std::vector<Rule> WithWaits(std::size_t count, std::vector<Rule> rules)
{
    rules.push_back(FailsWith({EINTR}, Call::select, Times(count, Ignored())));
    rules.push_back(Fails(Call::select, Times(count, Throws("src/util/StreamSelector.cpp:125"))));
    return rules;
}

void ReadEight(Run& run, std::string const& sent)
{
    int ends[2] = {0, 0};
    EXPECT_EQ(0, Pipe::CreatePipe(ends));
    Pipe reader(ends[0]);
    Pipe writer(ends[1]);
    writer.Write(sent.data(), static_cast<unsigned>(sent.size()));
    writer.Close();

    FaultScope const scope(run.fault);
    char buffer[16] = "";
    run.out << StreamReader(reader).Read(buffer, 8) << buffer;
}

Scenario StreamReaderScenario()
{
    return {"StreamReader",
            {"StreamReader"},
            [](Run& run) { ReadEight(run, "12345678"); },
            "8 12345678",
            WithWaits(1,
                      {
                          Fails(Call::read, Throws("src/util/Pipe.cpp:116")),
                          MovesOneByte(Call::read, {Ignored()}),
                          MovesHalf(Call::read, {Ignored()}),
                      }),
            {},
            true};
}

Scenario StreamReaderAtTheEndScenario()
{
    return {"StreamReaderAtTheEnd",
            {"StreamReader"},
            [](Run& run) { ReadEight(run, "1234"); },
            "4 1234; src/util/StreamReader.cpp:35 read failed.",
            WithWaits(2,
                      {
                          Fails(Call::read, Times(2, Throws("src/util/Pipe.cpp:116"))),
                          MovesOneByte(Call::read, Times(2, Ignored())),
                          MovesHalf(Call::read, Times(2, Ignored())),
                      }),
            {},
            true};
}

// What has arrived at a socket whose other end is closed: how many bytes, and how many of them are an "a".
void TakeStock(Socket& socket, Text& out)
{
    char buffer[4096];
    long total = 0;
    long letters = 0;
    for (int count = socket.Read(buffer, sizeof(buffer)); count > 0; count = socket.Read(buffer, sizeof(buffer))) {
        total += count;
        letters += std::count(buffer, buffer + count, 'a');
    }
    out << total << letters;
}

template <typename Writer>
void WriteToSocket(Run& run)
{
    ConnectedPair pair = ConnectLocalPair();
    {
        FaultScope const scope(run.fault);
        run.out << Writer(*pair.near).Write("12345678", 8);
    }
    pair.near->Close();
    char buffer[16] = "";
    StreamReader(*pair.far).Read(buffer, 8);
    run.out << buffer;
}

Scenario StreamWriterScenario()
{
    return {"StreamWriter",
            {"StreamWriter"},
            WriteToSocket<StreamWriter>,
            "8 12345678",
            WithWaits(1,
                      {
                          Fails(Call::send, Throws("src/util/Socket.cpp")),
                          MovesOneByte(Call::send, {Ignored()}),
                          MovesHalf(Call::send, {Ignored()}),
                      }),
            {},
            true};
}

Scenario MessageWriterScenario()
{
    Scenario scenario = StreamWriterScenario();
    scenario.name = "MessageWriter";
    scenario.classes = {"MessageWriter"};
    scenario.run = WriteToSocket<MessageWriter>;
    return scenario;
}

// Takes nothing, as a stream of a user may.
class FullSocket : public Socket
{
public:
    explicit FullSocket(int descriptor) : Socket(descriptor) {}
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return 0; }
};

template <typename Writer>
void WriteToFullSocket(Run& run)
{
    FullSocket full(socket(AF_LOCAL, SOCK_DGRAM, 0));
    FaultScope const scope(run.fault);
    run.out << Writer(full).Write("12345678", 8);
}

Scenario FullStreamWriterScenario()
{
    return {"StreamWriterToAFullStream",
            {"StreamWriter"},
            WriteToFullSocket<StreamWriter>,
            "0; src/util/StreamWriter.cpp:40 write failed.",
            WithWaits(1, {}),
            {},
            true};
}

Scenario FullMessageWriterScenario()
{
    return {"MessageWriterToAFullStream",
            {"MessageWriter"},
            WriteToFullSocket<MessageWriter>,
            "0; src/util/MessageWriter.cpp:40 write failed.",
            WithWaits(1, {}),
            {},
            true};
}

void RunWriteFile(Run& run)
{
    std::string const path = FaultFolder() / "file-to-write";
    static bool const made = (WriteFile(path, std::string(40000, 'a')), true);
    static_cast<void>(made);
    ConnectedPair pair = ConnectLocalPair();
    {
        FaultScope const scope(run.fault);
        StreamWriter(*pair.near).WriteFile(path);
    }
    pair.near->Close();
    TakeStock(*pair.far, run.out);
}

// A short read sends the whole chunk all the same, with what the buffer held: zeroes at first, the last chunk later.
Scenario WriteFileScenario()
{
    std::string const source = "src/util/FileHandleStream.cpp";
    return {"StreamWriterWriteFile",
            {"StreamWriter"},
            RunWriteFile,
            "40000 40000",
            WithWaits(2,
                      {
                          Fails(Call::open, Throws(source + ":238")),
                          Fails(Call::lseek, Times(4, Throws(source + ":303"))),
                          Fails(Call::read, Times(2, Throws(source + ":105"))),
                          MovesOneByte(Call::read, {Gives("40000 7233"), Ignored()}),
                          MovesHalf(Call::read, {Gives("40000 23616"), Ignored()}),
                          Fails(Call::send, Times(2, Throws("src/util/Socket.cpp"))),
                          MovesOneByte(Call::send, Times(2, Ignored())),
                          MovesHalf(Call::send, Times(2, Ignored())),
                          Fails(Call::close, Throws(source + ":29").Logging(source + ":18" + GONE)),
                      }),
            {},
            true};
}

void RunStreamSelector(Run& run)
{
    int ends[2] = {0, 0};
    EXPECT_EQ(0, Pipe::CreatePipe(ends));
    Pipe const reader(ends[0]);
    Pipe writer(ends[1]);
    writer.Write("x", 1);
    {
        FaultScope const scope(run.fault);
        StreamSelector forever;
        forever.AddStreamForReading(reader);
        run.out << forever.Select() << forever.IsStreamReadyForReading(reader);

        StreamSelector limited;
        limited.AddStreamForWriting(writer);
        StreamSelector::TimeVal timeout(60, 0);
        run.out << limited.Select(timeout) << limited.IsStreamReadyForWriting(writer);
    }
}

Scenario StreamSelectorScenario()
{
    std::string const source = "src/util/StreamSelector.cpp";
    return {"StreamSelector",
            {"StreamSelector"},
            RunStreamSelector,
            "true true true true",
            {
                // The sets stay as they were.
                FailsWith({EINTR}, Call::select, {Gives("false true true true"), Gives("true true false true")}),
                Fails(Call::select, {Throws(source + ":125"), Throws(source + ":138")}),
            },
            {},
            true};
}

}  // namespace

std::vector<Scenario> StreamScenarios()
{
    return {PipeScenario(),
            PipeDestructorScenario(),
            FileHandleStreamScenario(),
            FileHandleStreamDestructorScenario(),
            FileStreamScenario(),
            FileStreamDestructorScenario(),
            RandomSeekStreamScenario(),
            StreamReaderScenario(),
            StreamReaderAtTheEndScenario(),
            StreamWriterScenario(),
            FullStreamWriterScenario(),
            MessageWriterScenario(),
            FullMessageWriterScenario(),
            WriteFileScenario(),
            StreamSelectorScenario()};
}

}}  // namespace tovu::test
