// Names of files and texts, as volumed writes them into its answers.

#include <string>

#include "DirectoryXml.h"
#include "Fuzz.h"
#include "Xml.h"
#include "common/XmlText.h"
#include "tovu/util/Format.h"

namespace tovu { namespace fuzz { namespace {

std::string ReadAttribute(std::string const& escaped)
{
    test::ParsedXml document("<a name=\"" + escaped + "\"/>");
    return volume::AttributeText(document.Root(), "name");
}

// A byte as it is, or as "%" and two digits.
void CheckName(std::string const& name)
{
    std::string const read = ReadAttribute(volume::EscapeName(name));
    std::string::size_type position = 0;
    for (char const byte : name) {
        bool const isItself = position < read.size() && read[position] == byte;
        std::string const written =
            util::FormatString("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        Require(isItself || read.compare(position, 3, written) == 0, "each byte of a name is written");
        Require(!isItself || static_cast<unsigned char>(byte) >= ' ', "none as a control character");
        position += isItself ? 1 : 3;
    }
    Require(position == read.size(), "and nothing else is");
    if (name.find_first_of(std::string("\t\r\n\x7F")) == std::string::npos && IsXmlText(name))
        RequireEqual(name, read, "what a document can hold stands there as it is");
}

void CheckText(std::string const& text)
{
    RequireEqual(text, ReadAttribute(volume::EscapeAttribute(text)), "an attribute gives the text back");
    test::ParsedXml document("<a>" + volume::EscapeText(text, "\r") + "</a>");
    RequireEqual(text, volume::Utf8(document.Root().getTextContent()), "an element gives the text back");
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    XmlPlatform::Use();
    std::string const text = Input(data, size).TakeRest();
    CheckName(text);
    if (IsXmlText(text))
        CheckText(text);
    return 0;
}
