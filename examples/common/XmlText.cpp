#include "XmlText.h"

#include <algorithm>
#include <iterator>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/TransService.hpp>

#include "tovu/util/Format.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

namespace {

// The well-formed sequences of UTF-8 that XML may hold: a range for the first byte, one for the second, and how many
// continuation bytes follow. See table 3-7 of the Unicode Standard; control characters are left out.
struct Sequence
{
    unsigned char first[2];
    unsigned char second[2];  // a sequence of one byte has none
    std::string::size_type length;
};

Sequence const SEQUENCES[] = {
    {{0x20, 0x7E}, {0x00, 0xFF}, 1}, {{0xC2, 0xDF}, {0x80, 0xBF}, 2}, {{0xE0, 0xE0}, {0xA0, 0xBF}, 3},
    {{0xE1, 0xEC}, {0x80, 0xBF}, 3}, {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
    {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4}, {{0xF4, 0xF4}, {0x80, 0x8F}, 4}};

bool IsIn(char character, unsigned char const (&range)[2])
{
    auto const byte = static_cast<unsigned char>(character);
    return byte >= range[0] && byte <= range[1];
}

bool StandsAt(Sequence const& sequence, std::string const& text, std::string::size_type position)
{
    static unsigned char const continuation[] = {0x80, 0xBF};
    std::string const bytes = text.substr(position, sequence.length);
    if (bytes.size() != sequence.length || !IsIn(bytes[0], sequence.first))
        return false;
    return sequence.length == 1 ||
           (IsIn(bytes[1], sequence.second) &&
            std::all_of(bytes.begin() + 2, bytes.end(), [](char byte) { return IsIn(byte, continuation); }));
}

// U+FFFE and U+FFFF are no characters.
bool IsNoCharacter(std::string const& text, std::string::size_type position)
{
    return text.compare(position, 3, "\xEF\xBF\xBE") == 0 || text.compare(position, 3, "\xEF\xBF\xBF") == 0;
}

// The length of the character at a position; 0 when there is none that XML may hold.
std::string::size_type CharacterLength(std::string const& text, std::string::size_type position)
{
    auto const* const sequence =
        std::find_if(std::begin(SEQUENCES), std::end(SEQUENCES),
                     [&](Sequence const& candidate) { return StandsAt(candidate, text, position); });
    return sequence == std::end(SEQUENCES) || IsNoCharacter(text, position) ? 0 : sequence->length;
}

}  // namespace

std::string Utf8(XMLCh const* text)
{
    xercesc::TranscodeToStr const bytes(text, "UTF-8");
    return std::string(reinterpret_cast<char const*>(bytes.str()), bytes.length());
}

std::string AttributeText(xercesc::DOMNode const& element, char const* name)
{
    xercesc::TranscodeFromStr const wideName(reinterpret_cast<XMLByte const*>(name),
                                             std::char_traits<char>::length(name), "UTF-8");
    xercesc::DOMNode const* const attribute = element.getAttributes()->getNamedItem(wideName.str());
    return attribute != nullptr ? Utf8(attribute->getNodeValue()) : std::string();
}

std::string EscapeText(std::string const& text, std::string const& keep)
{
    std::string result;
    for (char const character : tovu::util::EncodeXMLCharEntities(text)) {
        if (keep.find(character) == std::string::npos)
            result += character;
        else
            result += "&#" + std::to_string(static_cast<int>(character)) + ";";
    }
    return result;
}

std::string EscapeAttribute(std::string const& text)
{
    return EscapeText(text, "\r\n\t");
}

std::string EscapeName(std::string const& name)
{
    std::string text;
    for (std::string::size_type position = 0; position < name.size();) {
        std::string::size_type const length = CharacterLength(name, position);
        if (length == 0)
            text +=
                tovu::util::FormatString("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(name[position])));
        else
            text.append(name, position, length);
        position += length == 0 ? 1 : length;
    }
    return EscapeAttribute(text);
}

}  // namespace volume
