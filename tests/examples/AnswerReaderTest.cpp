#include "volumectl/AnswerReader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "PipePair.h"

namespace volume { namespace {

using tovu::test::PipePair;
using tovu::test::ScriptedPipe;

TEST(AnswerReaderTest, AnAnswerMayComeInAnyPieces)
{
    PipePair<ScriptedPipe> pipe;
    std::string const document = "<Echo>" + std::string(30000, 'x') + "</Echo>";
    pipe.writer.Write(document.c_str(), static_cast<unsigned>(document.size() + 1));
    pipe.reader.onRead = [&](void* buffer, unsigned) { return pipe.reader.Pipe::Read(buffer, 1); };
    AnswerReader answer([](xercesc::DOMNode const&) {});
    answer.Read(pipe.reader);
    EXPECT_EQ(document, answer.GetDocument());
}

TEST(AnswerReaderTest, AnAnswerWithoutAnEndIsRefused)
{
    PipePair<ScriptedPipe> pipe;
    pipe.writer.Write("x", 1);  // there is always something to read
    unsigned long long come = 0;
    pipe.reader.onRead = [&](void* buffer, unsigned length) {
        std::memset(buffer, 'x', length);
        come += length;
        return static_cast<int>(length);
    };
    AnswerReader answer([](xercesc::DOMNode const&) {});
    EXPECT_THROW(answer.Read(pipe.reader), NoAnswer);
    EXPECT_GT(come, 64u << 20);
    EXPECT_LE(come, (64u << 20) + 4096);
}

}}  // namespace volume
