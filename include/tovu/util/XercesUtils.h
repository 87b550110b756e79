#pragma once

#include <string>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNamedNodeMap;
class SAXParseException;
XERCES_CPP_NAMESPACE_END

namespace tovu { namespace util {

/// \file
/// The bridge between Xerces-C and std::string, and the handler that turns parse errors into exceptions.
/// \code
///     std::string const title = "Tom & Jerry";
///     std::string const element = "<Movie title=\"" + EncodeXMLCharEntities(title) + "\"/>";
/// \endcode
///
/// The program initialises the Xerces platform before any of these is used, and terminates it after the last.
///
/// Ownership: every function returns a new std::string and keeps nothing.
/// Threads: any number of threads may call any of them at once.
/// Errors: what cannot be transcoded gives an empty text, not an error.

/// The text in the local code page; empty for null.
std::string XMLCh2string(XMLCh const* text);

/// The text after a round trip through the parser's transcoder: local code page to XMLCh and back. Empty for null.
std::string char2string(char const* text);

/// Prints a line or column number of the parser.
///
/// \param value  The number.
/// \param format A printf(3) format with one integer conversion, of any width: "%u" prints the low 32 bits. The result
///               is cut to the format's length plus 19 characters. Null gives an empty text.
std::string XMLFileLoc2string(unsigned long long value, char const* format);

/// The value of an attribute. Empty also when there is no such attribute: the two cannot be told apart. `attributes`
/// must not be null. Passes on what DOMNamedNodeMap::getNamedItem throws.
std::string GetAttributeValue(std::string const& name, xercesc::DOMNamedNodeMap const* attributes);

/// Replaces the five characters that have a predefined entity (" & ' < >) and copies every other byte, so that the text
/// can stand in an element or an attribute of a document in any encoding that extends ASCII. Entities already in the
/// text are encoded again. Bytes that no document may hold, most control characters among them, are copied too.
std::string EncodeXMLCharEntities(std::string const& text);

/// The error handler for a parser: throws Exception at the first error, recoverable or fatal, and ignores warnings.
/// \code
///     #include <xercesc/parsers/XercesDOMParser.hpp>
///     XercesErrorHandler handler;
///     xercesc::XercesDOMParser parser;
///     parser.setErrorHandler(&handler);
///     parser.parse("/etc/volumes.xml");
/// \endcode
///
/// Threads: no state, so any number of parsers may share one.
class XercesErrorHandler : public xercesc::ErrorHandler
{
public:
    ~XercesErrorHandler() override;

    /// Ignored.
    void warning(xercesc::SAXParseException const& exception) override;

    /// Throws Exception with four lines: "Error in: ", "Line: ", "Char: " and "Message: ", each with its value and
    /// "\n".
    void error(xercesc::SAXParseException const& exception) override;

    /// As error.
    void fatalError(xercesc::SAXParseException const& exception) override;

    /// Does nothing: no errors are kept.
    void resetErrors() override;
};

}}  // namespace tovu::util
