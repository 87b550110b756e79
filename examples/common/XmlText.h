#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace volume {

/// The parser's text in UTF-8, whatever the locale: paths and names keep their bytes on the way through a document.
std::string Utf8(XMLCh const* text);

/// The value of an element's attribute, in UTF-8; empty when there is none.
std::string AttributeText(xercesc::DOMNode const& element, char const* name);

/// A text to stand as it is in an element. With `keep`, those of its characters (line ends and tabs) are written as
/// character references, which a parser does not change while it reads.
std::string EscapeText(std::string const& text, std::string const& keep);

/// A text to stand as it is between the quotes of an attribute.
std::string EscapeAttribute(std::string const& text);

/// A file's name to stand between the quotes of an attribute. A name may hold any bytes: those that no document can
/// hold, control characters and what is not UTF-8, are written as "%" and two hexadecimal digits.
std::string EscapeName(std::string const& name);

}  // namespace volume
