#include "VolumeMessages.h"

#include <exception>
#include <xercesc/dom/DOMNode.hpp>

#include "PatientSocket.h"
#include "SharedFile.h"
#include "common/Prolog.h"
#include "common/Protocol.h"
#include "common/XmlText.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/StreamWriter.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using namespace tovu::util;

namespace {

constexpr char const* SEND = "Send";

Socket const& ToSocket(Stream const& stream)
{
    return dynamic_cast<Socket const&>(stream);
}

// Takes the bytes of a file, and never more than were announced.
class FileSocket : public PatientSocket
{
public:
    FileSocket(Socket const& socket, std::atomic<bool> const& stopping, unsigned size)
        : PatientSocket(socket, stopping), size_(size)
    {}

    int Write(void const* buffer, unsigned int length) override
    {
        if (GetCount() + length > size_)
            throw AnswerNotTaken{"its file has grown meanwhile"};
        return PatientSocket::Write(buffer, length);
    }

private:
    unsigned const size_;
};

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
    } catch (Refusal const& refusal) {
        HandleError(refusal.code, stream, data, length);
        return 0;
    } catch (...) {
        // The parser's DOMException, for example, which it throws for a version of XML that it does not know.
        HandleError(ERROR_MALFORMED, stream, data, length);
        return 0;
    }
}

bool VolumeMessages::IsValidMessage(std::string const& name) const
{
    return name == SEND || service_.IsHandled(name);
}

void VolumeMessages::HandleMessage(Stream& stream, unsigned char const* /*data*/, unsigned /*length*/,
                                   xercesc::DOMNode const& element) const
{
    if (XMLCh2string(element.getNodeName()) == SEND)
        SendFile(stream, AttributeText(element, "path"));
    else
        Answer(stream, service_.Handle(element));
}

void VolumeMessages::HandleError(int code, Stream& stream, unsigned char const* /*data*/, unsigned length) const
{
    TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A message of %u bytes was refused with code %d: %s\n", length, code,
             ErrorWords(code));
    Answer(stream,
           FormatString(R"(<Error code="%d">%s</Error>)", code, EncodeXMLCharEntities(ErrorWords(code)).c_str()));
}

// The NUL of the string is the delimiter.
void VolumeMessages::Answer(Stream& stream, std::string const& document) const
{
    PatientSocket socket(ToSocket(stream), stopping_);
    socket.Write(document.c_str(), static_cast<unsigned>(document.size() + 1));
}

// Once the header is out, so many bytes have to follow: whatever goes wrong then ends the connection.
void VolumeMessages::SendFile(Stream& stream, std::string const& path) const
{
    if (service_.GetSendFolder().empty())
        throw Refusal{ERROR_NOT_SET_UP};

    SharedFile const file(service_.GetSendFolder(), path);
    Answer(stream, FormatString(R"(<File name="%s" size="%u"/>)", EscapeName(file.GetName()).c_str(), file.GetSize()));

    FileSocket socket(ToSocket(stream), stopping_, file.GetSize());
    try {
        StreamWriter(socket).WriteFile(file.GetPath());
    } catch (std::exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "%s could not be sent: %s\n", path.c_str(), exception.what());
        throw AnswerNotTaken{"its file could not be sent"};
    }
    if (socket.GetCount() != file.GetSize())
        throw AnswerNotTaken{"its file has become shorter meanwhile"};
}

}  // namespace volume
