#include "Protocol.h"

namespace volume {

char const* ErrorWords(int code)
{
    switch (code) {
        case ERROR_NAME:
            return "The message name is not known.";
        case ERROR_NO_ELEMENT:
            return "The message has no document element.";
        case ERROR_MALFORMED:
            return "The message is malformed, or handling it failed.";
        case ERROR_DOCUMENT_TYPE:
            return "A document type declaration is not accepted.";
        case ERROR_ENCODING:
            return "The encoding is not accepted; use UTF-8, US-ASCII or ISO-8859-1.";
        case ERROR_ARGUMENT:
            return "An attribute of the message is missing, or its value makes no sense.";
        case ERROR_NOT_FOUND:
            return "There is nothing of that name.";
        case ERROR_NOT_SET_UP:
            return "The service is not set up to do that.";
        case ERROR_TOO_LARGE:
            return "The file is too large to be sent.";
        case ERROR_STOPPING:
            return "The service stops.";
        case ERROR_TOO_LONG:
            return "The message is too long.";
        case ERROR_TOO_DEEP:
            return "The elements of the message are nested too deeply.";
        case ERROR_ATTRIBUTES:
            return "An element of the message has too many attributes.";
        default:
            return "The message was refused.";
    }
}

char const* Version()
{
    return VOLUME_VERSION;
}

}  // namespace volume
