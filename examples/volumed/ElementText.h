#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace volume {

/// What stands between the start and the end tag of an element, as XML in UTF-8: text, elements, CDATA sections,
/// comments and processing instructions. Works without recursion, so the depth of a document does not matter.
std::string ContentText(xercesc::DOMNode const& element);

}  // namespace volume
