#include "tovu/util/MessageProcessor.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>

#include "EnvironmentVariable.h"
#include "FailingAllocation.h"
#include "LogOfChild.h"
#include "ParserDelivery.h"
#include "ParserMemory.h"
#include "PrivateMember.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util { namespace {

using test::Delivering;
using test::Delivery;
using test::LogOf;
using test::ParserMemory;
using test::Thrown;

typedef std::vector<std::string> Calls;

static_assert(std::is_default_constructible<MessageProcessor>::value, "it can be used as it stands");
static_assert(std::has_virtual_destructor<MessageProcessor>::value, "");

unsigned char const* Bytes(std::string const& text)
{
    return reinterpret_cast<unsigned char const*>(text.data());
}

std::string Text(unsigned char const* data, unsigned length)
{
    return std::string(reinterpret_cast<char const*>(data), length);
}

unsigned Parse(MessageProcessor const& processor, std::string const& message)
{
    Pipe closed;
    return processor.ParseMessage(closed, Bytes(message), static_cast<unsigned>(message.size()));
}

// The text of the error that a parser finds in a document.
std::string ParseErrorOf(std::string const& document)
{
    XercesErrorHandler handler;
    xercesc::XercesDOMParser parser;
    parser.setErrorHandler(&handler);
    xercesc::MemBufInputSource const source(Bytes(document), document.size(), "");
    return Thrown([&] { parser.parse(source); }).what();
}

// Records the calls of the hooks, and lets a test act in them.
class Recorder : public MessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override
    {
        calls.push_back("IsValidMessage " + name);
        if (onName)
            onName();
        return accepts;
    }

    void HandleMessage(Stream& stream, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override
    {
        calls.push_back("HandleMessage " + Text(data, length));
        if (onMessage)
            onMessage(stream, data, element);
    }

    void HandleError(int code, Stream& stream, unsigned char const* data, unsigned length) const override
    {
        calls.push_back("HandleError " + std::to_string(code) + " " + Text(data, length));
        if (onError)
            onError(stream, data);
    }

    mutable Calls calls;
    bool accepts = true;
    std::function<void()> onName;
    std::function<void(Stream&, unsigned char const*, xercesc::DOMNode const&)> onMessage;
    std::function<void(Stream&, unsigned char const*)> onError;
};

class MessageProcessorTest : public testing::Test
{
protected:
    // The calls of the hooks for one message, for which ParseMessage asks to skip nothing.
    Calls CallsFor(std::string const& message)
    {
        recorder_.calls.clear();
        EXPECT_EQ(0u, Parse(recorder_, message));
        return recorder_.calls;
    }

    // Lets the message's handler do something.
    void InHandler(std::function<void()> action)
    {
        recorder_.onMessage = [action](Stream&, unsigned char const*, xercesc::DOMNode const&) { action(); };
    }

    Recorder recorder_;
};

TEST_F(MessageProcessorTest, AMessageOfAnAcceptedNameIsHandled)
{
    EXPECT_EQ((Calls{"IsValidMessage GetInfo", "HandleMessage <GetInfo id='1'/>"}), CallsFor("<GetInfo id='1'/>"));
}

TEST_F(MessageProcessorTest, AMessageOfARefusedNameIsError0)
{
    recorder_.accepts = false;
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleError 0 <a/>"}), CallsFor("<a/>"));
}

TEST_F(MessageProcessorTest, AMessageWithoutADocumentElementIsError1)
{
    for (Delivery const without : {Delivery::Nothing, Delivery::Empty}) {
        Delivering const delivering(without);
        EXPECT_EQ(Calls{"HandleError 1 <a/>"}, CallsFor("<a/>"));
    }
}

TEST_F(MessageProcessorTest, WhatIsNotWellFormedIsError3)
{
    char const* const messages[] = {
        "<a>",                    // never closed
        "<a></b>",                // closed by another
        "<a/><b/>",               // two roots
        "<a b='1' b='2'/>",       // an attribute twice
        "<a>&unknown;</a>",       // an entity that nobody declared
        "text",                   // no element at all
        " ",                      //
        "<!-- comment -->",       //
        "<?xml version='1.0'?>",  //
        "<!DOCTYPE a []>",        //
        "<a>\xff</a>",            // not in its encoding
        "<?xml version='1.0' encoding='unheard-of'?><a/>",
        "<!DOCTYPE a SYSTEM 'no/such/file.dtd'><a/>",
    };
    for (std::string const message : messages)
        EXPECT_EQ(Calls{"HandleError 3 " + message}, CallsFor(message));
}

TEST_F(MessageProcessorTest, AnEmptyMessageIsDropped)
{
    EXPECT_EQ(Calls(), CallsFor(""));
    Pipe closed;
    EXPECT_EQ(0u, recorder_.ParseMessage(closed, nullptr, 0));
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(MessageProcessorTest, AnEmptyMessageBetweenDelimitersReachesNoHook)
{
    Pipe closed;
    std::string const chunk("<a/>\0\0<b/>\0", 11);
    EXPECT_TRUE(recorder_.ProcessMessages(closed, Bytes(chunk), 11));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>", "IsValidMessage b", "HandleMessage <b/>"}),
              recorder_.calls);
}

TEST_F(MessageProcessorTest, TheHandlerGetsTheCallersStreamAndBytes)
{
    Pipe mine;
    std::string const message = "<a/>";
    recorder_.onMessage = [&](Stream& stream, unsigned char const* data, xercesc::DOMNode const&) {
        EXPECT_EQ(&mine, &stream);
        EXPECT_EQ(Bytes(message), data);
    };
    recorder_.ParseMessage(mine, Bytes(message), 4);
    EXPECT_EQ(2u, recorder_.calls.size());
}

TEST_F(MessageProcessorTest, TheErrorHookGetsTheCallersStreamAndBytes)
{
    Pipe mine;
    std::string const message = "<a>";
    recorder_.onError = [&](Stream& stream, unsigned char const* data) {
        EXPECT_EQ(&mine, &stream);
        EXPECT_EQ(Bytes(message), data);
    };
    recorder_.ParseMessage(mine, Bytes(message), 3);
    EXPECT_EQ(Calls{"HandleError 3 <a>"}, recorder_.calls);
}

TEST_F(MessageProcessorTest, TheHandlerGetsTheDocumentElement)
{
    std::string seen;
    recorder_.onMessage = [&](Stream&, unsigned char const*, xercesc::DOMNode const& element) {
        EXPECT_EQ(xercesc::DOMNode::ELEMENT_NODE, element.getNodeType());
        seen = XMLCh2string(element.getNodeName()) + " " + GetAttributeValue("id", element.getAttributes()) + " " +
               XMLCh2string(element.getTextContent());
    };
    CallsFor("<?xml version='1.0'?><!-- first --><volume id='7'>full</volume>");
    EXPECT_EQ("volume 7 full", seen);
}

// The parser's own defaults: no validation, no namespaces, and a DTD is read.
TEST_F(MessageProcessorTest, TheParserKeepsItsDefaults)
{
    std::pair<std::string, std::string> const rows[] = {
        {"<x:a/>", "x:a"},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><b>text</b>", "b"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA #IMPLIED> <!ATTLIST a x CDATA #IMPLIED>]><a/>", "a"},  // only a warning
        {"<?xml version='1.1'?><a/>", "a"},
    };
    for (auto const& row : rows)
        EXPECT_EQ((Calls{"IsValidMessage " + row.second, "HandleMessage " + row.first}), CallsFor(row.first));
}

// A comment, an entity and an instruction are not dropped, nor joined with the text around them.
TEST_F(MessageProcessorTest, TheDocumentKeepsNodesOfEveryKind)
{
    std::vector<int> kinds;
    recorder_.onMessage = [&](Stream&, unsigned char const*, xercesc::DOMNode const& element) {
        for (xercesc::DOMNode const* node = element.getFirstChild(); node != nullptr; node = node->getNextSibling())
            kinds.push_back(node->getNodeType());
    };
    CallsFor("<!DOCTYPE a [<!ENTITY e 'x'>]><a> <!--c--><![CDATA[d]]>&e;<?i?></a>");
    EXPECT_EQ((std::vector<int>{xercesc::DOMNode::TEXT_NODE, xercesc::DOMNode::COMMENT_NODE,
                                xercesc::DOMNode::CDATA_SECTION_NODE, xercesc::DOMNode::ENTITY_REFERENCE_NODE,
                                xercesc::DOMNode::PROCESSING_INSTRUCTION_NODE}),
              kinds);
}

TEST_F(MessageProcessorTest, TheEntitiesOfADtdAreExpanded)
{
    std::string seen;
    recorder_.onMessage = [&](Stream&, unsigned char const*, xercesc::DOMNode const& element) {
        seen = XMLCh2string(element.getTextContent());
    };
    CallsFor("<!DOCTYPE a [<!ENTITY e 'expanded'>]><a>&e;</a>");
    EXPECT_EQ("expanded", seen);
}

// The parser's own switch, for whoever runs a program that does not look at its messages before.
TEST_F(MessageProcessorTest, TheEnvironmentCanForbidDtds)
{
    test::EnvironmentVariable const forbidden("XERCES_DISABLE_DTD", "1");
    EXPECT_EQ(Calls{"HandleError 3 <!DOCTYPE a []><a/>"}, CallsFor("<!DOCTYPE a []><a/>"));
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), CallsFor("<a/>"));
}

// A name that stands for the content of a file: why strangers are not to send a DTD.
TEST_F(MessageProcessorTest, ExternalEntitiesAreRead)
{
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "file", "what it says");
    std::string seen;
    recorder_.onMessage = [&](Stream&, unsigned char const*, xercesc::DOMNode const& element) {
        seen = XMLCh2string(element.getTextContent());
    };
    CallsFor("<!DOCTYPE a [<!ENTITY e SYSTEM 'file://" + (folder / "file") + "'>]><a>&e;</a>");
    EXPECT_EQ("what it says", seen);
}

TEST_F(MessageProcessorTest, NothingOfAMessageIsKeptForTheNext)
{
    CallsFor("<!DOCTYPE a [<!ENTITY e 'expanded'>]><a>&e;</a>");
    EXPECT_EQ(Calls{"HandleError 3 <a>&e;</a>"}, CallsFor("<a>&e;</a>"));
}

TEST_F(MessageProcessorTest, EveryStandardExceptionFromAHookIsError3)
{
    std::function<void()> const actions[] = {
        [] { throw Exception("hook.cpp", 1, "own"); },
        [] { throw std::runtime_error("standard"); },
        [] { throw std::bad_alloc(); },
    };
    for (auto const& action : actions) {
        recorder_.onName = action;
        EXPECT_EQ((Calls{"IsValidMessage a", "HandleError 3 <a/>"}), CallsFor("<a/>"));
        recorder_.onName = nullptr;
        InHandler(action);
        EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>", "HandleError 3 <a/>"}), CallsFor("<a/>"));
    }
}

template <typename Type>
class OtherExceptionTest : public MessageProcessorTest
{
protected:
    static void Throw();
};

template <>
void OtherExceptionTest<int>::Throw()
{
    throw 7;
}

template <>
void OtherExceptionTest<xercesc::DOMException>::Throw()
{
    throw xercesc::DOMException(xercesc::DOMException::INVALID_STATE_ERR);
}

template <>
void OtherExceptionTest<xercesc::XMLException>::Throw()
{
    throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::AttrList_BadIndex,
                                    xercesc::XMLPlatformUtils::fgMemoryManager);
}

typedef testing::Types<int, xercesc::DOMException, xercesc::XMLException> OtherExceptions;
TYPED_TEST_SUITE(OtherExceptionTest, OtherExceptions, );

TYPED_TEST(OtherExceptionTest, PassesOutOfTheHooksWithoutAnErrorCall)
{
    this->recorder_.onName = [] { TestFixture::Throw(); };
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    this->recorder_.onName = nullptr;
    this->InHandler([] { TestFixture::Throw(); });
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    EXPECT_EQ((Calls{"IsValidMessage a", "IsValidMessage a", "HandleMessage <a/>"}), this->recorder_.calls);
}

TYPED_TEST(OtherExceptionTest, LeavesNothingOfTheParserBehind)
{
    this->InHandler([] { TestFixture::Throw(); });
    ParserMemory memory;
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    EXPECT_LT(0u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(MessageProcessorTest, TheParsersOwnExceptionPassesOut)
{
    ParserMemory memory;
    EXPECT_THROW(Parse(recorder_, "<?xml version='1.2'?><a/>"), xercesc::DOMException);
    EXPECT_EQ(Calls(), recorder_.calls);
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(MessageProcessorTest, WhatTheErrorHookThrowsPassesOut)
{
    for (char const* message : {"<refused/>", "<broken>"}) {
        recorder_.accepts = false;
        recorder_.calls.clear();
        recorder_.onError = [](Stream&, unsigned char const*) { throw std::runtime_error("from the error hook"); };
        EXPECT_THROW(Parse(recorder_, message), std::runtime_error);
        EXPECT_EQ(std::string("HandleError "), recorder_.calls.back().substr(0, 12));
    }
}

TEST_F(MessageProcessorTest, TheParserIsGoneBeforeTheErrorHook)
{
    ParserMemory memory;
    std::size_t inName = 0;
    std::size_t inError = 1;
    recorder_.accepts = false;
    recorder_.onName = [&] { inName = memory.Held(); };
    recorder_.onError = [&](Stream&, unsigned char const*) { inError = memory.Held(); };

    EXPECT_EQ((Calls{"IsValidMessage a", "HandleError 0 <a/>"}), CallsFor("<a/>"));
    EXPECT_LT(0u, inName);
    EXPECT_EQ(0u, inError);
}

TEST_F(MessageProcessorTest, TheParserIsGoneBeforeTheErrorHookOfAFailure)
{
    ParserMemory memory;
    std::size_t inError = 1;
    recorder_.onError = [&](Stream&, unsigned char const*) { inError = memory.Held(); };
    EXPECT_EQ(Calls{"HandleError 3 <a>"}, CallsFor("<a>"));
    EXPECT_LT(0u, memory.Taken());
    EXPECT_EQ(0u, inError);

    inError = 1;
    Delivering const delivering(Delivery::Empty);
    EXPECT_EQ(Calls{"HandleError 1 <a/>"}, CallsFor("<a/>"));
    EXPECT_EQ(0u, inError);
}

TEST_F(MessageProcessorTest, TheDocumentLivesUntilTheHandlerReturns)
{
    ParserMemory memory;
    std::size_t inHandler = 0;
    InHandler([&] { inHandler = memory.Held(); });
    CallsFor("<a/>");
    EXPECT_LT(0u, inHandler);
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(MessageProcessorTest, ProcessorsOfTheirOwnServeManyThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            Recorder recorder;
            for (int message = 0; message < 50; ++message)
                Parse(recorder, message % 2 == 0 ? "<a/>" : "<a>");
            EXPECT_EQ(75u, recorder.calls.size());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(PlainMessageProcessorTest, AcceptsNoName)
{
    MessageProcessor const processor;
    for (char const* name : {"", "a", "GetInfo"})
        EXPECT_FALSE(processor.IsValidMessage(name)) << name;
}

TEST(PlainMessageProcessorTest, ItsHooksDoNothing)
{
    MessageProcessor const processor;
    Pipe closed;
    xercesc::XercesDOMParser parser;
    std::string const document = "<a/>";
    xercesc::MemBufInputSource const source(Bytes(document), document.size(), "");
    parser.parse(source);
    xercesc::DOMElement const& element = *parser.getDocument()->getDocumentElement();

    EXPECT_NO_THROW(processor.HandleMessage(closed, nullptr, 0, element));
    EXPECT_NO_THROW(processor.HandleError(3, closed, nullptr, 0));
    EXPECT_EQ("a", XMLCh2string(element.getNodeName()));
    EXPECT_FALSE(closed.IsOpen());
}

// A processor that logs the call of its error hook, whatever the threshold.
class ErrorLogger : public MessageProcessor
{
public:
    void HandleError(int code, Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/) const override
    {
        LoggerMgr::Instance().Log(LoggerMgr::LEVEL_ERROR, "hook", 1, "HandleError %d\n", code);
    }
};

// The lines for one message of a processor that accepts no name.
std::string LogOfMessage(unsigned threshold, std::string const& message)
{
    return LogOf(threshold, [&] { Parse(ErrorLogger(), message); });
}

// The lines in which each message is logged at the debug level.
std::string Dump(std::string const& message)
{
    return "Debug src/util/MessageProcessor.cpp:123 " + HexFormatstring(message) +
           "Debug src/util/MessageProcessor.cpp:124 " + message;
}

class MessageLogTest : public testing::Test
{
protected:
    std::string const brokenMessage_ = "<broken>";
    std::string const failureLine_ =
        "Error src/util/MessageProcessor.cpp:151 " + ParseErrorOf(brokenMessage_) + "\nparsing:\n<broken>";
};

TEST_F(MessageLogTest, ARefusedNameIsLoggedBeforeTheErrorHook)
{
    EXPECT_EQ(Dump("<some-name>with text</some-name>") +
                  "Debug src/util/MessageProcessor.cpp:139 Message name 'some-name' does not match any expected "
                  "name(s).\n"
                  "Error hook:1 HandleError 0\n",
              LogOfMessage(4, "<some-name>with text</some-name>"));
}

TEST_F(MessageLogTest, AFailureIsLoggedBeforeTheErrorHook)
{
    EXPECT_EQ(Dump(brokenMessage_) + failureLine_ + "Error hook:1 HandleError 3\n", LogOfMessage(4, brokenMessage_));
}

TEST_F(MessageLogTest, BelowTheDebugLevelNothingIsDumped)
{
    for (unsigned const threshold : {1u, 2u, 3u}) {
        EXPECT_EQ("Error hook:1 HandleError 0\n", LogOfMessage(threshold, "<a/>"));
        EXPECT_EQ(failureLine_ + "Error hook:1 HandleError 3\n", LogOfMessage(threshold, brokenMessage_));
    }
}

TEST_F(MessageLogTest, WithoutALevelNothingIsLoggedButTheErrorHookIsCalled)
{
    EXPECT_EQ("Error hook:1 HandleError 0\n", LogOfMessage(0, "<a/>"));
    EXPECT_EQ("Error hook:1 HandleError 3\n", LogOfMessage(0, brokenMessage_));
    Delivering const delivering(Delivery::Empty);
    EXPECT_EQ("Error hook:1 HandleError 1\n", LogOfMessage(0, "<a/>"));
}

TEST_F(MessageLogTest, AMissingDocumentElementIsAnError)
{
    for (Delivery const without : {Delivery::Nothing, Delivery::Empty}) {
        Delivering const delivering(without);
        EXPECT_EQ(
            "Error src/util/MessageProcessor.cpp:145 NULL document element in message:\n<a/>"
            "Error hook:1 HandleError 1\n",
            LogOfMessage(1, "<a/>"));
    }
}

TEST_F(MessageLogTest, AHandledMessageIsOnlyDumped)
{
    EXPECT_EQ(Dump("<a/>"), LogOf(4, [] { Parse(Recorder(), "<a/>"); }));
    EXPECT_EQ("", LogOf(3, [] { Parse(Recorder(), "<a/>"); }));
}

TEST_F(MessageLogTest, AnEmptyMessageIsNotLogged)
{
    EXPECT_EQ("", LogOfMessage(4, ""));
}

TEST_F(MessageLogTest, ThePlainClassRefusesEveryMessage)
{
    EXPECT_EQ(Dump("<a/>") +
                  "Debug src/util/MessageProcessor.cpp:139 Message name 'a' does not match any expected name(s).\n",
              LogOf(4, [] { EXPECT_EQ(0u, Parse(MessageProcessor(), "<a/>")); }));
}

TEST_F(MessageLogTest, TheTextOfAMessageEndsAtAZeroByteButItsDumpDoesNot)
{
    std::string const message("<a/>\0 ", 6);
    EXPECT_EQ("Debug src/util/MessageProcessor.cpp:123 " + HexFormatstring(message) +
                  "Debug src/util/MessageProcessor.cpp:124 <a/>",
              LogOf(4, [&] { Parse(Recorder(), message); }));
}

TEST_F(MessageLogTest, TheMessageIsTakenVerbatim)
{
    std::string const message = "<a x='%s %n %d'/>";
    EXPECT_EQ(Dump(message), LogOf(4, [&] { Parse(Recorder(), message); }));
}

TEST_F(MessageLogTest, AHooksExceptionIsLoggedWithoutItsTrail)
{
    Recorder recorder;
    recorder.onName = [] { throw Exception("hook.cpp", 1, "the hook failed"); };
    EXPECT_EQ("Error src/util/MessageProcessor.cpp:151 the hook failed\nparsing:\n<a/>",
              LogOf(3, [&] { Parse(recorder, "<a/>"); }));
}

TEST_F(MessageLogTest, AFailureOfTheDumpIsError3)
{
    std::string const message = "<a>" + std::string(100000, 'x') + "</a>";
    EXPECT_EQ(
        "Error src/util/MessageProcessor.cpp:151 std::bad_alloc\nparsing:\n" + message + "Error hook:1 HandleError 3\n",
        LogOf(4, [&] {
            ErrorLogger const processor;
            test::FailingAllocation const failing(message.size());
            EXPECT_EQ(0u, Parse(processor, message));
            EXPECT_TRUE(failing.HasFailed());
        }));
}

TOVU_PRIVATE_MEMBER(StopFlag, bool, MessageProcessor, stop_);
TOVU_PRIVATE_MEMBER(PendingBytes, std::vector<unsigned char>, MessageProcessor, pending_);

class PendingBytesTest : public testing::Test
{
protected:
    bool Stop() const { return StopFlag::Of(processor_); }
    std::vector<unsigned char> const& Pending() const { return PendingBytes::Of(processor_); }

    void Feed(std::string const& chunk)
    {
        Pipe closed;
        processor_.ProcessMessages(closed, Bytes(chunk), static_cast<unsigned>(chunk.size()));
    }

    MessageProcessor processor_;
};

TEST_F(PendingBytesTest, AreKeptBesideTheStopFlag)
{
    EXPECT_FALSE(Stop());
    EXPECT_TRUE(Pending().empty());

    processor_.SetStop(true);
    Feed("AB");
    EXPECT_TRUE(Stop());
    EXPECT_EQ((std::vector<unsigned char>{'A', 'B'}), Pending());

    processor_.SetStop(false);
    EXPECT_FALSE(Stop());
}

TEST_F(PendingBytesTest, TheBufferKeepsItsCapacityWhenAMessageIsComplete)
{
    Feed(std::string(1000, 'x'));
    std::size_t const capacity = Pending().capacity();
    Feed(std::string(1, '\0'));
    EXPECT_TRUE(Pending().empty());
    EXPECT_EQ(capacity, Pending().capacity());
    EXPECT_LE(1000u, capacity);
}

}}}  // namespace tovu::util
