#include "tovu/util/MessageWriter.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>

#include "WriterCases.h"

namespace tovu { namespace util { namespace {

using test::WriterKind;
using test::WriterTest;

static_assert(std::is_constructible<MessageWriter, Stream&>::value, "");
static_assert(!std::is_convertible<Stream&, MessageWriter>::value, "borrowing a stream is said in words");
static_assert(!std::is_polymorphic<MessageWriter>::value, "no virtual operations");
static_assert(std::is_same<decltype(&MessageWriter::Write),
                           unsigned int (MessageWriter::*)(void const*, unsigned int) const>::value,
              "");

WriterKind const KIND = {
    "Message", "Error src/util/MessageWriter.cpp:40 write failed.\n",
    [](Stream& stream, void const* buffer, unsigned length) { return MessageWriter(stream).Write(buffer, length); }};

INSTANTIATE_TEST_SUITE_P(Writers, WriterTest, testing::Values(KIND), test::ParameterName());

TEST(MessageWriterTest, WriteDoesNotTakeTheMutex)
{
    test::PipePair<> pipe;
    MessageWriter writer(pipe.writer);
    Mutex::Guard const guard(writer.GetMutex());
    EXPECT_EQ(4u, writer.Write("held", 4));
}

TEST(MessageWriterTest, TheMutexKeepsMessagesOfThreadsApart)
{
    test::PipePair<> pipe;
    MessageWriter writer(pipe.writer);
    auto const send = [&writer](std::string const& word) {
        for (unsigned message = 0; message < 200; ++message) {
            Mutex::Guard const guard(writer.GetMutex());
            for (char const letter : word)
                writer.Write(&letter, 1);
            writer.Write("", 1);
        }
    };
    std::thread other(send, "there");
    send("here");
    other.join();

    std::string received = test::Drain(pipe.reader.GetDescriptor());
    EXPECT_EQ(200u * 5 + 200u * 6, received.size());
    for (std::size_t start = 0; start < received.size(); start += std::strlen(&received[start]) + 1) {
        std::string const message = &received[start];
        EXPECT_TRUE(message == "here" || message == "there") << message;
    }
}

TEST(MessageWriterTest, SendsTheDelimiterThatItsSenderIncludes)
{
    test::PipePair<> pipe;
    static char const answer[] = "<Pong/>";
    EXPECT_EQ(8u, MessageWriter(pipe.writer).Write(answer, sizeof(answer)));
    EXPECT_EQ(std::string("<Pong/>\0", 8), test::Drain(pipe.reader.GetDescriptor()));
}

}}}  // namespace tovu::util
