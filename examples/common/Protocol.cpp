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
        default:
            return "The message was refused.";
    }
}

char const* Version()
{
    return VOLUME_VERSION;
}

}  // namespace volume
