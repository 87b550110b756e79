#include "ElementText.h"

#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "common/XmlText.h"

namespace volume {

using xercesc::DOMNode;

namespace {

std::string Attributes(DOMNode const& element)
{
    std::string text;
    xercesc::DOMNamedNodeMap const* const attributes = element.getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        DOMNode const* const attribute = attributes->item(i);
        text += " " + Utf8(attribute->getNodeName()) + "=\"" + EscapeAttribute(Utf8(attribute->getNodeValue())) + "\"";
    }
    return text;
}

// A node without what is inside it: of an element with children the start tag alone.
std::string StartText(DOMNode const& node)
{
    switch (node.getNodeType()) {
        case DOMNode::ELEMENT_NODE:
            return "<" + Utf8(node.getNodeName()) + Attributes(node) + (node.hasChildNodes() ? ">" : "/>");
        case DOMNode::TEXT_NODE:
            return EscapeText(Utf8(node.getNodeValue()), "\r");
        case DOMNode::CDATA_SECTION_NODE:
            return "<![CDATA[" + Utf8(node.getNodeValue()) + "]]>";
        case DOMNode::COMMENT_NODE:
            return "<!--" + Utf8(node.getNodeValue()) + "-->";
        case DOMNode::PROCESSING_INSTRUCTION_NODE:
            return "<?" + Utf8(node.getNodeName()) + " " + Utf8(node.getNodeValue()) + "?>";
        default:
            return std::string();
    }
}

}  // namespace

std::string ContentText(DOMNode const& element)
{
    std::string text;
    DOMNode const* node = element.getFirstChild();
    while (node != nullptr) {
        text += StartText(*node);
        if (node->hasChildNodes()) {
            node = node->getFirstChild();
            continue;
        }
        while (node != &element && node->getNextSibling() == nullptr) {
            node = node->getParentNode();
            if (node != &element)
                text += "</" + Utf8(node->getNodeName()) + ">";
        }
        node = node == &element ? nullptr : node->getNextSibling();
    }
    return text;
}

}  // namespace volume
