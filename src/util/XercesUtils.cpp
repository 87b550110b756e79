#include "tovu/util/XercesUtils.h"

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

// The four lines that describe a parse error. A document that is parsed from memory has no system identifier, so the
// first line is "Error in: " alone. Line and column are 64-bit numbers, of which the low 32 bits are printed: a message
// is never that long.
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

std::string EncodeXMLCharEntities(std::string const& text)
{
    std::string result;
    result.reserve(text.size());
    for (char const character : text) {
        switch (character) {
            case '"':
                result += "&quot;";
                break;
            case '&':
                result += "&amp;";
                break;
            case '\'':
                result += "&apos;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += character;
                break;
        }
    }
    return result;
}

}}  // namespace tovu::util
