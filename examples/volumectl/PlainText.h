#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace volume {

/// Makes of an answer what a person can read, in UTF-8, with a line end behind each line.
/// \return False for an answer that this client does not know, one of a plug-in for example.
bool PlainText(xercesc::DOMNode const& element, std::string& text);

/// A number of bytes for a person: "27.0 MiB", "512 bytes".
std::string ReadableSize(unsigned long long bytes);

}  // namespace volume
