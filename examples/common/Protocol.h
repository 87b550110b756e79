#pragma once

namespace volume {

/// The codes of Error answers. Those below 4 are what MessageProcessor::HandleError reports.
enum ErrorCode
{
    ERROR_NAME = 0,           ///< The document element has a name that the service does not know.
    ERROR_NO_ELEMENT = 1,     ///< The document has no document element.
    ERROR_MALFORMED = 3,      ///< The document cannot be parsed, or handling it failed.
    ERROR_DOCUMENT_TYPE = 4,  ///< The document has a document type declaration.
    ERROR_ENCODING = 5,       ///< The document is in an encoding that is not accepted.
    ERROR_ARGUMENT = 6,       ///< An attribute is missing, or its value makes no sense.
    ERROR_NOT_FOUND = 7,      ///< There is no such folder, file or job, or none that the service may show.
    ERROR_NOT_SET_UP = 8,     ///< The service was started without what the message needs.
    ERROR_TOO_LARGE = 9,      ///< The file has 2 GiB or more.
    ERROR_STOPPING = 10,      ///< The service stops.
    ERROR_TOO_LONG = 11,      ///< The message is too long. The service closes the connection.
    ERROR_TOO_DEEP = 12,      ///< The elements of the message are nested too deeply.
    ERROR_ATTRIBUTES = 13     ///< An element of the message has too many attributes.
};

/// A message that cannot be answered as it wants to be. Deliberately no std::exception: MessageProcessor takes those
/// for faults of the message, and logs them as errors.
struct Refusal
{
    ErrorCode code;
};

/// What an Error answer says to a person.
char const* ErrorWords(int code);

/// The version of the library and of both programs, "0.1.0".
char const* Version();

}  // namespace volume
