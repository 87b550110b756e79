#pragma once

#include <string>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

#include "tovu/util/XercesUtils.h"

namespace tovu { namespace test {

/// A document made from a text by the parser that messages are read with. What is not well-formed throws Exception.
class ParsedXml
{
public:
    explicit ParsedXml(std::string const& text)
    {
        parser_.setErrorHandler(&handler_);
        xercesc::MemBufInputSource const source(reinterpret_cast<XMLByte const*>(text.data()), text.size(), "");
        parser_.parse(source);
    }

    xercesc::DOMElement const& Root() { return *parser_.getDocument()->getDocumentElement(); }

    /// The elements in the root, in order.
    std::vector<xercesc::DOMElement const*> Children()
    {
        std::vector<xercesc::DOMElement const*> children;
        xercesc::DOMElement const* child = Root().getFirstElementChild();
        for (; child != nullptr; child = child->getNextElementSibling())
            children.push_back(child);
        return children;
    }

private:
    util::XercesErrorHandler handler_;
    xercesc::XercesDOMParser parser_;
};

}}  // namespace tovu::test
