#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLChar.hpp>
#include <xercesc/util/XMLException.hpp>

namespace tovu { namespace fuzz {

/// Of messages in one input: each has a parser of its own, which is slow, and more of them say nothing new.
constexpr std::ptrdiff_t MOST_MESSAGES = 8;

/// The parser's platform, which the first use initialises for as long as the process lives.
class XmlPlatform
{
public:
    /// As in a server that does without document types: an input that had one could make the parser read any file, wait
    /// for any host, or fill the memory, all of which is documented and no finding.
    static void Use()
    {
        setenv("XERCES_DISABLE_DTD", "1", 1);
        UseWithDocumentTypes();
    }

    /// For harnesses that keep such inputs from the parser.
    static void UseWithDocumentTypes() { static XmlPlatform const platform; }

    XmlPlatform(XmlPlatform const&) = delete;
    XmlPlatform& operator=(XmlPlatform const&) = delete;

private:
    XmlPlatform() { xercesc::XMLPlatformUtils::Initialize(); }
    ~XmlPlatform() { xercesc::XMLPlatformUtils::Terminate(); }
};

/// The parser's text in UTF-8, whatever the locale.
inline std::string Utf8(XMLCh const* text)
{
    xercesc::TranscodeToStr const bytes(text, "UTF-8");
    return std::string(reinterpret_cast<char const*>(bytes.str()), bytes.length());
}

/// An attribute that a document has.
inline std::string Attribute(xercesc::DOMElement const& element, char name)
{
    XMLCh const wideName[] = {static_cast<XMLCh>(name), 0};
    return Utf8(element.getAttributes()->getNamedItem(wideName)->getNodeValue());
}

/// True for UTF-8 whose characters a document of XML 1.0 can hold, as the parser sees it.
inline bool IsXmlText(std::string const& text)
{
    try {
        xercesc::TranscodeFromStr const wide(reinterpret_cast<XMLByte const*>(text.data()), text.size(), "UTF-8");
        for (XMLSize_t i = 0; i < wide.length(); ++i) {
            XMLCh const character = wide.str()[i];
            bool const isPair = character >= 0xD800 && character <= 0xDBFF;  // the transcoder makes whole ones only
            if (!isPair && !xercesc::XMLChar1_0::isXMLChar(character))
                return false;
            i += isPair ? 1 : 0;
        }
        return true;
    } catch (xercesc::XMLException const&) {
        return false;
    }
}

}}  // namespace tovu::fuzz
