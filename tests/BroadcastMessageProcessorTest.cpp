#include "tovu/util/BroadcastMessageProcessor.h"

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

#include "BroadcastRecorder.h"
#include "BroadcastSockets.h"
#include "FailingAllocation.h"
#include "LogOfChild.h"
#include "ParserDelivery.h"
#include "ParserMemory.h"
#include "PrivateMember.h"
#include "Throws.h"
#include "tovu/util/Exception.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/Socket.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util { namespace {

using namespace std::string_literals;
using test::BroadcastRecorder;
using test::Bytes;
using test::Delivering;
using test::Delivery;
using test::LogOf;
using test::Loopback;
using test::Parse;
using test::ParserMemory;
using test::Thrown;

using Address = Socket::Address;
using Arguments = BroadcastRecorder::Arguments;
using Calls = BroadcastRecorder::Calls;

static_assert(std::is_default_constructible<BroadcastMessageProcessor>::value, "it can be used as it stands");
static_assert(std::has_virtual_destructor<BroadcastMessageProcessor>::value, "");
static_assert(!std::is_base_of<MessageProcessor, BroadcastMessageProcessor>::value, "a class of its own");

// The text of the error that a parser finds in a document.
std::string ParseErrorOf(std::string const& document)
{
    XercesErrorHandler handler;
    xercesc::XercesDOMParser parser;
    parser.setErrorHandler(&handler);
    xercesc::MemBufInputSource const source(Bytes(document), document.size(), "");
    return Thrown([&] { parser.parse(source); }).what();
}

// ---- One message.

class BroadcastParseTest : public testing::Test
{
protected:
    BroadcastRecorder recorder_;
};

TEST_F(BroadcastParseTest, AMessageOfAnAcceptedNameIsHandled)
{
    EXPECT_EQ((Calls{"IsValidMessage Discover", "HandleMessage <Discover id='1'/>"}),
              recorder_.CallsFor("<Discover id='1'/>"));
}

TEST_F(BroadcastParseTest, AMessageOfARefusedNameIsError0)
{
    recorder_.accepts = false;
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleError 0 <a/>"}), recorder_.CallsFor("<a/>"));
}

TEST_F(BroadcastParseTest, AMessageWithoutADocumentElementIsError1)
{
    for (Delivery const without : {Delivery::Nothing, Delivery::Empty}) {
        Delivering const delivering(without);
        EXPECT_EQ(Calls{"HandleError 1 <a/>"}, recorder_.CallsFor("<a/>"));
    }
}

TEST_F(BroadcastParseTest, WhatIsNotWellFormedIsError3)
{
    char const* const messages[] = {
        "<a>",               // never closed
        "<a></b>",           // closed by another
        "<a/><b/>",          // two roots
        "<a b='1' b='2'/>",  // an attribute twice
        "<a>&unknown;</a>",  // an entity that nobody declared
        "text",              // no element at all
        " ",                 //
        "<!-- comment -->",  //
        "<a>\xff</a>",       // not in its encoding
        "<?xml version='1.0' encoding='unheard-of'?><a/>",
        "<!DOCTYPE a SYSTEM 'no/such/file.dtd'><a/>",
    };
    for (std::string const message : messages)
        EXPECT_EQ(Calls{"HandleError 3 " + message}, recorder_.CallsFor(message));
}

TEST_F(BroadcastParseTest, AnEmptyMessageIsDropped)
{
    EXPECT_EQ(Calls(), recorder_.CallsFor(""));
    ServerBroadcastSocket server(Loopback(), true);
    recorder_.ParseMessage(server, nullptr, 0, Loopback());
    EXPECT_EQ(Calls(), recorder_.calls);
}

TEST_F(BroadcastParseTest, AZeroByteAtTheEndBelongsToTheMessage)
{
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>\0"s}), recorder_.CallsFor("<a/>\0"s));
}

TEST_F(BroadcastParseTest, AZeroByteAtTheEndReachesTheParser)
{
    std::string const utf16 = "\xFF\xFE<\0a\0/\0>\0"s;  // half of the last character
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage " + utf16}), recorder_.CallsFor(utf16));
    EXPECT_EQ(1u, recorder_.CallsFor(utf16.substr(0, utf16.size() - 1)).size());
}

TEST_F(BroadcastParseTest, TheHandlerGetsTheCallersArguments)
{
    ServerBroadcastSocket mine(Loopback(), true);
    std::string const message = "<a/>";
    Address const from = Loopback(4711);
    recorder_.onMessage = [&](Arguments const& arguments) {
        EXPECT_EQ(&mine, &arguments.socket);
        EXPECT_EQ(Bytes(message), arguments.data);
        EXPECT_EQ(&from, &arguments.sender);
    };
    recorder_.ParseMessage(mine, Bytes(message), 4, from);
    EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>"}), recorder_.calls);
}

TEST_F(BroadcastParseTest, TheErrorHookGetsTheCallersArguments)
{
    ServerBroadcastSocket mine(Loopback(), true);
    std::string const message = "<a>";
    Address const from = Loopback(4711);
    recorder_.onError = [&](Arguments const& arguments) {
        EXPECT_EQ(&mine, &arguments.socket);
        EXPECT_EQ(Bytes(message), arguments.data);
        EXPECT_EQ(&from, &arguments.sender);
    };
    recorder_.ParseMessage(mine, Bytes(message), 3, from);
    EXPECT_EQ(Calls{"HandleError 3 <a>"}, recorder_.calls);
}

TEST_F(BroadcastParseTest, TheHandlerGetsTheDocumentElement)
{
    std::string seen;
    recorder_.onMessage = [&](Arguments const& arguments) {
        xercesc::DOMNode const& element = *arguments.element;
        EXPECT_EQ(xercesc::DOMNode::ELEMENT_NODE, element.getNodeType());
        seen = XMLCh2string(element.getNodeName()) + " " + GetAttributeValue("id", element.getAttributes()) + " " +
               XMLCh2string(element.getTextContent());
    };
    recorder_.CallsFor("<?xml version='1.0'?><!-- first --><volume id='7'>full</volume>");
    EXPECT_EQ("volume 7 full", seen);
}

// The parser's own defaults: no validation, no namespaces, and a DTD is read.
TEST_F(BroadcastParseTest, TheParserKeepsItsDefaults)
{
    std::pair<std::string, std::string> const rows[] = {
        {"<x:a/>", "x:a"},
        {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><b>text</b>", "b"},
        {"<!DOCTYPE a [<!ATTLIST a x CDATA #IMPLIED> <!ATTLIST a x CDATA #IMPLIED>]><a/>", "a"},  // only a warning
        {"<?xml version='1.1'?><a/>", "a"},
    };
    for (auto const& row : rows)
        EXPECT_EQ((Calls{"IsValidMessage " + row.second, "HandleMessage " + row.first}), recorder_.CallsFor(row.first));
}

// A comment, an entity and an instruction are not dropped, nor joined with the text around them.
TEST_F(BroadcastParseTest, TheDocumentKeepsNodesOfEveryKind)
{
    std::vector<int> kinds;
    recorder_.onMessage = [&](Arguments const& arguments) {
        for (xercesc::DOMNode const* node = arguments.element->getFirstChild(); node != nullptr;
             node = node->getNextSibling())
            kinds.push_back(node->getNodeType());
    };
    recorder_.CallsFor("<!DOCTYPE a [<!ENTITY e 'x'>]><a> <!--c--><![CDATA[d]]>&e;<?i?></a>");
    EXPECT_EQ((std::vector<int>{xercesc::DOMNode::TEXT_NODE, xercesc::DOMNode::COMMENT_NODE,
                                xercesc::DOMNode::CDATA_SECTION_NODE, xercesc::DOMNode::ENTITY_REFERENCE_NODE,
                                xercesc::DOMNode::PROCESSING_INSTRUCTION_NODE}),
              kinds);
}

TEST_F(BroadcastParseTest, TheEntitiesOfADtdAreExpandedInNodesOfTheirOwn)
{
    std::string seen;
    recorder_.onMessage = [&](Arguments const& arguments) {
        EXPECT_EQ(xercesc::DOMNode::ENTITY_REFERENCE_NODE, arguments.element->getFirstChild()->getNodeType());
        seen = XMLCh2string(arguments.element->getTextContent());
    };
    recorder_.CallsFor("<!DOCTYPE a [<!ENTITY e 'expanded'>]><a>&e;</a>");
    EXPECT_EQ("expanded", seen);
}

TEST_F(BroadcastParseTest, NothingOfAMessageIsKeptForTheNext)
{
    recorder_.CallsFor("<!DOCTYPE a [<!ENTITY e 'expanded'>]><a>&e;</a>");
    EXPECT_EQ(Calls{"HandleError 3 <a>&e;</a>"}, recorder_.CallsFor("<a>&e;</a>"));
}

TEST_F(BroadcastParseTest, EveryStandardExceptionFromAHookIsError3)
{
    std::function<void()> const actions[] = {
        [] { throw Exception("hook.cpp", 1, "own"); },
        [] { throw std::runtime_error("standard"); },
        [] { throw std::bad_alloc(); },
    };
    for (auto const& action : actions) {
        recorder_.onName = action;
        EXPECT_EQ((Calls{"IsValidMessage a", "HandleError 3 <a/>"}), recorder_.CallsFor("<a/>"));
        recorder_.onName = nullptr;
        recorder_.onMessage = [&](Arguments const&) { action(); };
        EXPECT_EQ((Calls{"IsValidMessage a", "HandleMessage <a/>", "HandleError 3 <a/>"}), recorder_.CallsFor("<a/>"));
    }
}

template <typename Type>
class BroadcastOtherExceptionTest : public BroadcastParseTest
{
protected:
    static void Throw();
};

template <>
void BroadcastOtherExceptionTest<int>::Throw()
{
    throw 7;
}

template <>
void BroadcastOtherExceptionTest<xercesc::DOMException>::Throw()
{
    throw xercesc::DOMException(xercesc::DOMException::INVALID_STATE_ERR);
}

template <>
void BroadcastOtherExceptionTest<xercesc::XMLException>::Throw()
{
    throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::AttrList_BadIndex,
                                    xercesc::XMLPlatformUtils::fgMemoryManager);
}

typedef testing::Types<int, xercesc::DOMException, xercesc::XMLException> OtherExceptions;
TYPED_TEST_SUITE(BroadcastOtherExceptionTest, OtherExceptions, );

TYPED_TEST(BroadcastOtherExceptionTest, PassesOutOfTheHooksWithoutAnErrorCall)
{
    this->recorder_.onName = [] { TestFixture::Throw(); };
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    this->recorder_.onName = nullptr;
    this->recorder_.onMessage = [](Arguments const&) { TestFixture::Throw(); };
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    EXPECT_EQ((Calls{"IsValidMessage a", "IsValidMessage a", "HandleMessage <a/>"}), this->recorder_.calls);
}

TYPED_TEST(BroadcastOtherExceptionTest, LeavesNothingOfTheParserBehind)
{
    this->recorder_.onMessage = [](Arguments const&) { TestFixture::Throw(); };
    ParserMemory memory;
    EXPECT_THROW(Parse(this->recorder_, "<a/>"), TypeParam);
    EXPECT_LT(0u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(BroadcastParseTest, TheParsersOwnExceptionPassesOut)
{
    ParserMemory memory;
    EXPECT_THROW(Parse(recorder_, "<?xml version='1.2'?><a/>"), xercesc::DOMException);
    EXPECT_EQ(Calls(), recorder_.calls);
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(BroadcastParseTest, WhatTheErrorHookThrowsPassesOut)
{
    recorder_.accepts = false;
    recorder_.onError = [](Arguments const&) { throw std::runtime_error("from the error hook"); };
    EXPECT_THROW(Parse(recorder_, "<refused/>"), std::runtime_error);
    EXPECT_EQ((Calls{"IsValidMessage refused", "HandleError 0 <refused/>"}), recorder_.Take());
    EXPECT_THROW(Parse(recorder_, "<broken>"), std::runtime_error);
    EXPECT_EQ(Calls{"HandleError 3 <broken>"}, recorder_.Take());
}

TEST_F(BroadcastParseTest, TheParserIsGoneBeforeTheErrorHook)
{
    ParserMemory memory;
    std::size_t inName = 0;
    std::vector<std::size_t> inError;
    recorder_.accepts = false;
    recorder_.onName = [&] { inName = memory.Held(); };
    recorder_.onError = [&](Arguments const&) { inError.push_back(memory.Held()); };

    Parse(recorder_, "<refused/>");
    Parse(recorder_, "<broken>");
    Delivering const delivering(Delivery::Empty);
    Parse(recorder_, "<without-element/>");
    EXPECT_LT(0u, inName);
    EXPECT_EQ((std::vector<std::size_t>{0, 0, 0}), inError);
}

TEST_F(BroadcastParseTest, TheDocumentLivesUntilTheHandlerReturns)
{
    ParserMemory memory;
    std::size_t inHandler = 0;
    recorder_.onMessage = [&](Arguments const&) { inHandler = memory.Held(); };
    recorder_.CallsFor("<a/>");
    EXPECT_LT(0u, inHandler);
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(BroadcastParseTest, ProcessorsOfTheirOwnServeManyThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            BroadcastRecorder recorder;
            for (int message = 0; message < 50; ++message)
                Parse(recorder, message % 2 == 0 ? "<a/>" : "<a>");
            EXPECT_EQ(75u, recorder.calls.size());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// ---- What is logged for one message.

// A processor that logs the call of its error hook, whatever the threshold.
class ErrorLogger : public BroadcastMessageProcessor
{
public:
    void HandleError(int code, ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                     Address const& /*sender*/) const override
    {
        LoggerMgr::Instance().Log(LoggerMgr::LEVEL_ERROR, "hook", 1, "HandleError %d\n", code);
    }
};

// The lines for one message of a processor that accepts no name.
std::string LogOfMessage(unsigned threshold, std::string const& message)
{
    return LogOf(threshold, [&] { Parse(ErrorLogger(), message); });
}

// The line in which each message is logged at the debug level.
std::string Dump(std::string const& message)
{
    return "Debug src/util/BroadcastMessageProcessor.cpp:91 " + message;
}

// The line for a message that fails.
std::string FailureLine(std::string const& what, std::string const& message)
{
    return "Error src/util/BroadcastMessageProcessor.cpp:117 " + what + "\nparsing:\n" + message;
}

TEST(BroadcastLogTest, ARefusedNameIsLoggedBeforeTheErrorHook)
{
    EXPECT_EQ(Dump("<some-name>with text</some-name>") +
                  "Debug src/util/BroadcastMessageProcessor.cpp:105 Message name 'some-name' does not match any "
                  "expected name(s).\n"
                  "Error hook:1 HandleError 0\n",
              LogOfMessage(4, "<some-name>with text</some-name>"));
}

TEST(BroadcastLogTest, AFailureIsLoggedBeforeTheErrorHook)
{
    EXPECT_EQ(Dump("<broken>") + FailureLine(ParseErrorOf("<broken>"), "<broken>") + "Error hook:1 HandleError 3\n",
              LogOfMessage(4, "<broken>"));
}

TEST(BroadcastLogTest, BelowTheDebugLevelOnlyFailuresAreLogged)
{
    for (unsigned const threshold : {1u, 2u, 3u}) {
        EXPECT_EQ("Error hook:1 HandleError 0\n", LogOfMessage(threshold, "<a/>"));
        EXPECT_EQ(FailureLine(ParseErrorOf("<broken>"), "<broken>") + "Error hook:1 HandleError 3\n",
                  LogOfMessage(threshold, "<broken>"));
    }
}

TEST(BroadcastLogTest, WithoutALevelNothingIsLoggedButTheErrorHookIsCalled)
{
    EXPECT_EQ("Error hook:1 HandleError 0\n", LogOfMessage(0, "<a/>"));
    EXPECT_EQ("Error hook:1 HandleError 3\n", LogOfMessage(0, "<broken>"));
    Delivering const delivering(Delivery::Empty);
    EXPECT_EQ("Error hook:1 HandleError 1\n", LogOfMessage(0, "<a/>"));
}

TEST(BroadcastLogTest, AMissingDocumentElementIsAnError)
{
    for (Delivery const without : {Delivery::Nothing, Delivery::Empty}) {
        Delivering const delivering(without);
        EXPECT_EQ(
            "Error src/util/BroadcastMessageProcessor.cpp:111 NULL document element in message:\n<a/>"
            "Error hook:1 HandleError 1\n",
            LogOfMessage(1, "<a/>"));
    }
}

TEST(BroadcastLogTest, AHandledMessageIsOnlyDumpedAsText)
{
    EXPECT_EQ(Dump("<a/>"), LogOf(4, [] { Parse(BroadcastRecorder(), "<a/>"); }));
    EXPECT_EQ("", LogOf(3, [] { Parse(BroadcastRecorder(), "<a/>"); }));
}

TEST(BroadcastLogTest, AnEmptyMessageIsNotLogged)
{
    EXPECT_EQ("", LogOfMessage(4, ""));
}

TEST(BroadcastLogTest, ThePlainClassRefusesEveryMessage)
{
    EXPECT_EQ(Dump("<a/>") +
                  "Debug src/util/BroadcastMessageProcessor.cpp:105 Message name 'a' does not match any expected "
                  "name(s).\n",
              LogOf(4, [] { Parse(BroadcastMessageProcessor(), "<a/>"); }));
}

TEST(BroadcastLogTest, TheTextOfAMessageEndsAtAZeroByte)
{
    EXPECT_EQ(Dump("<a/>"), LogOf(4, [] { Parse(BroadcastRecorder(), "<a/>\0 "s); }));
}

TEST(BroadcastLogTest, TheMessageIsTakenVerbatim)
{
    std::string const message = "<a x='%s %n %d'/>";
    EXPECT_EQ(Dump(message), LogOf(4, [&] { Parse(BroadcastRecorder(), message); }));
}

TEST(BroadcastLogTest, AHooksExceptionIsLoggedWithoutItsTrail)
{
    BroadcastRecorder recorder;
    recorder.onName = [] { throw Exception("hook.cpp", 1, "the hook failed"); };
    EXPECT_EQ(FailureLine("the hook failed", "<a/>"), LogOf(3, [&] { Parse(recorder, "<a/>"); }));
}

TEST(BroadcastLogTest, AFailureOfTheDumpIsError3)
{
    std::string const message = "<a>" + std::string(50000, 'x') + "</a>";
    EXPECT_EQ(FailureLine("std::bad_alloc", message) + "Error hook:1 HandleError 3\n", LogOf(4, [&] {
                  ErrorLogger const processor;
                  test::FailingAllocation const failing(message.size());
                  Parse(processor, message);
                  EXPECT_TRUE(failing.HasFailed());
              }));
}

// ---- The class as it stands.

TEST(PlainBroadcastMessageProcessorTest, AcceptsNoName)
{
    BroadcastMessageProcessor const processor;
    for (char const* name : {"", "a", "Discover"})
        EXPECT_FALSE(processor.IsValidMessage(name)) << name;
}

TEST(PlainBroadcastMessageProcessorTest, ItsHooksDoNothing)
{
    BroadcastMessageProcessor const processor;
    ServerBroadcastSocket server(Loopback(), true);
    xercesc::XercesDOMParser parser;
    std::string const document = "<a/>";
    xercesc::MemBufInputSource const source(Bytes(document), document.size(), "");
    parser.parse(source);
    xercesc::DOMElement const& element = *parser.getDocument()->getDocumentElement();

    EXPECT_NO_THROW(processor.HandleMessage(server, nullptr, 0, element, Loopback()));
    EXPECT_NO_THROW(processor.HandleError(3, server, nullptr, 0, Loopback()));
    EXPECT_EQ("a", XMLCh2string(element.getNodeName()));
    EXPECT_TRUE(server.IsOpen());
}

TOVU_PRIVATE_MEMBER(Stop, bool, BroadcastMessageProcessor, stop_);

TEST(PlainBroadcastMessageProcessorTest, SetStopChangesTheFlag)
{
    BroadcastMessageProcessor processor;
    bool const& stop = Stop::Of(processor);
    EXPECT_FALSE(stop);
    processor.SetStop(true);
    EXPECT_TRUE(stop);
    processor.SetStop(false);
    EXPECT_FALSE(stop);
}

}}}  // namespace tovu::util
