#include "tovu/util/XercesUtils.h"

#include <gtest/gtest.h>

#include <string>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/util/XMLString.hpp>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

// Longer than what a string holds in itself, on every platform.
std::string const LONG_TEXT(100, 'n');

// A text of the parser's.
class WideText
{
public:
    explicit WideText(std::string const& text) : text_(xercesc::XMLString::transcode(text.c_str())) {}
    WideText(WideText const&) = delete;
    WideText& operator=(WideText const&) = delete;
    ~WideText() { xercesc::XMLString::release(&text_); }

    XMLCh const* Get() const { return text_; }

private:
    XMLCh* text_;
};

// What the parser takes to transcode a text, which it is given back.
std::size_t TranscodingBlocks(XMLCh const* text)
{
    AllocationCounter const counter;
    char* local = xercesc::XMLString::transcode(text);
    xercesc::XMLString::release(&local);
    return counter.Blocks();
}

std::size_t WideningBlocks(std::string const& text)
{
    AllocationCounter const counter;
    WideText const wide(text);
    return counter.Blocks();
}

TEST(XercesUtilsCosts, AnEscapedTextIsMadeOnceInItsSize)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "<a b='c'>&\"</a>";
    std::size_t const length = text.size() + 1000 * (3 + 5 + 5 + 3 + 4 + 5 + 3 + 3);

    AllocationCounter const counter;
    std::string const escaped = EncodeXMLCharEntities(text);
    EXPECT_EQ(length, escaped.size());
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(length + 1, counter.Bytes());
}

TEST(XercesUtilsCosts, ATextWithoutEntitiesIsCopied)
{
    AllocationCounter const counter;
    std::string const escaped = EncodeXMLCharEntities(LONG_TEXT);
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(LONG_TEXT.size() + 1, counter.Bytes());
}

TEST(XercesUtilsCosts, AShortEscapedTextTakesNothing)
{
    std::string const text = "a<b>";  // "a&lt;b&gt;"
    AllocationCounter const counter;
    EncodeXMLCharEntities(text);
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(XercesUtilsCosts, AShortNameTakesWhatTheParserTakes)
{
    WideText const name("Volume");
    std::size_t const transcoding = TranscodingBlocks(name.Get());

    AllocationCounter const counter;
    XMLCh2string(name.Get());
    EXPECT_EQ(transcoding, counter.Blocks());
}

TEST(XercesUtilsCosts, ALongTextTakesWhatTheParserTakesAndItself)
{
    WideText const text(LONG_TEXT);
    std::size_t const transcoding = TranscodingBlocks(text.Get());

    AllocationCounter const counter;
    std::string const local = XMLCh2string(text.Get());
    EXPECT_EQ(transcoding + 1, counter.Blocks());
    EXPECT_EQ(static_cast<std::ptrdiff_t>(local.size() + 1), counter.HeldBytes());
}

TEST(XercesUtilsCosts, AnAttributeIsTranscodedOnceAndSoIsItsName)
{
    WideText const element("Entry");
    WideText const name("name");
    WideText const value("photos");
    xercesc::DOMDocument* const document = xercesc::DOMImplementation::getImplementation()->createDocument();
    xercesc::DOMElement* const entry = document->createElement(element.Get());
    entry->setAttribute(name.Get(), value.Get());
    document->appendChild(entry);
    std::string const wanted = "name";

    std::size_t const valueBlocks = TranscodingBlocks(value.Get());
    std::size_t const nameBlocks = WideningBlocks(wanted);
    AllocationCounter const counter;
    GetAttributeValue(wanted, entry->getAttributes());
    EXPECT_EQ(nameBlocks + valueBlocks, counter.Blocks());
    document->release();
}

TEST(XercesUtilsCosts, NothingTakesNothing)
{
    AllocationCounter const counter;
    XMLCh2string(nullptr);
    char2string(nullptr);
    XMLFileLoc2string(42, nullptr);
    EncodeXMLCharEntities("");
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(XercesUtilsCosts, ALineNumberTakesItsBuffer)
{
    AllocationCounter const counter;
    EXPECT_EQ("42", XMLFileLoc2string(42, "%u"));
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(2U + 20U, counter.Bytes());
}

}}}  // namespace tovu::util
