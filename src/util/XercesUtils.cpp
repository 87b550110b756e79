#include "tovu/util/XercesUtils.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"

namespace tovu { namespace util {

namespace {

// What the parser transcodes is given back to the parser.
struct Releaser
{
    void operator()(char* text) const { xercesc::XMLString::release(&text); }
    void operator()(XMLCh* text) const { xercesc::XMLString::release(&text); }
};
using LocalText = std::unique_ptr<char, Releaser>;
using WideText = std::unique_ptr<XMLCh, Releaser>;

}  // namespace

std::string XMLCh2string(XMLCh const* text)
{
    if (text == nullptr)
        return std::string();

    LocalText const local(xercesc::XMLString::transcode(text));
    return local ? std::string(local.get()) : std::string();
}

std::string char2string(char const* text)
{
    if (text == nullptr)
        return std::string();

    WideText const wide(xercesc::XMLString::transcode(text));
    return XMLCh2string(wide.get());
}

// An empty name is looked up as null, which no attribute has. A missing attribute gives the same empty text as one that
// is empty. A look-up that throws still releases the transcoded name.
std::string GetAttributeValue(std::string const& name, xercesc::DOMNamedNodeMap const* attributes)
{
    WideText const wideName(name.empty() ? nullptr : xercesc::XMLString::transcode(name.c_str()));
    xercesc::DOMNode const* const attribute = attributes->getNamedItem(wideName.get());
    return attribute != nullptr ? XMLCh2string(attribute->getNodeValue()) : std::string();
}

namespace {

// The four lines that describe a parse error; the first is "Error in: " alone for a document in memory, which has no
// system identifier. Line and column are 64-bit numbers, of which the low 32 bits are printed.
std::string Describe(xercesc::SAXParseException const& exception)
{
    std::string text = "Error in: " + XMLCh2string(exception.getSystemId()) + "\n";
    text += "Line: " + XMLFileLoc2string(exception.getLineNumber(), "%u") + "\n";
    text += "Char: " + XMLFileLoc2string(exception.getColumnNumber(), "%u") + "\n";
    text += "Message: " + XMLCh2string(exception.getMessage()) + "\n";
    return text;
}

}  // namespace

XercesErrorHandler::~XercesErrorHandler() = default;

// The parser calls these while it reads, with the place where it noticed what is wrong: that may be some way behind the
// cause, an element that was never closed for example.
//
// Warnings are not for the sender of a document, and nobody else would read them.
void XercesErrorHandler::warning(xercesc::SAXParseException const& /*exception*/) {}

// Thrown through the parser, which is made for it: it cleans up and can be destroyed. So the first error of a document
// ends it, a recoverable one too: no error is collected and skipped. Recoverable errors are mostly those of validity,
// which a parser without a validator does not look for.
void XercesErrorHandler::error(xercesc::SAXParseException const& exception)
{
    throw Exception(__FILE__, __LINE__, FormatString("%s", Describe(exception).c_str()));
}

// An error that the parser cannot go on from, which most are: a document that is not well-formed is one.
//
// The text is made in the same way as that of a recoverable error: the caller refuses the document in both cases, and
// whoever has to tell them apart does so by the line of the throw.
void XercesErrorHandler::fatalError(xercesc::SAXParseException const& exception)
{
    throw Exception(__FILE__, __LINE__, FormatString("%s", Describe(exception).c_str()));
}

// Nothing is kept, so there is nothing to reset.
void XercesErrorHandler::resetErrors() {}

namespace {

// The number of bytes that a conversion's argument has on this platform, told by the length modifier of the first
// conversion in the format.
enum class ArgumentWidth
{
    Int,
    Long,
    LongLong,
    Size
};

ArgumentWidth GetArgumentWidth(char const* format)
{
    char const* conversion = std::strchr(format, '%');
    while (conversion != nullptr && conversion[1] == '%')
        conversion = std::strchr(conversion + 2, '%');
    if (conversion == nullptr)
        return ArgumentWidth::Int;

    char const* const modifier = conversion + 1 + std::strspn(conversion + 1, "-+ #0'I123456789.");
    if (std::strncmp(modifier, "ll", 2) == 0)
        return ArgumentWidth::LongLong;
    switch (*modifier) {
        case 'l':
            return ArgumentWidth::Long;
        case 'j':
        case 'q':
        case 'L':
            return ArgumentWidth::LongLong;
        case 'z':
        case 't':
            return ArgumentWidth::Size;
        default:
            return ArgumentWidth::Int;
    }
}

}  // namespace

// The analyser of g++ takes the buffer for lost at the end, where it is freed.
#if __GNUC__ >= 10  // clang says it is 4
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wanalyzer-malloc-leak"
#endif

std::string XMLFileLoc2string(unsigned long long value, char const* format)
{
    static_assert(sizeof(std::uintmax_t) == sizeof(value), "%ju prints the whole value");
    static_assert(sizeof(std::ptrdiff_t) == sizeof(std::size_t), "%tu prints what %zu does");

    if (format == nullptr)
        return std::string();

    std::vector<char> buffer(std::strlen(format) + 20);
    switch (GetArgumentWidth(format)) {
        case ArgumentWidth::Int:
            std::snprintf(buffer.data(), buffer.size(), format, static_cast<unsigned>(value));
            break;
        case ArgumentWidth::Long:
            std::snprintf(buffer.data(), buffer.size(), format, static_cast<unsigned long>(value));
            break;
        case ArgumentWidth::LongLong:
            std::snprintf(buffer.data(), buffer.size(), format, value);
            break;
        case ArgumentWidth::Size:
            std::snprintf(buffer.data(), buffer.size(), format, static_cast<std::size_t>(value));
            break;
    }
    return buffer.data();
}

#if __GNUC__ >= 10
#pragma GCC diagnostic pop
#endif

namespace {

// What a byte becomes in a document: itself, or one of the entities. It is written as a whole, and the next one overwrites
// what is too many.
struct Encoded
{
    char text[7];
    unsigned char length;
};

struct Encoding
{
    constexpr Encoding()
    {
        for (unsigned i = 0; i < 256; ++i) {
            bytes[i].text[0] = static_cast<char>(i);
            bytes[i].length = 1;
        }
        Set('"', "&quot;");
        Set('&', "&amp;");
        Set('\'', "&apos;");
        Set('<', "&lt;");
        Set('>', "&gt;");
    }

    constexpr void Set(char character, char const* entity)
    {
        Encoded& encoded = bytes[static_cast<unsigned char>(character)];
        for (encoded.length = 0; entity[encoded.length] != '\0'; ++encoded.length)
            encoded.text[encoded.length] = entity[encoded.length];
    }

    constexpr Encoded const& operator[](char character) const { return bytes[static_cast<unsigned char>(character)]; }

    Encoded bytes[256] = {};
};

constexpr Encoding ENCODING;

// Most texts have few entities: words that have none are found quickly.
using Word = std::size_t;
constexpr std::size_t WORD = sizeof(Word);

// Whether one of the bytes may have an entity. A byte that is sought becomes zero, and one less than that has the highest
// bit. So has '#', and perhaps what stands behind a byte that is sought; neither does any harm.
bool MayHaveEntities(char const* bytes)
{
    constexpr Word ONES = ~Word(0) / 0xFF;  // 0x01 in each byte
    Word word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    Word const quotes = ((word | ONES * 0x05) ^ ONES * '\'') - ONES;  // " & '
    Word const angles = ((word | ONES * 0x02) ^ ONES * '>') - ONES;   // < >
    return ((quotes | angles) & ~word & ONES * 0x80) != 0;
}

// Nearly always for a word, so it pays to have no loop.
unsigned CountEncoded(char const* text, std::size_t length)
{
    unsigned count = 0;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < length; ++i)
        count += ENCODING[text[i]].length;
    return count;
}

// As CountEncoded. More than the result is written: up to the size of Encoded.
char* Encode(char const* text, std::size_t length, char* out)
{
#pragma GCC unroll 8
    for (std::size_t i = 0; i < length; ++i) {
        Encoded const& encoded = ENCODING[text[i]];
        std::memcpy(out, &encoded, sizeof(encoded));
        out += encoded.length;
    }
    return out;
}

// The length of the result. More than a text can have is more than 32 bits can count.
std::size_t CountResult(std::string const& text)
{
    char const* position = text.data();
    char const* const end = position + text.size();
    char const* const rest = end - text.size() % WORD;
    std::uint64_t count = 0;
    for (; position != rest; position += WORD)
        count += MayHaveEntities(position) ? CountEncoded(position, WORD) : WORD;
    count += CountEncoded(rest, text.size() % WORD);
    return static_cast<std::size_t>(std::min<std::uint64_t>(count, std::string::npos));
}

}  // namespace

// The result is made once, in its size. What is written beyond a word is less than the bytes behind it become. The last
// bytes have none behind them, and take their way through a buffer.
std::string EncodeXMLCharEntities(std::string const& text)
{
    std::size_t const length = CountResult(text);
    if (length == text.size())
        return text;

    std::string result(length, '\0');
    constexpr std::size_t BEHIND = sizeof(Encoded);
    std::size_t const inWords = text.size() < BEHIND ? 0 : (text.size() - BEHIND) / WORD * WORD;
    char const* position = text.data();
    char const* const rest = position + inWords;
    char* out = &result[0];  // NOLINT(readability-container-data-pointer): data() is const before C++17
    for (; position != rest; position += WORD) {
        std::memcpy(out, position, WORD);
        out = MayHaveEntities(position) ? Encode(position, WORD, out) : out + WORD;
    }

    char last[(WORD + BEHIND) * sizeof(Encoded)];
    char const* const lastEnd = Encode(rest, text.size() - inWords, last);
    std::memcpy(out, last, static_cast<std::size_t>(lastEnd - last));
    return result;
}

}}  // namespace tovu::util
