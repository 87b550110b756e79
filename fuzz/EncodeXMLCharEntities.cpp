// A text between tags and between quotes: a parser gives it back.

#include <algorithm>
#include <string>

#include "DirectoryXml.h"
#include "Fuzz.h"
#include "Xml.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace fuzz { namespace {

void Replace(std::string& text, std::string const& what, std::string const& by)
{
    std::string::size_type position = 0;
    while ((position = text.find(what, position)) != std::string::npos) {
        text.replace(position, what.size(), by);
        position += by.size();
    }
}

// The other way, the ampersand last.
std::string Decode(std::string text)
{
    Replace(text, "&quot;", "\"");
    Replace(text, "&apos;", "'");
    Replace(text, "&lt;", "<");
    Replace(text, "&gt;", ">");
    Replace(text, "&amp;", "&");
    return text;
}

// What every parser makes of line ends.
std::string WithLineFeeds(std::string text)
{
    Replace(text, "\r\n", "\n");
    Replace(text, "\r", "\n");
    return text;
}

std::string WithBlanks(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character == '\n' || character == '\t'; }, ' ');
    return text;
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu;
    using namespace tovu::fuzz;

    XmlPlatform::Use();
    std::string const text = Input(data, size).TakeRest();
    std::string const encoded = util::EncodeXMLCharEntities(text);
    Require(encoded.find_first_of("\"'<>") == std::string::npos, "no markup is left");
    RequireEqual(text, Decode(encoded), "the entities stand for the text");
    if (!IsXmlText(text))
        return 0;

    test::ParsedXml document("<a b=\"" + encoded + "\" c='" + encoded + "'>" + encoded + "</a>");
    std::string const read = WithLineFeeds(text);
    RequireEqual(read, Utf8(document.Root().getTextContent()), "an element gives the text back");
    RequireEqual(WithBlanks(read), Attribute(document.Root(), 'b'), "an attribute gives the text back");
    RequireEqual(WithBlanks(read), Attribute(document.Root(), 'c'), "an attribute gives the text back");
    return 0;
}
