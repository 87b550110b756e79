// How MessageProcessor cuts a stream into messages, and how it reads the stream.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Descriptors.h"
#include "Interruptions.h"
#include "Latch.h"
#include "PipePair.h"
#include "SelectCalls.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using namespace std::string_literals;
using test::Drain;
using test::Latch;
using test::PipePair;
using test::SelectCalls;
using test::Thrown;

typedef std::vector<std::string> Messages;

unsigned char const* Bytes(std::string const& text)
{
    return reinterpret_cast<unsigned char const*>(text.data());
}

// Stands where a list of messages is cut into chunks.
constexpr char MARK = '|';

// Marks a list behind each byte for whose number `isCut` says so; the last byte is never cut off from nothing.
template <typename Decision>
std::string Marked(std::string const& list, Decision isCut)
{
    std::string marked;
    for (unsigned i = 0; i < list.size(); ++i) {
        marked += list[i];
        if (i + 1 < list.size() && isCut(i))
            marked += MARK;
    }
    return marked;
}

// Every way of cutting a list, marked.
std::vector<std::string> AllCuts(std::string const& list)
{
    std::vector<std::string> all;
    for (unsigned cuts = 0; cuts < 1u << (list.size() - 1); ++cuts)
        all.push_back(Marked(list, [cuts](unsigned i) { return (cuts >> i & 1u) != 0; }));
    return all;
}

// Records the messages that the framer finds, unparsed.
class Framer : public MessageProcessor
{
public:
    unsigned ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const override
    {
        messages.emplace_back(reinterpret_cast<char const*>(data), length);
        addresses.push_back(data);
        if (onMessage)
            onMessage(stream);
        return skip;
    }

    // Processes one chunk, which the framer may not touch beyond its ends, nor later.
    bool Feed(std::string const& chunk)
    {
        Pipe closed;
        std::unique_ptr<unsigned char[]> const copy(new unsigned char[chunk.size()]);
        std::memcpy(copy.get(), chunk.data(), chunk.size());
        return ProcessMessages(closed, copy.get(), static_cast<unsigned>(chunk.size()));
    }

    // Processes the chunks between the marks.
    void FeedMarked(std::string const& marked)
    {
        std::size_t start = 0;
        for (std::size_t mark = 0; mark != std::string::npos; start = mark + 1) {
            mark = marked.find(MARK, start);
            EXPECT_TRUE(Feed(marked.substr(start, mark == std::string::npos ? mark : mark - start)));
        }
    }

    // The bytes of an unfinished message, which this completes.
    std::string TakePending()
    {
        ByteSpan const delimiter = GetDelimiter();
        messages.clear();
        skip = 0;
        Feed(std::string(reinterpret_cast<char const*>(delimiter.first), delimiter.second));
        return messages.at(0);
    }

    // What was found, here and in what the hook does, since the last call.
    Messages Take()
    {
        Messages taken;
        taken.swap(messages);
        return taken;
    }

    mutable Messages messages;
    mutable std::vector<unsigned char const*> addresses;
    unsigned skip = 0;                              // what ParseMessage returns
    std::function<void(Stream& stream)> onMessage;  // runs after a message was recorded
};

// A framer with a delimiter of its own.
class DelimitedFramer : public Framer
{
public:
    explicit DelimitedFramer(std::string delimiter) : delimiter_(std::move(delimiter)) {}

    ByteSpan GetDelimiter() const override
    {
        return ByteSpan(Bytes(delimiter_), static_cast<unsigned>(delimiter_.size()));
    }

private:
    std::string const delimiter_;
};

// Where FindDelimiter finds the delimiter, counted from the start of the bytes; -1 for nowhere.
std::ptrdiff_t Find(MessageProcessor const& processor, std::string const& bytes)
{
    std::vector<unsigned char> const exact(bytes.begin(), bytes.end());  // no byte behind the last
    unsigned char const* const found = processor.FindDelimiter(exact.data(), static_cast<unsigned>(exact.size()));
    return found != nullptr ? found - exact.data() : -1;
}

TEST(DelimiterTest, IsOneZeroByte)
{
    MessageProcessor const processor;
    MessageProcessor::ByteSpan const delimiter = processor.GetDelimiter();
    ASSERT_EQ(1u, delimiter.second);
    EXPECT_EQ(0x00, delimiter.first[0]);
}

TEST(DelimiterTest, AllProcessorsShareItsByte)
{
    EXPECT_EQ(MessageProcessor().GetDelimiter().first, MessageProcessor().GetDelimiter().first);
}

TEST(FindDelimiterTest, FindsTheFirstDelimiter)
{
    MessageProcessor const processor;
    EXPECT_EQ(0, Find(processor, "\0"s));
    EXPECT_EQ(2, Find(processor, "ab\0c\0"s));
    EXPECT_EQ(3, Find(processor, "abc\0"s));
    EXPECT_EQ(-1, Find(processor, "abc"));
}

TEST(FindDelimiterTest, FindsNothingInNothing)
{
    MessageProcessor const processor;
    unsigned char const byte = 0;
    EXPECT_EQ(nullptr, processor.FindDelimiter(nullptr, 0));
    EXPECT_EQ(nullptr, processor.FindDelimiter(nullptr, 5));
    EXPECT_EQ(nullptr, processor.FindDelimiter(&byte, 0));
}

TEST(FindDelimiterTest, AFalseStartDoesNotHideADelimiter)
{
    DelimitedFramer const framer("aab");
    EXPECT_EQ(0, Find(framer, "aab"));
    EXPECT_EQ(1, Find(framer, "aaab"));
    EXPECT_EQ(4, Find(framer, "aaxaaab"));
    EXPECT_EQ(3, Find(framer, "abaaab"));
}

TEST(FindDelimiterTest, ADelimiterThatIsCutOffIsNone)
{
    DelimitedFramer const framer("aab");
    for (char const* bytes : {"a", "aa", "xa", "xaa", "xxaa", "aaa", "abab", "aaxab"})
        EXPECT_EQ(-1, Find(framer, bytes)) << bytes;
}

TEST(FindDelimiterTest, BytesTooFewForTheDelimiterAreNotTouched)
{
    DelimitedFramer const framer("aab");
    void* const forbidden = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, forbidden);
    EXPECT_EQ(nullptr, framer.FindDelimiter(static_cast<unsigned char const*>(forbidden), 2));
    munmap(forbidden, 1);
}

// Every text of the letters a and b up to a length, the empty one included.
Messages TextsOfTwoLetters(unsigned maximum)
{
    Messages texts;
    for (unsigned length = 0; length <= maximum; ++length) {
        for (unsigned bits = 0; bits < 1u << length; ++bits) {
            std::string text;
            for (unsigned i = 0; i < length; ++i)
                text += (bits >> i & 1u) != 0 ? 'b' : 'a';
            texts.push_back(text);
        }
    }
    return texts;
}

TEST(FindDelimiterTest, FindsWhatAnExhaustiveSearchFinds)
{
    for (char const* delimiter : {"a", "ab", "aa", "aab", "abab"}) {
        DelimitedFramer const framer(delimiter);
        for (std::string const& text : TextsOfTwoLetters(9)) {
            std::size_t const expected = text.find(delimiter);
            ASSERT_EQ(expected == std::string::npos ? -1 : static_cast<std::ptrdiff_t>(expected), Find(framer, text))
                << delimiter << " in " << text;
        }
    }
}

TEST(WellFormedMessageTest, LooksAtTheLastBytesOnly)
{
    struct
    {
        std::string delimiter;
        std::string message;
        bool expected;
    } const rows[] = {
        {"\0"s, "", false},     {"\0"s, "\0"s, true},   {"\0"s, "<a/>\0"s, true},      {"\0"s, "no XML\0"s, true},
        {"\0"s, "a", false},    {"\0"s, "\0a"s, false}, {"\0"s, "<a/>\0<b/>"s, false}, {"aab", "", false},
        {"aab", "ab", false},   {"aab", "aab", true},   {"aab", "xaab", true},         {"aab", "aabx", false},
        {"aab", "xaxb", false},
    };
    for (auto const& row : rows) {
        DelimitedFramer const framer(row.delimiter);
        std::vector<unsigned char> const message(row.message.begin(), row.message.end());
        EXPECT_EQ(row.expected, framer.WellFormedMessage(message)) << row.message;
    }
}

TEST(WellFormedMessageTest, AZeroByteEndsAMessageOfThePlainClass)
{
    MessageProcessor const processor;
    EXPECT_FALSE(processor.WellFormedMessage({}));
    EXPECT_FALSE(processor.WellFormedMessage({0, 'a'}));
    EXPECT_TRUE(processor.WellFormedMessage({'a', 0}));
}

class FramingTest : public testing::Test
{
protected:
    Framer framer_;
};

TEST_F(FramingTest, AnEmptyChunkIsRefusedAndChangesNothing)
{
    unsigned char const byte = 0;
    Pipe closed;
    framer_.Feed("AB");
    EXPECT_FALSE(framer_.ProcessMessages(closed, nullptr, 0));
    EXPECT_FALSE(framer_.ProcessMessages(closed, nullptr, 7));
    EXPECT_FALSE(framer_.ProcessMessages(closed, &byte, 0));
    EXPECT_EQ(Messages(), framer_.messages);
    EXPECT_EQ("AB", framer_.TakePending());
}

TEST_F(FramingTest, OneChunkMayHoldSeveralMessages)
{
    EXPECT_TRUE(framer_.Feed("A\0B\0"s));
    EXPECT_EQ((Messages{"A", "B"}), framer_.messages);
    EXPECT_EQ("", framer_.TakePending());
}

TEST_F(FramingTest, AMessageMaySpanChunks)
{
    EXPECT_TRUE(framer_.Feed("AB"));
    EXPECT_TRUE(framer_.Feed("C\0D"s));
    EXPECT_EQ(Messages{"ABC"}, framer_.messages);
    EXPECT_EQ("D", framer_.TakePending());
}

TEST_F(FramingTest, ALoneDelimiterCompletesWhatIsPending)
{
    framer_.Feed("XY");
    EXPECT_TRUE(framer_.Feed("\0"s));
    EXPECT_EQ(Messages{"XY"}, framer_.messages);
    EXPECT_EQ("", framer_.TakePending());
}

TEST_F(FramingTest, AChunkWithoutADelimiterOnlyWaits)
{
    EXPECT_TRUE(framer_.Feed("A"));
    EXPECT_TRUE(framer_.Feed("B"));
    EXPECT_EQ(Messages(), framer_.messages);
    EXPECT_EQ("AB", framer_.TakePending());
}

TEST_F(FramingTest, TwoDelimitersInARowEncloseAnEmptyMessage)
{
    EXPECT_TRUE(framer_.Feed("A\0\0B\0"s));
    EXPECT_EQ((Messages{"A", "", "B"}), framer_.messages);
}

TEST_F(FramingTest, AWholeMessageIsParsedWhereItLies)
{
    Pipe closed;
    std::string const chunk = "AB\0CD\0"s;
    framer_.ProcessMessages(closed, Bytes(chunk), static_cast<unsigned>(chunk.size()));
    ASSERT_EQ(2u, framer_.addresses.size());
    EXPECT_EQ(Bytes(chunk), framer_.addresses[0]);
    EXPECT_EQ(Bytes(chunk) + 3, framer_.addresses[1]);
}

TEST_F(FramingTest, OnlyTheMessageThatSpansChunksIsCopied)
{
    Pipe closed;
    std::string const chunk = "B\0CD\0"s;
    framer_.Feed("A");
    framer_.ProcessMessages(closed, Bytes(chunk), static_cast<unsigned>(chunk.size()));
    ASSERT_EQ((Messages{"AB", "CD"}), framer_.messages);
    EXPECT_TRUE(framer_.addresses[0] < Bytes(chunk) || framer_.addresses[0] >= Bytes(chunk) + chunk.size());
    EXPECT_EQ(Bytes(chunk) + 2, framer_.addresses[1]);
}

TEST_F(FramingTest, TheHookGetsTheCallersStream)
{
    Pipe mine;
    Stream* seen = nullptr;
    framer_.onMessage = [&](Stream& stream) { seen = &stream; };
    framer_.Feed("A");
    framer_.ProcessMessages(mine, Bytes("\0"s), 1);
    EXPECT_EQ(&mine, seen);
}

// What ParseMessage asks to skip, in one chunk, and what is then found in it and behind it.
struct Skip
{
    std::string pending;
    std::string chunk;
    unsigned skip;
    Messages found;
    std::string left;
};

TEST_F(FramingTest, SkipsWhatParseMessageAsksFor)
{
    unsigned const huge = 0xFFFFFFFF;
    Skip const rows[] = {
        {"", "A\0xxB\0yyC"s, 2, {"A", "B"}, "C"},  // within the chunk, for each message
        {"", "A\0BCD\0"s, 1, {"A", "CD"}, ""},     // into a message
        {"", "A\0B\0C\0"s, 2, {"A", "C"}, ""},     // over a delimiter
        {"", "A\0B\0xC"s, 1, {"A", ""}, "C"},      // up to a delimiter: the message before it is empty
        {"", "A\0xx"s, 2, {"A"}, ""},              // to the end of the chunk
        {"", "A\0xx"s, 3, {"A"}, ""},              // past it
        {"", "A\0xx\0"s, huge, {"A"}, ""},         // far past it
        {"", "A\0xx\0"s, huge - 1, {"A"}, ""},     //
        {"P", "A\0xxB\0yy"s, 2, {"PA", "B"}, ""},  // behind a message that began in an earlier chunk
        {"P", "\0xxB\0"s, 3, {"P", ""}, ""},       //
        {"P", "A\0B\0"s, huge, {"PA"}, ""},        //
    };
    for (Skip const& row : rows) {
        Framer framer;
        if (!row.pending.empty())
            framer.Feed(row.pending);
        framer.skip = row.skip;
        EXPECT_TRUE(framer.Feed(row.chunk));
        EXPECT_EQ(row.found, framer.messages) << "skipping " << row.skip;
        EXPECT_EQ(row.left, framer.TakePending()) << "skipping " << row.skip;
    }
}

TEST_F(FramingTest, ASkipIsNeverCarriedOverToTheNextChunk)
{
    for (unsigned const skip : {1u, 5u, 0xFFFFFFFFu}) {
        framer_.skip = skip;
        framer_.Feed("A\0"s);
        framer_.skip = 0;
        framer_.Feed("B\0"s);
        EXPECT_EQ((Messages{"A", "B"}), framer_.Take()) << "skipping " << skip;
    }
}

TEST_F(FramingTest, ADelimiterThatAHookChangesEndsTheNextMessage)
{
    class ChangingFramer : public DelimitedFramer
    {
    public:
        ChangingFramer() : DelimitedFramer("--") {}

        ByteSpan GetDelimiter() const override
        {
            static unsigned char const line = '\n';
            return messages.empty() ? DelimitedFramer::GetDelimiter() : ByteSpan(&line, 1);
        }
    };

    ChangingFramer framer;
    framer.Feed("A\nB--C--D\nE");
    EXPECT_EQ((Messages{"A\nB", "C--D"}), framer.Take());
}

// A hook that takes more bytes in by itself, as one does that asks the peer something and waits for the answer.
class FramingInAHookTest : public FramingTest
{
protected:
    // Processes a chunk, and another one within the hook for its first message.
    Messages Feed(std::string const& chunk, std::string const& within)
    {
        framer_.onMessage = [this, within](Stream&) {
            if (framer_.messages.size() == 1)
                framer_.Feed(within);
        };
        framer_.Feed(chunk);
        framer_.onMessage = nullptr;
        return framer_.Take();
    }
};

TEST_F(FramingInAHookTest, WhatItLeavesPendingIsNoPartOfTheNextMessageOfTheChunk)
{
    EXPECT_EQ((Messages{"A", "B", "D"}), Feed("A\0D\0"s, "B\0C"s));
    EXPECT_EQ("C", framer_.TakePending());
}

TEST_F(FramingInAHookTest, WhatItLeavesPendingIsReplacedByTheRestOfTheChunk)
{
    EXPECT_EQ((Messages{"A", "B"}), Feed("A\0D"s, "B\0C"s));
    EXPECT_EQ("D", framer_.TakePending());
}

TEST_F(FramingTest, AnExceptionLeavesTheCompletedMessagePending)
{
    framer_.onMessage = [](Stream&) { throw 7; };
    framer_.Feed("AB");
    EXPECT_THROW(framer_.Feed("C\0D\0"s), int);
    framer_.onMessage = nullptr;
    EXPECT_EQ("ABC", framer_.TakePending());
}

TEST_F(FramingTest, AnExceptionFromAMessageInPlaceDropsTheRestOfItsChunk)
{
    framer_.onMessage = [](Stream&) { throw 7; };
    EXPECT_THROW(framer_.Feed("AB\0CD\0E"s), int);
    framer_.onMessage = nullptr;
    EXPECT_EQ(Messages{"AB"}, framer_.Take());
    EXPECT_EQ("", framer_.TakePending());
}

// Framing as a property: what is found in a sequence of chunks depends on the bytes, and on the cuts only where one
// goes through a delimiter. A delimiter that is cut in two is none, and its bytes belong to the message. So with a mark
// at each cut, the messages are what stands between the delimiters that no mark breaks.
class CutsTest : public testing::TestWithParam<std::string>
{
protected:
    // The messages in marked bytes; the last one is what stays pending.
    Messages Expected(std::string const& marked) const
    {
        Messages parts;
        std::size_t start = 0;
        for (std::size_t hit = 0; (hit = marked.find(GetParam(), start)) != std::string::npos;) {
            parts.push_back(marked.substr(start, hit - start));
            start = hit + GetParam().size();
        }
        parts.push_back(marked.substr(start));
        for (std::string& part : parts)
            part.erase(std::remove(part.begin(), part.end(), MARK), part.end());
        return parts;
    }

    Messages Found(std::string const& marked) const
    {
        DelimitedFramer framer(GetParam());
        framer.FeedMarked(marked);
        Messages found = framer.Take();
        found.push_back(framer.TakePending());
        return found;
    }
};

TEST_P(CutsTest, EveryWayOfCuttingAListOfMessages)
{
    std::string const& d = GetParam();
    std::string list = "x" + d + d + "aaxa" + d + "b" + d + "yz";
    list.resize(std::min<std::size_t>(list.size(), 14));
    for (std::string const& marked : AllCuts(list))
        ASSERT_EQ(Expected(marked), Found(marked)) << marked;
}

TEST_P(CutsTest, RandomListsInRandomChunks)
{
    std::mt19937 random(20140331);  // the same lists in each run
    for (int run = 0; run < 50; ++run) {
        std::string list;
        while (list.size() < 2000)
            list += random() % 4 == 0 ? GetParam() : std::string(1, "aabbxy"[random() % 6]);
        unsigned const rarity = 1 + random() % 40;
        std::string const marked = Marked(list, [&](unsigned) { return random() % rarity == 0; });
        ASSERT_EQ(Expected(marked), Found(marked)) << "run " << run;
    }
}

std::string DelimiterName(testing::TestParamInfo<std::string> const& row)
{
    char const* const names[] = {"Zero", "Letter", "LineEnd", "Twins", "Aab", "Abab"};
    return names[row.index];
}

INSTANTIATE_TEST_SUITE_P(Delimiters, CutsTest, testing::Values("\0"s, "a"s, "\r\n"s, "aa"s, "aab"s, "abab"s),
                         &DelimiterName);

TEST_F(FramingTest, EveryWayOfCuttingGivesTheSameMessages)
{
    for (std::string const& marked : AllCuts("ab\0\0cde\0f\0gh"s)) {
        framer_.FeedMarked(marked);
        ASSERT_EQ((Messages{"ab", "", "cde", "f"}), framer_.Take()) << marked;
        ASSERT_EQ("gh", framer_.TakePending()) << marked;
        framer_.Take();
    }
}

TEST_F(FramingTest, ADelimiterThatIsCutInTwoBelongsToTheMessage)
{
    DelimitedFramer framer("aab");
    framer.Feed("xa");
    framer.Feed("abyaa");
    framer.Feed("bzaab");
    EXPECT_EQ(Messages{"xaabyaabz"}, framer.messages);
}

// A stream without a descriptor, that answers as the test says.
class ScriptedStream : public Stream
{
public:
    ~ScriptedStream() noexcept override = default;

    bool IsOpen() const override { return true; }
    void Close() override {}
    bool Flush() override { return true; }
    int Write(void const* /*buffer*/, unsigned int /*length*/) override { return 0; }

    bool IsDataAvailable(unsigned long long* count) override
    {
        EXPECT_EQ(0u, *count);
        *count = available;
        return answers;
    }

    int Read(void* buffer, unsigned int length) override
    {
        lengths.push_back(length);
        char const* const bytes = static_cast<char const*>(buffer);
        EXPECT_TRUE(std::all_of(bytes, bytes + length, [](char byte) { return byte == 0; }));
        std::copy(data.begin(), data.end(), static_cast<char*>(buffer));
        return result;
    }

    bool answers = true;
    unsigned long long available = 0;
    std::string data;
    int result = 0;
    std::vector<unsigned> lengths;
};

// A processor in the middle of a message, and a stream for its next read.
class OneReadTest : public testing::Test
{
protected:
    OneReadTest() { framer_.Feed("AB"); }

    // Lets the stream deliver `data` although it has promised `available` bytes.
    bool Process(unsigned long long available, std::string const& data, int result)
    {
        stream_.available = available;
        stream_.data = data;
        stream_.result = result;
        return framer_.ProcessMessages(stream_);
    }

    Framer framer_;
    ScriptedStream stream_;
};

TEST_F(OneReadTest, ReadsWhatIsAvailableInOneCall)
{
    EXPECT_TRUE(Process(5, "C\0D\0E"s, 5));
    EXPECT_EQ(std::vector<unsigned>{5}, stream_.lengths);
    EXPECT_EQ((Messages{"ABC", "D"}), framer_.messages);
    EXPECT_EQ("E", framer_.TakePending());
}

TEST_F(OneReadTest, AShortReadCountsOnlyWhatWasRead)
{
    EXPECT_TRUE(Process(100, "C\0D"s, 3));
    EXPECT_EQ(Messages{"ABC"}, framer_.messages);
    EXPECT_EQ("D", framer_.TakePending());
}

TEST_F(OneReadTest, AStreamThatCannotAnswerIsNotRead)
{
    stream_.answers = false;
    EXPECT_FALSE(Process(5, "CDEFG", 5));
    EXPECT_TRUE(stream_.lengths.empty());
    EXPECT_EQ("AB", framer_.TakePending());
}

TEST_F(OneReadTest, AStreamThatHoldsNothingIsNotRead)
{
    EXPECT_FALSE(Process(0, "", 0));
    EXPECT_TRUE(stream_.lengths.empty());
    EXPECT_EQ("AB", framer_.TakePending());
}

TEST_F(OneReadTest, AReadThatBringsNothingDropsTheUnfinishedMessage)
{
    EXPECT_FALSE(Process(5, "", 0));
    EXPECT_EQ("", framer_.TakePending());
}

TEST_F(OneReadTest, ANegativeReadDropsTheUnfinishedMessage)
{
    EXPECT_FALSE(Process(5, "", -1));
    EXPECT_EQ("", framer_.TakePending());
}

TEST_F(OneReadTest, ACountIsTakenAsItsLow32Bits)
{
    EXPECT_TRUE(Process(0x700000003ULL, "C\0D"s, 3));
    EXPECT_EQ(std::vector<unsigned>{3}, stream_.lengths);
    EXPECT_EQ(Messages{"ABC"}, framer_.messages);
}

TEST_F(OneReadTest, ACountWhoseLow32BitsAreZeroIsReadAsNothing)
{
    EXPECT_FALSE(Process(0x100000000ULL, "", 0));
    EXPECT_EQ(std::vector<unsigned>{0}, stream_.lengths);
    EXPECT_EQ("", framer_.TakePending());
}

TEST_F(OneReadTest, WhatTheStreamThrowsPassesOut)
{
    FileHandleStream onlyWritten;
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "messages", "C\0"s);
    onlyWritten.Open(folder / "messages", O_WRONLY, 0);
    EXPECT_THROWS_ERRNO(EBADF, framer_.ProcessMessages(onlyWritten));
}

// A pipe with a processor at its reading end.
class ReadMessagesTest : public testing::Test
{
protected:
    void Send(std::string const& bytes)
    {
        ASSERT_EQ(static_cast<int>(bytes.size()),
                  pipe_.writer.Write(bytes.data(), static_cast<unsigned>(bytes.size())));
    }

    // Reads until the loop ends by itself.
    void ReadAll()
    {
        pipe_.writer.Close();
        framer_.ReadMessages(pipe_.reader);
    }

    PipePair<test::ScriptedPipe> pipe_;
    Framer framer_;
};

TEST_F(ReadMessagesTest, ReturnsAtTheEndOfThePipe)
{
    Send("A\0B\0"s);
    ReadAll();
    EXPECT_EQ((Messages{"A", "B"}), framer_.messages);
}

TEST_F(ReadMessagesTest, ReadsABurstInOneCall)
{
    std::string burst;
    for (int i = 0; i < 200; ++i)
        burst += "message\0"s;
    Send(burst);
    ReadAll();
    EXPECT_EQ(std::vector<unsigned>{200 * 8}, pipe_.reader.lengths);
    EXPECT_EQ(Messages(200, "message"), framer_.messages);
}

TEST_F(ReadMessagesTest, AnUnfinishedMessageStaysWhenThePeerCloses)
{
    Send("A\0B"s);
    ReadAll();
    EXPECT_EQ(Messages{"A"}, framer_.messages);
    EXPECT_EQ("B", framer_.TakePending());
}

TEST_F(ReadMessagesTest, AnotherStreamContinuesTheUnfinishedMessage)
{
    Send("A");
    ReadAll();
    PipePair<> other;
    other.writer.Write("B", 2);
    other.writer.Close();
    framer_.ReadMessages(other.reader);
    EXPECT_EQ(Messages{"AB"}, framer_.messages);
}

TEST_F(ReadMessagesTest, AReadThatBringsNothingEndsTheLoopAndDropsTheUnfinishedMessage)
{
    for (int const result : {0, -1}) {
        framer_.Feed("AB");
        Send("C");
        pipe_.reader.onRead = [result](void*, unsigned) { return result; };
        framer_.ReadMessages(pipe_.reader);
        EXPECT_EQ("", framer_.TakePending()) << "a read of " << result;
    }
}

TEST_F(ReadMessagesTest, AStreamThatCannotSayWhatItHoldsEndsTheLoop)
{
    Pipe null(open("/dev/null", O_RDONLY));
    framer_.Feed("AB");
    framer_.ReadMessages(null);
    EXPECT_EQ("AB", framer_.TakePending());
}

TEST_F(ReadMessagesTest, ReadsAFileToItsEnd)
{
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "messages", "A\0B\0C"s);
    FileHandleStream file;
    file.Open(folder / "messages", O_RDONLY, 0);
    framer_.ReadMessages(file);
    EXPECT_EQ((Messages{"A", "B"}), framer_.messages);
    EXPECT_EQ("C", framer_.TakePending());
}

TEST_F(ReadMessagesTest, MessagesGoBothWaysOnASocket)
{
    PipePair<Socket, Socket> sockets(test::MakeSocketPair());
    framer_.onMessage = [](Stream& stream) { MessageWriter(stream).Write("answer", 7); };
    sockets.writer.Write("question", 9);
    shutdown(sockets.writer.GetDescriptor(), SHUT_WR);
    framer_.ReadMessages(sockets.reader);
    EXPECT_EQ(Messages{"question"}, framer_.messages);
    EXPECT_EQ("answer\0"s, Drain(sockets.writer.GetDescriptor()));
}

TEST_F(ReadMessagesTest, AConnectionThatIsResetEndsTheLoop)
{
    ServerSocket server(Socket::Address(0, htonl(INADDR_LOOPBACK)), 1, true);
    ClientSocket client(server.GetHostAddress(), true);
    std::unique_ptr<Socket> const connection(server.Accept());
    framer_.onMessage = [&client](Stream&) {
        linger const reset = {1, 0};
        EXPECT_EQ(0, setsockopt(client.GetDescriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset)));
        client.Close();
    };
    client.Write("A\0B", 3);
    framer_.ReadMessages(*connection);
    EXPECT_EQ(Messages{"A"}, framer_.messages);
    framer_.onMessage = nullptr;
    EXPECT_EQ("B", framer_.TakePending());
}

TEST_F(ReadMessagesTest, ArrivesWholeHoweverTheSenderCutsIt)
{
    std::mt19937 random(20140331);
    Messages sent;
    std::string bytes;
    for (int i = 0; i < 500; ++i) {
        sent.push_back(std::string(random() % 300, static_cast<char>('a' + i % 26)));
        bytes += sent.back() + "\0"s;
    }
    std::future<void> const sender = std::async(std::launch::async, [&] {
        for (std::size_t start = 0, length = 0; start < bytes.size(); start += length) {
            length = std::min<std::size_t>(1 + random() % 700, bytes.size() - start);
            Send(bytes.substr(start, length));
        }
        pipe_.writer.Close();
    });
    framer_.ReadMessages(pipe_.reader);
    EXPECT_EQ(sent, framer_.messages);
}

TEST_F(ReadMessagesTest, ASetFlagStopsBeforeTheStreamIsTouched)
{
    Pipe closed;
    framer_.SetStop(true);
    EXPECT_NO_THROW(framer_.ReadMessages(closed));
    framer_.SetStop(false);
    EXPECT_THROW(framer_.ReadMessages(closed), Exception);
}

TEST_F(ReadMessagesTest, AStopTakesEffectWhenTheChunkIsDone)
{
    framer_.onMessage = [this](Stream&) {
        if (framer_.messages.size() == 1) {
            framer_.SetStop(true);
            Send("unread");
        }
    };
    Send("A\0B\0C"s);
    framer_.ReadMessages(pipe_.reader);
    EXPECT_EQ((Messages{"A", "B"}), framer_.messages);
    EXPECT_EQ("unread", Drain(pipe_.reader.GetDescriptor()));
}

TEST_F(ReadMessagesTest, AnUnfinishedMessageSurvivesAStop)
{
    framer_.onMessage = [this](Stream&) { framer_.SetStop(framer_.messages.size() == 1); };
    Send("A\0B"s);
    framer_.ReadMessages(pipe_.reader);
    framer_.SetStop(false);
    Send("C\0"s);
    ReadAll();
    EXPECT_EQ((Messages{"A", "BC"}), framer_.messages);
}

TEST_F(ReadMessagesTest, AnotherThreadStopsItWithTheNextByte)
{
    Latch first;
    framer_.onMessage = [&first](Stream&) { first.Arrive(); };
    std::future<void> const reader = std::async(std::launch::async, [this] { framer_.ReadMessages(pipe_.reader); });
    Send("A\0"s);
    EXPECT_TRUE(first.WaitFor()) << "the first message";
    framer_.SetStop(true);
    Send("B");
    EXPECT_EQ(std::future_status::ready, reader.wait_for(test::DEADLINE)) << "the end of the loop";
    EXPECT_TRUE(pipe_.writer.IsOpen());
}

// Waits on the reading thread: each call of the system tells that the loop has come round again.
class InterruptedReadTest : public ReadMessagesTest
{
protected:
    InterruptedReadTest()
    {
        signal(SIGALRM, SIG_IGN);  // a signal that comes late, when its handler is gone, is harmless then
        select_.before = [this] { waits_.Arrive(); };
    }

    // Runs `action` on another thread, which takes no signals, once the loop has waited `waits` times.
    std::future<void> After(unsigned waits, std::function<void()> action)
    {
        return std::async(std::launch::async, [this, waits, action] {
            sigset_t alarm;
            sigemptyset(&alarm);
            sigaddset(&alarm, SIGALRM);
            pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
            EXPECT_TRUE(waits_.WaitFor(waits)) << waits << " waits";
            action();
        });
    }

    Latch waits_;
    SelectCalls select_;
};

TEST_F(InterruptedReadTest, GoesOnWaitingAfterASignal)
{
    std::future<void> const sender = After(5, [this] {
        Send("A\0"s);
        pipe_.writer.Close();
    });
    test::Interruptions const interruptions(1000);
    framer_.ReadMessages(pipe_.reader);
    EXPECT_EQ(Messages{"A"}, framer_.messages);
}

TEST_F(InterruptedReadTest, AStopTakesEffectAfterASignal)
{
    std::future<void> const stopper = After(5, [this] { framer_.SetStop(true); });
    test::Interruptions const interruptions(1000);
    framer_.ReadMessages(pipe_.reader);
    EXPECT_EQ(Messages(), framer_.messages);
    EXPECT_TRUE(pipe_.writer.IsOpen());
}

TEST_F(InterruptedReadTest, AWaitThatFindsTheStreamNotReadyIsRepeated)
{
    Send("A\0"s);
    select_.after = [this](int result, fd_set* reading, fd_set*) {
        if (select_.calls.size() == 1) {
            EXPECT_TRUE(pipe_.reader.lengths.empty());
            FD_ZERO(reading);
        }
        return result;
    };
    pipe_.reader.onRead = [this](void* buffer, unsigned length) {
        EXPECT_EQ(2u, select_.calls.size());
        return static_cast<int>(read(pipe_.reader.GetDescriptor(), buffer, length));
    };
    ReadAll();
    EXPECT_EQ(Messages{"A"}, framer_.messages);
}

TEST_F(InterruptedReadTest, WatchesTheStreamForReadingWithoutATimeLimit)
{
    Send("A\0"s);
    int const descriptor = pipe_.reader.GetDescriptor();
    ReadAll();
    ASSERT_EQ(2u, select_.calls.size());
    for (SelectCalls::Call const& call : select_.calls) {
        EXPECT_EQ(std::vector<int>{descriptor}, test::Members(call.reading));
        EXPECT_TRUE(test::Members(call.writing).empty());
        EXPECT_EQ(nullptr, call.timeout);
    }
}

// The last place of the trail that an exception took out of ReadMessages, which names the loop.
class TraceTest : public ReadMessagesTest
{
protected:
    void ExpectTraced(Exception const& exception)
    {
        ASSERT_EQ(2u, exception.locations.size());
        EXPECT_STREQ("src/util/MessageProcessor.cpp", exception.locations[1].file);
        EXPECT_EQ(45u, exception.locations[1].line);
    }
};

TEST_F(TraceTest, AStreamThatTheSelectorRefuses)
{
    Pipe closed;
    Exception const exception = Thrown([&] { framer_.ReadMessages(closed); });
    EXPECT_STREQ("Invalid stream.", exception.what());
    ExpectTraced(exception);
}

TEST_F(TraceTest, AWaitThatFails)
{
    test::TakenAway const away(pipe_.reader.GetDescriptor());
    Exception const exception = Thrown([&] { framer_.ReadMessages(pipe_.reader); });
    EXPECT_EQ(test::ErrnoText(EBADF), exception.what());
    ExpectTraced(exception);
}

TEST_F(TraceTest, AStreamThatFails)
{
    Socket null(open("/dev/null", O_RDONLY));
    Exception const exception = Thrown([&] { framer_.ReadMessages(null); });
    EXPECT_EQ(test::ErrnoText(ENOTTY), exception.what());
    ExpectTraced(exception);
}

TEST_F(TraceTest, AReadThatFails)
{
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "messages", "A\0"s);
    FileHandleStream onlyWritten;
    onlyWritten.Open(folder / "messages", O_WRONLY, 0);
    Exception const exception = Thrown([&] { framer_.ReadMessages(onlyWritten); });
    EXPECT_EQ(test::ErrnoText(EBADF), exception.what());
    ExpectTraced(exception);
}

// An exception of a program's own, which must come out as itself.
class OwnException : public Exception
{
public:
    OwnException() : Exception("own.cpp", 7, "own") {}
};

TEST_F(TraceTest, ADerivedExceptionComesOutAsItself)
{
    framer_.onMessage = [](Stream&) { throw OwnException(); };
    Send("A\0"s);
    try {
        ReadAll();
        FAIL() << "nothing was thrown";
    } catch (OwnException const& exception) {
        EXPECT_EQ(7u, exception.locations[0].line);
        ExpectTraced(exception);
    }
}

TEST_F(TraceTest, OtherTypesPassThroughUntouched)
{
    std::runtime_error const original("from the hook");
    framer_.onMessage = [&](Stream&) { throw original; };
    Send("A\0"s);
    EXPECT_THROW(framer_.ReadMessages(pipe_.reader), std::runtime_error);
    framer_.onMessage = [](Stream&) { throw 7; };
    Send("A\0"s);
    EXPECT_THROW(framer_.ReadMessages(pipe_.reader), int);
}

TEST_F(TraceTest, NoDescriptorIsLostOnTheWayOut)
{
    std::size_t const before = test::CountDescriptors();
    framer_.onMessage = [](Stream&) { throw 7; };
    Send("A\0"s);
    EXPECT_THROW(framer_.ReadMessages(pipe_.reader), int);
    EXPECT_EQ(before, test::CountDescriptors());
}

}}}  // namespace tovu::util
