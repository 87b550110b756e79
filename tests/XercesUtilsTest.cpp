#include "tovu/util/XercesUtils.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include "ChildProcess.h"
#include "FailingAllocation.h"
#include "Interposition.h"
#include "ParameterName.h"
#include "ParserMemory.h"
#include "Throws.h"

namespace {

// What goes through one of the parser's two transcoders.
struct Transcoder
{
    std::atomic<unsigned> calls{0};
    std::atomic<bool> fails{false};  // makes it answer null, as it does for what it cannot convert
};

Transcoder toLocal;
Transcoder toWide;

// The parser's own function, which the one of the same name in this program hides.
template <typename Function>
Function* ParsersOwn(Function* hiding)
{
    Dl_info info = {};
    EXPECT_NE(0, dladdr(reinterpret_cast<void*>(hiding), &info));
    return tovu::test::NextFunction<Function>(info.dli_sname);
}

}  // namespace

XERCES_CPP_NAMESPACE_BEGIN

// The transcoders that the library and the parser itself call: a program's functions come before those of its
// libraries.
char* XMLString::transcode(XMLCh const* const text, MemoryManager* const manager)
{
    static auto const own = ParsersOwn<char*(XMLCh const*, MemoryManager*)>(&XMLString::transcode);
    ++toLocal.calls;
    return toLocal.fails ? nullptr : own(text, manager);
}

XMLCh* XMLString::transcode(char const* const text, MemoryManager* const manager)
{
    static auto const own = ParsersOwn<XMLCh*(char const*, MemoryManager*)>(&XMLString::transcode);
    ++toWide.calls;
    return toWide.fails ? nullptr : own(text, manager);
}

XERCES_CPP_NAMESPACE_END

namespace tovu { namespace util { namespace {

using test::ParserMemory;
using test::Thrown;

static_assert(std::is_same<decltype(&XMLCh2string), std::string (*)(XMLCh const*)>::value, "");
static_assert(std::is_same<decltype(&char2string), std::string (*)(char const*)>::value, "");
static_assert(std::is_same<decltype(&XMLFileLoc2string), std::string (*)(unsigned long long, char const*)>::value, "");
static_assert(std::is_same<decltype(&GetAttributeValue),
                           std::string (*)(std::string const&, xercesc::DOMNamedNodeMap const*)>::value,
              "");
static_assert(std::is_same<decltype(&EncodeXMLCharEntities), std::string (*)(std::string const&)>::value, "");

static_assert(std::is_base_of<xercesc::ErrorHandler, XercesErrorHandler>::value, "parsers take it");
static_assert(sizeof(XercesErrorHandler) == sizeof(xercesc::ErrorHandler), "it holds no data");
static_assert(std::has_virtual_destructor<XercesErrorHandler>::value, "");
static_assert(std::is_default_constructible<XercesErrorHandler>::value, "");

typedef std::vector<XMLCh> WideText;

// Text for the parser, ended by a zero.
WideText Wide(std::string const& ascii)
{
    WideText text(ascii.begin(), ascii.end());
    text.push_back(0);
    return text;
}

// What the parser's own transcoder makes of a text.
std::string Transcoded(XMLCh const* text)
{
    char* local = xercesc::XMLString::transcode(text);
    std::string const result(local);
    xercesc::XMLString::release(&local);
    return result;
}

// What becomes of a text on its way through the parser's transcoder and back.
std::string RoundTrip(char const* text)
{
    XMLCh* wide = xercesc::XMLString::transcode(text);
    std::string const result = Transcoded(wide);
    xercesc::XMLString::release(&wide);
    return result;
}

// Makes a transcoder fail for the length of a scope.
class Failing
{
public:
    explicit Failing(Transcoder& transcoder) : transcoder_(transcoder) { transcoder_.fails = true; }
    Failing(Failing const&) = delete;
    Failing& operator=(Failing const&) = delete;
    ~Failing() { transcoder_.fails = false; }

private:
    Transcoder& transcoder_;
};

// A euro sign, a character outside the first 65536, and two halves of such characters that stand alone.
WideText const WIDE_SAMPLES[] = {{0x20ac, 0}, {'a', 0xd83d, 0xde00, 'b', 0}, {'a', 0xd800, 0}, {0xdc00, 'a', 0}};

// The same euro sign in UTF-8 and in Latin-9, and a character that breaks off.
char const* const LOCAL_SAMPLES[] = {"\xe2\x82\xac", "a\xa4z", "a\xe2\x82"};

TEST(XMLCh2stringTest, NullGivesAnEmptyText)
{
    unsigned const before = toLocal.calls;
    EXPECT_EQ("", XMLCh2string(nullptr));
    EXPECT_EQ(before, toLocal.calls);
}

TEST(XMLCh2stringTest, AnEmptyTextStaysEmpty)
{
    EXPECT_EQ("", XMLCh2string(Wide("").data()));
}

TEST(XMLCh2stringTest, AsciiIsTheSameInEveryCodePage)
{
    EXPECT_EQ("GetInfo <1>\n\t~", XMLCh2string(Wide("GetInfo <1>\n\t~").data()));
}

TEST(XMLCh2stringTest, TakesTheTextUpToItsTerminator)
{
    EXPECT_EQ("ab", XMLCh2string(Wide(std::string("ab\0cd", 5)).data()));
}

TEST(XMLCh2stringTest, TakesALongTextWhole)
{
    std::string const text(100000, 'x');
    EXPECT_EQ(text, XMLCh2string(Wide(text).data()));
}

TEST(XMLCh2stringTest, OtherCharactersGoThroughTheParsersTranscoder)
{
    for (WideText const& text : WIDE_SAMPLES)
        EXPECT_EQ(Transcoded(text.data()), XMLCh2string(text.data()));
}

TEST(XMLCh2stringTest, WritesUtf8WhereThatIsTheLocalCodePage)
{
    if (Transcoded(WIDE_SAMPLES[0].data()) != LOCAL_SAMPLES[0])
        GTEST_SKIP() << "this parser was built for another code page than UTF-8";
    EXPECT_EQ("a\xf0\x9f\x98\x80z", XMLCh2string(WideText{'a', 0xd83d, 0xde00, 'z', 0}.data()));
}

TEST(XMLCh2stringTest, WhatCannotBeTranscodedGivesAnEmptyText)
{
    Failing failing(toLocal);
    EXPECT_EQ("", XMLCh2string(Wide("abc").data()));
}

TEST(XMLCh2stringTest, GivesTheParsersMemoryBack)
{
    ParserMemory memory;
    EXPECT_EQ("abc", XMLCh2string(Wide("abc").data()));
    EXPECT_EQ(1u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

// The parser has memory of its own here: the first that is asked of the program is that of the result.
class MemoryOfItsOwn : public xercesc::MemoryManager
{
public:
    void* allocate(XMLSize_t size) override { return std::malloc(size); }
    void deallocate(void* block) override { std::free(block); }
    xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }
};

TEST(XMLCh2stringTest, GivesTheParsersMemoryBackWhenThereIsNoneForTheResult)
{
    WideText const text = Wide("longer than what a string holds without memory");
    MemoryOfItsOwn own;
    ParserMemory memory(&own);
    test::FailingAllocation const failure;
    EXPECT_THROW(XMLCh2string(text.data()), std::bad_alloc);
    EXPECT_EQ(1u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

TEST(Char2stringTest, NullGivesAnEmptyText)
{
    unsigned const before = toWide.calls;
    EXPECT_EQ("", char2string(nullptr));
    EXPECT_EQ(before, toWide.calls);
}

TEST(Char2stringTest, AsciiComesBackAsItWas)
{
    EXPECT_EQ("", char2string(""));
    EXPECT_EQ("disk full <1>\n\t~", char2string("disk full <1>\n\t~"));
}

TEST(Char2stringTest, OtherBytesComeBackAsTheParserUnderstandsThem)
{
    for (char const* text : LOCAL_SAMPLES)
        EXPECT_EQ(RoundTrip(text), char2string(text));
}

TEST(Char2stringTest, BytesThatAreNoTextAreReplacedWhereTheCodePageIsUtf8)
{
    if (Transcoded(WIDE_SAMPLES[0].data()) != LOCAL_SAMPLES[0])
        GTEST_SKIP() << "this parser was built for another code page than UTF-8";
    EXPECT_EQ("\xe2\x82\xac", char2string("\xe2\x82\xac"));
    EXPECT_EQ("a\xef\xbf\xbdz", char2string("a\xa4z"));
}

TEST(Char2stringTest, WhatCannotBeTranscodedThereGivesAnEmptyText)
{
    Failing failing(toWide);
    unsigned const before = toLocal.calls;
    EXPECT_EQ("", char2string("abc"));
    EXPECT_EQ(before, toLocal.calls);
}

TEST(Char2stringTest, WhatCannotBeTranscodedBackGivesAnEmptyText)
{
    Failing failing(toLocal);
    EXPECT_EQ("", char2string("abc"));
}

TEST(Char2stringTest, GivesTheParsersMemoryBack)
{
    ParserMemory memory;
    EXPECT_EQ("abc", char2string("abc"));
    EXPECT_EQ(2u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

TEST(Char2stringTest, GivesTheWideCopyBackWhenTheWayBackFails)
{
    ParserMemory memory;
    Failing failing(toLocal);
    EXPECT_EQ("", char2string("abc"));
    EXPECT_EQ(1u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

// The parser learns the code page when its platform is initialised, so each locale gets a process.
class CodePageTest : public testing::TestWithParam<char const*>
{};

TEST_P(CodePageTest, BothConversionsAgreeWithTheParser)
{
    test::ExpectPassesInChild([] {
        ASSERT_NE(nullptr, std::setlocale(LC_ALL, GetParam()));
        xercesc::XMLPlatformUtils::Terminate();
        xercesc::XMLPlatformUtils::Initialize();
        EXPECT_EQ("plain", XMLCh2string(Wide("plain").data()));
        EXPECT_EQ("plain", char2string("plain"));
        for (WideText const& text : WIDE_SAMPLES)
            EXPECT_EQ(Transcoded(text.data()), XMLCh2string(text.data()));
        for (char const* text : LOCAL_SAMPLES)
            EXPECT_EQ(RoundTrip(text), char2string(text));
    });
}

INSTANTIATE_TEST_SUITE_P(Locales, CodePageTest, testing::Values("C", "C.UTF-8"),
                         [](testing::TestParamInfo<char const*> const& row) {
                             return std::string(row.index == 0 ? "C" : "Utf8");
                         });

TEST(XMLFileLoc2stringTest, WithoutAFormatThereIsNoText)
{
    EXPECT_EQ("", XMLFileLoc2string(42, nullptr));
}

TEST(XMLFileLoc2stringTest, PrintsADecimalNumber)
{
    EXPECT_EQ("42", XMLFileLoc2string(42, "%u"));
    EXPECT_EQ("0", XMLFileLoc2string(0, "%u"));
    EXPECT_EQ("4294967295", XMLFileLoc2string(0xFFFFFFFF, "%u"));
}

// A number of which every byte counts, and what a conversion of each width makes of it on this platform.
constexpr unsigned long long WIDE_VALUE = 0xF23456789ABCDEF1ULL;

template <typename Integer>
std::string Decimal()
{
    return std::to_string(static_cast<Integer>(WIDE_VALUE));
}

struct Printed
{
    char const* format;
    std::string text;
};

TEST(XMLFileLoc2stringTest, EachLengthModifierPrintsItsOwnWidth)
{
    Printed const rows[] = {
        {"%hhu", Decimal<unsigned char>()},
        {"%hu", Decimal<unsigned short>()},
        {"%u", Decimal<unsigned>()},
        {"%lu", Decimal<unsigned long>()},
        {"%llu", Decimal<unsigned long long>()},
        {"%qu", Decimal<unsigned long long>()},
        {"%Lu", Decimal<unsigned long long>()},
        {"%ju", Decimal<std::uintmax_t>()},
        {"%zu", Decimal<std::size_t>()},
        {"%tu", Decimal<std::make_unsigned<std::ptrdiff_t>::type>()},
        {"%hhd", Decimal<signed char>()},
        {"%hd", Decimal<short>()},
        {"%d", Decimal<int>()},
        {"%i", Decimal<int>()},
        {"%ld", Decimal<long>()},
        {"%lld", Decimal<long long>()},
        {"%jd", Decimal<std::intmax_t>()},
        {"%zd", Decimal<std::make_signed<std::size_t>::type>()},
        {"%td", Decimal<std::ptrdiff_t>()},
        {"%x", "9abcdef1"},
        {"%X", "9ABCDEF1"},
        {"%#x", "0x9abcdef1"},
        {"%o", "23257157361"},
        {"%llx", "f23456789abcdef1"},
        {"%jX", "F23456789ABCDEF1"},
        {"%c", "\xf1"},
    };
    for (Printed const& row : rows)
        EXPECT_EQ(row.text, XMLFileLoc2string(WIDE_VALUE, row.format)) << row.format;
}

TEST(XMLFileLoc2stringTest, TheLengthModifierIsFoundBehindFlagsWidthPrecisionAndPercentSigns)
{
    std::string const number = Decimal<unsigned long long>();
    Printed const rows[] = {
        {"%-24llu|", number + "    |"},  {"%023llu", "000" + number},
        {"%.22llu", "00" + number},      {"%24.21llu", "   0" + number},
        {"%#llx", "0xf23456789abcdef1"}, {"%+lld", Decimal<long long>()},
        {"% jd", Decimal<long long>()},  {"%'llu", number},
        {"%%%llu", "%" + number},        {"%%u %llu", "%u " + number},
        {"%%%%l%llu", "%%l" + number},   {"100%%: %ju%%", "100%: " + number + "%"},
    };
    for (Printed const& row : rows)
        EXPECT_EQ(row.text, XMLFileLoc2string(WIDE_VALUE, row.format)) << row.format;
}

TEST(XMLFileLoc2stringTest, FlagsWidthAndPrecisionShapeTheNumber)
{
    Printed const rows[] = {
        {"%5u", "   42"}, {"%-5u|", "42   |"}, {"%05u", "00042"},    {"%.4u", "0042"},
        {"%+d", "+42"},   {"% d", " 42"},      {"%6.3lu", "   042"}, {"%'u", "42"},
    };
    for (Printed const& row : rows)
        EXPECT_EQ(row.text, XMLFileLoc2string(42, row.format)) << row.format;
}

TEST(XMLFileLoc2stringTest, KeepsTheTextAroundTheNumber)
{
    Printed const rows[] = {
        {"", ""},        {"none", "none"},        {"%%", "%"},           {"%%%u", "%42"},
        {"%u%%", "42%"}, {"%%%%%llu%%", "%%42%"}, {"%%lu %u", "%lu 42"}, {"line %u, or so", "line 42, or so"},
    };
    for (Printed const& row : rows)
        EXPECT_EQ(row.text, XMLFileLoc2string(42, row.format)) << row.format;
}

TEST(XMLFileLoc2stringTest, TheLargestNumberFits)
{
    EXPECT_EQ("18446744073709551615", XMLFileLoc2string(std::numeric_limits<unsigned long long>::max(), "%llu"));
    EXPECT_EQ("-9223372036854775808", XMLFileLoc2string(0x8000000000000000ULL, "%lld"));
}

TEST(XMLFileLoc2stringTest, TheTextIsCutToTheFormatsLengthPlus19)
{
    EXPECT_EQ(std::string(21, ' ') + "42", XMLFileLoc2string(42, "%23u"));
    EXPECT_EQ(std::string(22, ' ') + "4", XMLFileLoc2string(42, "%24u"));
    EXPECT_EQ(std::string(24, ' '), XMLFileLoc2string(42, "%500u"));
}

TEST(XMLFileLoc2stringTest, TheTextEndsAtItsFirstZero)
{
    EXPECT_EQ("AxB", XMLFileLoc2string('x', "A%cB"));
    EXPECT_EQ("A", XMLFileLoc2string(0, "A%cB"));
}

TEST(EncodeXMLCharEntitiesTest, EveryOtherByteIsCopied)
{
    for (int value = 0; value < 256; ++value) {
        std::string const byte(1, static_cast<char>(value));
        std::string const expected = value == 0x22   ? "&quot;"
                                     : value == 0x26 ? "&amp;"
                                     : value == 0x27 ? "&apos;"
                                     : value == 0x3C ? "&lt;"
                                     : value == 0x3E ? "&gt;"
                                                     : byte;
        EXPECT_EQ(expected, EncodeXMLCharEntities(byte)) << "byte " << value;
    }
}

TEST(EncodeXMLCharEntitiesTest, NothingStaysNothing)
{
    EXPECT_EQ("", EncodeXMLCharEntities(""));
}

TEST(EncodeXMLCharEntitiesTest, EncodesWhereverTheCharactersStand)
{
    EXPECT_EQ("&lt;a&amp;&gt;", EncodeXMLCharEntities("<a&>"));
    EXPECT_EQ("&quot;it&apos;s&quot;", EncodeXMLCharEntities("\"it's\""));
}

TEST(EncodeXMLCharEntitiesTest, EntitiesAreEncodedAgain)
{
    EXPECT_EQ("&amp;lt;&amp;amp;&amp;#65;", EncodeXMLCharEntities("&lt;&amp;&#65;"));
}

TEST(EncodeXMLCharEntitiesTest, ZeroBytesDoNotEndTheText)
{
    EXPECT_EQ(std::string("a\0&lt;\0", 7), EncodeXMLCharEntities(std::string("a\0<\0", 4)));
}

TEST(EncodeXMLCharEntitiesTest, CharactersOfSeveralBytesPassThrough)
{
    EXPECT_EQ("5 \xe2\x82\xac &amp; \xf0\x9f\x98\x80", EncodeXMLCharEntities("5 \xe2\x82\xac & \xf0\x9f\x98\x80"));
}

// What a text becomes when its bytes are encoded one by one.
std::string EncodedByBytes(std::string const& text)
{
    std::string encoded;
    for (char const byte : text)
        encoded += EncodeXMLCharEntities(std::string(1, byte));
    return encoded;
}

TEST(EncodeXMLCharEntitiesTest, ABytesNeighboursMakeNoDifference)
{
    std::vector<std::string> encoded;
    for (int value = 0; value < 256; ++value)
        encoded.push_back(EncodeXMLCharEntities(std::string(1, static_cast<char>(value))));

    std::string text(30, 'x');
    std::string const rest(17, 'x');
    for (unsigned first = 0; first < 256; ++first)
        for (unsigned second = 0; second < 256; ++second) {
            text[11] = static_cast<char>(first);
            text[12] = static_cast<char>(second);
            ASSERT_EQ("xxxxxxxxxxx" + encoded[first] + encoded[second] + rest, EncodeXMLCharEntities(text))
                << first << ' ' << second;
        }
}

TEST(EncodeXMLCharEntitiesTest, TextsOfEachLengthAreEncodedToTheirEnd)
{
    std::string const pattern = "\"'&<>ab\xC3\xA4#&&cdefghijklm";
    for (std::size_t start = 0; start < pattern.size(); ++start) {
        std::string text;
        for (std::size_t i = 0; i < 70; ++i) {
            ASSERT_EQ(EncodedByBytes(text), EncodeXMLCharEntities(text)) << start << ' ' << i;
            text += pattern[(start + i) % pattern.size()];
        }
    }
}

// Parses a document that is held in memory, as messages are.
class ParsingTest : public testing::Test
{
protected:
    void Parse(std::string const& document, xercesc::ErrorHandler& handler, char const* systemId = "")
    {
        xercesc::MemBufInputSource const source(reinterpret_cast<XMLByte const*>(document.data()), document.size(),
                                                systemId);
        parser_.setErrorHandler(&handler);
        parser_.parse(source);
    }

    std::string RootName() { return XMLCh2string(parser_.getDocument()->getDocumentElement()->getNodeName()); }

    xercesc::XercesDOMParser parser_;
};

// The attributes of one element.
class GetAttributeValueTest : public ParsingTest
{
protected:
    GetAttributeValueTest() { Parse("<a first='1' empty='' both='&lt;&amp;'/>", handler_); }

    xercesc::DOMNamedNodeMap* Attributes() { return parser_.getDocument()->getDocumentElement()->getAttributes(); }

    XercesErrorHandler handler_;
};

TEST_F(GetAttributeValueTest, GivesTheValue)
{
    EXPECT_EQ("1", GetAttributeValue("first", Attributes()));
    EXPECT_EQ("<&", GetAttributeValue("both", Attributes()));
}

TEST_F(GetAttributeValueTest, AMissingAttributeLooksLikeAnEmptyOne)
{
    EXPECT_EQ("", GetAttributeValue("missing", Attributes()));
    EXPECT_EQ("", GetAttributeValue("empty", Attributes()));
}

TEST_F(GetAttributeValueTest, NamesAreExact)
{
    EXPECT_EQ("", GetAttributeValue("First", Attributes()));
    EXPECT_EQ("", GetAttributeValue("firs", Attributes()));
}

TEST_F(GetAttributeValueTest, AnEmptyNameFindsNothing)
{
    EXPECT_EQ("", GetAttributeValue("", Attributes()));
}

TEST_F(GetAttributeValueTest, GivesTheParsersMemoryBack)
{
    xercesc::DOMNamedNodeMap const* const attributes = Attributes();
    ParserMemory memory;
    EXPECT_EQ("1", GetAttributeValue("first", attributes));
    EXPECT_EQ(2u, memory.Taken());
    EXPECT_EQ(0u, memory.Held());
}

TEST_F(GetAttributeValueTest, EncodedTextComesBackThroughTheParser)
{
    std::string const text = "<\"it's\" & that>";
    Parse("<a text='" + EncodeXMLCharEntities(text) + "'/>", handler_);
    EXPECT_EQ(text, GetAttributeValue("text", Attributes()));
}

// A map that answers as the test says.
class ScriptedMap : public xercesc::DOMNamedNodeMap
{
public:
    typedef std::function<xercesc::DOMNode*(XMLCh const*)> Answer;

    explicit ScriptedMap(Answer answer) : answer_(std::move(answer)) {}

    xercesc::DOMNode* getNamedItem(XMLCh const* name) const override { return answer_(name); }

    xercesc::DOMNode* setNamedItem(xercesc::DOMNode* /*node*/) override { return nullptr; }
    xercesc::DOMNode* item(XMLSize_t /*index*/) const override { return nullptr; }
    XMLSize_t getLength() const override { return 0; }
    xercesc::DOMNode* removeNamedItem(XMLCh const* /*name*/) override { return nullptr; }
    xercesc::DOMNode* getNamedItemNS(XMLCh const* /*uri*/, XMLCh const* /*name*/) const override { return nullptr; }
    xercesc::DOMNode* setNamedItemNS(xercesc::DOMNode* /*node*/) override { return nullptr; }
    xercesc::DOMNode* removeNamedItemNS(XMLCh const* /*uri*/, XMLCh const* /*name*/) override { return nullptr; }

private:
    Answer answer_;
};

TEST_F(GetAttributeValueTest, LooksTheTranscodedNameUp)
{
    std::string asked;
    ScriptedMap const map([&](XMLCh const* name) {
        asked = XMLCh2string(name);
        return Attributes()->item(0);
    });
    EXPECT_EQ(XMLCh2string(Attributes()->item(0)->getNodeValue()), GetAttributeValue("volume", &map));
    EXPECT_EQ("volume", asked);
}

TEST_F(GetAttributeValueTest, AnEmptyNameIsLookedUpAsNullWithoutTheTranscoder)
{
    unsigned lookUps = 0;
    ScriptedMap const map([&](XMLCh const* name) -> xercesc::DOMNode* {
        ++lookUps;
        EXPECT_EQ(nullptr, name);
        return nullptr;
    });
    unsigned const before = toWide.calls;
    EXPECT_EQ("", GetAttributeValue("", &map));
    EXPECT_EQ(1u, lookUps);
    EXPECT_EQ(before, toWide.calls);
}

TEST_F(GetAttributeValueTest, TheValueIsThatOfTheNodeItself)
{
    Parse("<a>its text</a>", handler_);
    ScriptedMap const map([this](XMLCh const*) { return parser_.getDocument()->getDocumentElement(); });
    EXPECT_EQ("", GetAttributeValue("first", &map));  // an element has none
}

TEST_F(GetAttributeValueTest, AValueThatCannotBeTranscodedIsEmpty)
{
    Failing failing(toLocal);
    EXPECT_EQ("", GetAttributeValue("first", Attributes()));
}

TEST_F(GetAttributeValueTest, PassesOnWhatTheLookUpThrows)
{
    ScriptedMap const map([](XMLCh const*) -> xercesc::DOMNode* {
        throw xercesc::DOMException(xercesc::DOMException::INVALID_STATE_ERR);
    });
    EXPECT_THROW(GetAttributeValue("first", &map), xercesc::DOMException);
}

TEST_F(GetAttributeValueTest, GivesTheNameBackWhenTheLookUpThrows)
{
    ParserMemory memory;
    std::size_t during = 0;
    ScriptedMap const map([&](XMLCh const*) -> xercesc::DOMNode* {
        during = memory.Held();
        throw 7;
    });
    EXPECT_THROW(GetAttributeValue("first", &map), int);
    EXPECT_EQ(1u, during);
    EXPECT_EQ(0u, memory.Held());
}

// The two operations that throw, and the places they throw from.
struct Reporter
{
    char const* name;
    void (XercesErrorHandler::*report)(xercesc::SAXParseException const&);
    unsigned line;
};

void PrintTo(Reporter const& reporter, std::ostream* stream)
{
    *stream << reporter.name;
}

class XercesErrorHandlerTest : public testing::TestWithParam<Reporter>
{
protected:
    Exception Report(std::string const& message, XMLCh const* systemId, XMLFileLoc line, XMLFileLoc column)
    {
        xercesc::SAXParseException const cause(Wide(message).data(), Wide("public").data(), systemId, line, column);
        return Thrown([&] { (handler_.*GetParam().report)(cause); });
    }

    XercesErrorHandler handler_;
};

TEST_P(XercesErrorHandlerTest, ThrowsAtItsOwnLine)
{
    Exception const exception = Report("no good", Wide("").data(), 1, 1);
    ASSERT_EQ(1u, exception.locations.size());
    EXPECT_STREQ("src/util/XercesUtils.cpp", exception.locations[0].file);
    EXPECT_EQ(GetParam().line, exception.locations[0].line);
}

TEST_P(XercesErrorHandlerTest, TheTextHasFourLines)
{
    EXPECT_STREQ("Error in: unit.xml\nLine: 12\nChar: 34\nMessage: no good\n",
                 Report("no good", Wide("unit.xml").data(), 12, 34).what());
}

TEST_P(XercesErrorHandlerTest, WithoutASystemIdentifierTheFirstLineStandsAlone)
{
    EXPECT_STREQ("Error in: \nLine: 1\nChar: 2\nMessage: m\n", Report("m", Wide("").data(), 1, 2).what());
    EXPECT_STREQ("Error in: \nLine: 1\nChar: 2\nMessage: m\n", Report("m", nullptr, 1, 2).what());
}

TEST_P(XercesErrorHandlerTest, LineAndColumnAreTheirLow32Bits)
{
    EXPECT_STREQ("Error in: \nLine: 4294967295\nChar: 7\nMessage: m\n",
                 Report("m", nullptr, 0xFFFFFFFFULL, 0x100000007ULL).what());
    EXPECT_STREQ("Error in: \nLine: 7\nChar: 4294967295\nMessage: m\n",
                 Report("m", nullptr, 0x100000007ULL, 0xFFFFFFFFULL).what());
}

TEST_P(XercesErrorHandlerTest, ThePartsAreTakenVerbatim)
{
    EXPECT_STREQ("Error in: %n%s\nLine: 1\nChar: 2\nMessage: 100%% %s %d\n",
                 Report("100%% %s %d", Wide("%n%s").data(), 1, 2).what());
}

TEST_P(XercesErrorHandlerTest, ALongMessageIsKeptWhole)
{
    std::string const message(5000, 'm');
    EXPECT_EQ("Error in: \nLine: 1\nChar: 2\nMessage: " + message + "\n", Report(message, nullptr, 1, 2).what());
}

TEST_P(XercesErrorHandlerTest, KeepsNoRecordOfErrors)
{
    Report("the first", nullptr, 1, 2);
    handler_.resetErrors();
    EXPECT_STREQ("Error in: \nLine: 3\nChar: 4\nMessage: the second\n", Report("the second", nullptr, 3, 4).what());
}

INSTANTIATE_TEST_SUITE_P(Operations, XercesErrorHandlerTest,
                         testing::Values(Reporter{"Error", &XercesErrorHandler::error, 88},
                                         Reporter{"FatalError", &XercesErrorHandler::fatalError, 97}),
                         test::ParameterName());

// Counts what the parser reports, and passes it on to the real operations.
class CountingHandler : public XercesErrorHandler
{
public:
    void warning(xercesc::SAXParseException const& exception) override
    {
        ++warnings;
        XercesErrorHandler::warning(exception);
    }

    void error(xercesc::SAXParseException const& exception) override
    {
        ++errors;
        XercesErrorHandler::error(exception);
    }

    void fatalError(xercesc::SAXParseException const& exception) override
    {
        ++fatalErrors;
        XercesErrorHandler::fatalError(exception);
    }

    unsigned warnings = 0;
    unsigned errors = 0;
    unsigned fatalErrors = 0;
};

class HandlerInAParserTest : public ParsingTest
{
protected:
    CountingHandler handler_;
};

TEST_F(HandlerInAParserTest, LetsAGoodDocumentThrough)
{
    Parse("<a><b/></a>", handler_);
    EXPECT_EQ("a", RootName());
}

TEST_F(HandlerInAParserTest, ADocumentThatIsNotWellFormedThrowsFourLines)
{
    Exception const exception = Thrown([&] { Parse("<a>\n<b></a>", handler_); });
    std::string const text = exception.what();
    EXPECT_EQ(97u, exception.locations.at(0).line);
    EXPECT_EQ(0u, text.find("Error in: \nLine: 2\nChar: ")) << text;
    EXPECT_NE(std::string::npos, text.find("\nMessage: ")) << text;
    EXPECT_EQ(4, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_EQ('\n', text.back());
}

TEST_F(HandlerInAParserTest, TheSystemIdentifierNamesTheDocument)
{
    std::string const text = Thrown([&] { Parse("<a>", handler_, "unit.xml"); }).what();
    EXPECT_EQ(0u, text.find("Error in: unit.xml\nLine: 1\n")) << text;
}

TEST_F(HandlerInAParserTest, ARecoverableErrorEndsTheParseAsWell)
{
    parser_.setValidationScheme(xercesc::XercesDOMParser::Val_Always);
    Exception const exception = Thrown([&] { Parse("<!DOCTYPE a [<!ELEMENT a EMPTY>]><a><b/><c/></a>", handler_); });
    EXPECT_EQ(88u, exception.locations.at(0).line);
    EXPECT_EQ(1u, handler_.errors);
    EXPECT_EQ(0u, handler_.fatalErrors);
}

TEST_F(HandlerInAParserTest, OnlyTheFirstErrorIsReported)
{
    std::string const text = Thrown([&] { Parse("<a>\n&one;\n&two;\n</b>", handler_); }).what();
    EXPECT_EQ(1u, handler_.fatalErrors);
    EXPECT_EQ(0u, text.find("Error in: \nLine: 2\n")) << text;
}

TEST_F(HandlerInAParserTest, WarningsAreIgnored)
{
    Parse("<!DOCTYPE a [<!ATTLIST a x CDATA #IMPLIED> <!ATTLIST a x CDATA #IMPLIED>]><a/>", handler_);
    EXPECT_EQ(1u, handler_.warnings);
    EXPECT_EQ("a", RootName());
}

TEST_F(HandlerInAParserTest, ServesTheNextDocumentAfterAnError)
{
    Thrown([&] { Parse("<broken", handler_); });
    Parse("<good/>", handler_);
    EXPECT_EQ("good", RootName());
}

TEST(XercesErrorHandlerThreadsTest, ParsersOnManyThreadsShareOneHandler)
{
    XercesErrorHandler handler;
    auto const work = [&handler] {
        for (int i = 0; i < 50; ++i) {
            std::string const document = "<a>";
            xercesc::XercesDOMParser parser;
            parser.setErrorHandler(&handler);
            xercesc::MemBufInputSource const source(reinterpret_cast<XMLByte const*>(document.data()), document.size(),
                                                    "unit");
            std::string const text = Thrown([&] { parser.parse(source); }).what();
            EXPECT_EQ(0u, text.find("Error in: unit\nLine: 1\nChar: 4\n")) << text;
            EXPECT_EQ("plain", char2string("plain"));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
}

}}}  // namespace tovu::util
