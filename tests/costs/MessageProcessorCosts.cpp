// What a message takes beyond its parser, whose own blocks come from operator new as well: so they are counted beside a
// bare parser of the same bytes.

#include "tovu/util/MessageProcessor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "AllocationCounter.h"
#include "BroadcastSockets.h"
#include "PipePair.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util { namespace {

using namespace std::string_literals;
using test::AllocationCounter;

unsigned char const* Bytes(std::string const& text)
{
    return reinterpret_cast<unsigned char const*>(text.data());
}

unsigned Length(std::string const& text)
{
    return static_cast<unsigned>(text.size());
}

// Notes where the messages lie, and reads none of them.
class Framer : public MessageProcessor
{
public:
    Framer() { places.reserve(1000); }

    unsigned ParseMessage(Stream& /*stream*/, unsigned char const* data, unsigned /*length*/) const override
    {
        places.push_back(data);
        return 0;
    }

    void Feed(std::string const& chunk) { ProcessMessages(stream_, Bytes(chunk), Length(chunk)); }

    mutable std::vector<unsigned char const*> places;

private:
    Pipe stream_;
};

TEST(MessageProcessorCosts, MessagesThatArriveWholeAreHandedOutWhereTheyLie)
{
    Framer framer;
    std::string const chunk = "first\0second\0"s;
    framer.Feed(chunk);
    EXPECT_EQ((std::vector<unsigned char const*>{Bytes(chunk), Bytes(chunk) + 6}), framer.places);
}

TEST(MessageProcessorCosts, ABurstOfWholeMessagesTakesNothing)
{
    Framer framer;
    std::string burst;
    for (int i = 0; i < 1000; ++i)
        burst += std::string(100, 'x') + '\0';
    AllocationCounter const counter;
    framer.Feed(burst);
    EXPECT_EQ(0U, counter.Blocks());
    EXPECT_EQ(1000U, framer.places.size());
}

TEST(MessageProcessorCosts, TheBufferOfASpreadMessageServesTheNextOne)
{
    Framer framer;
    std::string const start(1000, 's');
    std::string const end = std::string(1000, 'e') + '\0';
    framer.Feed(start);
    framer.Feed(end);

    AllocationCounter const counter;
    framer.Feed(start);
    framer.Feed(end);
    EXPECT_EQ(0U, counter.Blocks());
    EXPECT_EQ(2U, framer.places.size());
}

// It doubles when it grows, so what is copied is no more than three times of what came.
TEST(MessageProcessorCosts, AMessageOfManyChunksIsNotCopiedForEachOfThem)
{
    Framer framer;
    std::string const chunk(1000, 'c');
    AllocationCounter const counter;
    for (int i = 0; i < 1000; ++i)
        framer.Feed(chunk);
    EXPECT_EQ(11U, counter.Blocks());  // of 1, 2, 4 ... 1024 chunks
    EXPECT_EQ(2047U * chunk.size(), counter.Bytes());
}

TEST(MessageProcessorCosts, AReadTakesOneBufferOfWhatIsThere)
{
    test::PipePair<> pipe;
    Framer framer;
    std::string const chunk = std::string(1000, 'x') + '\0';
    pipe.writer.Write(chunk.data(), Length(chunk));

    AllocationCounter const counter;
    framer.ProcessMessages(pipe.reader);
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(chunk.size(), counter.Bytes());
    EXPECT_EQ(1U, framer.places.size());
}

std::string const DOCUMENT = "<?xml version='1.0'?><Volumes><Volume name='photos' free='12'/>text</Volumes>";

// The blocks of a bare parser that reads the document, and their bytes.
struct Taken
{
    std::size_t blocks;
    std::size_t bytes;
};

Taken TakenByABareParser(std::string const& document)
{
    AllocationCounter const counter;
    XercesErrorHandler errorHandler;
    xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
    parser.setErrorHandler(&errorHandler);
    xercesc::MemBufInputSource source(Bytes(document), document.size(), "", false,
                                      xercesc::XMLPlatformUtils::fgMemoryManager);
    parser.parse(source);
    XMLCh2string(parser.getDocument()->getDocumentElement()->getNodeName());
    return {counter.Blocks(), counter.Bytes()};
}

class Messages : public MessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override { return name == "Volumes"; }
};

class DispatchCosts : public testing::Test
{
protected:
    DispatchCosts() { LoggerMgr::Instance(); }  // made once, and kept

    Pipe stream_;
    Taken const bare_ = TakenByABareParser(DOCUMENT);
};

TEST_F(DispatchCosts, AMessageThatArrivesWholeTakesNothingBeyondItsParser)
{
    Messages messages;
    std::string const chunk = DOCUMENT + '\0' + DOCUMENT + '\0';
    AllocationCounter const counter;
    messages.ProcessMessages(stream_, Bytes(chunk), Length(chunk));
    EXPECT_EQ(2 * bare_.blocks, counter.Blocks());
    EXPECT_EQ(2 * bare_.bytes, counter.Bytes());
    EXPECT_EQ(0, counter.HeldBytes());
}

TEST_F(DispatchCosts, ARefusedNameTakesNothingMore)
{
    AllocationCounter const counter;
    MessageProcessor().ParseMessage(stream_, Bytes(DOCUMENT), Length(DOCUMENT));
    EXPECT_EQ(bare_.blocks, counter.Blocks());
}

TEST_F(DispatchCosts, AnEmptyMessageTakesNothing)
{
    std::string const chunk(3, '\0');
    AllocationCounter const counter;
    MessageProcessor().ProcessMessages(stream_, Bytes(chunk), Length(chunk));
    EXPECT_EQ(0U, counter.Blocks());
}

class Datagrams : public BroadcastMessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override { return name == "Volumes"; }
};

TEST_F(DispatchCosts, ADatagramTakesItsBufferAndItsParser)
{
    ServerBroadcastSocket socket(test::Loopback(), true);
    test::BroadcastPeer const peer;
    Datagrams datagrams;
    peer.Send(DOCUMENT, socket.GetHostAddress());

    AllocationCounter const counter;
    EXPECT_TRUE(datagrams.ReadMessage(socket));
    EXPECT_EQ(bare_.blocks + 1, counter.Blocks());
    EXPECT_EQ(bare_.bytes + DOCUMENT.size(), counter.Bytes());
    EXPECT_EQ(0, counter.HeldBytes());
}

}}}  // namespace tovu::util
