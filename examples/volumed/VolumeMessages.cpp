#include "VolumeMessages.h"

#include <unistd.h>

#include <exception>
#include <xercesc/dom/DOMNode.hpp>

#include "ElementText.h"
#include "common/Prolog.h"
#include "common/Protocol.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Socket.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using namespace tovu::util;

namespace {

// How long a client may take no byte of its answer: this many waits of that length.
constexpr int PATIENCE = 300;
constexpr long WAIT_MICROSECONDS = 100000;

std::string Info()
{
    return FormatString(R"(<Info hostName="%s" processId="%d" version="%s"/>)",
                        EncodeXMLCharEntities(Socket::GetHostName()).c_str(), static_cast<int>(getpid()), Version());
}

}  // namespace

void VolumeMessages::Stop()
{
    stopping_ = true;
    SetStop(true);
}

unsigned VolumeMessages::ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const
{
    if (length == 0)
        return 0;

    switch (InspectProlog(data, length)) {
        case Prolog::Accepted:
            break;
        case Prolog::Malformed:
            HandleError(ERROR_MALFORMED, stream, data, length);
            return 0;
        case Prolog::DocumentType:
            HandleError(ERROR_DOCUMENT_TYPE, stream, data, length);
            return 0;
        case Prolog::Encoding:
            HandleError(ERROR_ENCODING, stream, data, length);
            return 0;
    }

    try {
        return MessageProcessor::ParseMessage(stream, data, length);
    } catch (std::exception const&) {
        throw;  // the answer could not be sent: the connection is gone
    } catch (AnswerNotTaken const&) {
        throw;
    } catch (...) {
        // The parser's DOMException, for example, which it throws for a version of XML that it does not know.
        HandleError(ERROR_MALFORMED, stream, data, length);
        return 0;
    }
}

bool VolumeMessages::IsValidMessage(std::string const& name) const
{
    return name == "Echo" || name == "GetInfo";
}

void VolumeMessages::HandleMessage(Stream& stream, unsigned char const* /*data*/, unsigned /*length*/,
                                   xercesc::DOMNode const& element) const
{
    if (XMLCh2string(element.getNodeName()) == "Echo")
        Answer(stream, "<Echo>" + ContentText(element) + "</Echo>");
    else
        Answer(stream, Info());
}

void VolumeMessages::HandleError(int code, Stream& stream, unsigned char const* /*data*/, unsigned length) const
{
    TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A message of %u bytes was refused with code %d: %s\n", length, code,
             ErrorWords(code));
    Answer(stream,
           FormatString(R"(<Error code="%d">%s</Error>)", code, EncodeXMLCharEntities(ErrorWords(code)).c_str()));
}

// A MessageWriter would wait without limit for a client that does not read, and nothing can end that wait on a local
// socket. So the answer goes out in pieces, each when there is room for it. The NUL of the string is the delimiter.
void VolumeMessages::Answer(Stream& stream, std::string const& document) const
{
    char const* rest = document.c_str();
    for (auto remaining = static_cast<unsigned>(document.size() + 1); remaining != 0;) {
        AwaitRoom(stream);
        int const written = stream.Write(rest, remaining);
        rest += written;
        remaining -= static_cast<unsigned>(written);
    }
}

void VolumeMessages::AwaitRoom(Stream& stream) const
{
    for (int i = 0; i < PATIENCE; ++i) {
        if (stopping_)
            throw AnswerNotTaken{"the service stops"};

        StreamSelector selector;
        selector.AddStreamForWriting(stream);
        StreamSelector::TimeVal wait(0, WAIT_MICROSECONDS);
        if (selector.Select(wait) && selector.IsStreamReadyForWriting(stream))
            return;
    }
    throw AnswerNotTaken{"the client does not read its answer"};
}

}  // namespace volume
