#pragma once

namespace volume {

/// The codes of Error answers. Those below 4 are what MessageProcessor::HandleError reports.
enum ErrorCode
{
    ERROR_NAME = 0,           ///< The document element has a name that the service does not know.
    ERROR_NO_ELEMENT = 1,     ///< The document has no document element.
    ERROR_MALFORMED = 3,      ///< The document cannot be parsed, or handling it failed.
    ERROR_DOCUMENT_TYPE = 4,  ///< The document has a document type declaration.
    ERROR_ENCODING = 5        ///< The document is in an encoding that is not accepted.
};

/// What an Error answer says to a person.
char const* ErrorWords(int code);

/// The version of the library and of both programs, "0.1.0".
char const* Version();

}  // namespace volume
