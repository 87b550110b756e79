#include "VolumeMessages.h"

#include <exception>
#include <xercesc/dom/DOMNode.hpp>

#include "PatientSocket.h"
#include "SharedFile.h"
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

ErrorCode CodeOf(Verdict reason)
{
    switch (reason) {
        case Verdict::TooLong:
            return ERROR_TOO_LONG;
        case Verdict::DocumentType:
            return ERROR_DOCUMENT_TYPE;
        case Verdict::Encoding:
            return ERROR_ENCODING;
        case Verdict::TooDeep:
            return ERROR_TOO_DEEP;
        case Verdict::TooManyAttributes:
            return ERROR_ATTRIBUTES;
        default:
            return ERROR_MALFORMED;
    }
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
    EndReading();
}

bool VolumeMessages::IsValidMessage(std::string const& name) const
{
    return name == SEND || service_.IsHandled(name);
}

void VolumeMessages::HandleMessage(Stream& stream, unsigned char const* data, unsigned length,
                                   xercesc::DOMNode const& element) const
{
    try {
        TryToAnswer([&] {
            if (XMLCh2string(element.getNodeName()) == SEND)
                SendFile(stream, AttributeText(element, "path"));
            else
                Answer(stream, service_.Handle(element));
        });
    } catch (Refusal const& refusal) {
        HandleError(refusal.code, stream, data, length);
    }
}

void VolumeMessages::HandleError(int code, Stream& stream, unsigned char const* /*data*/, unsigned length) const
{
    TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A message of %u bytes was refused with code %d: %s\n", length, code,
             ErrorWords(code));
    TryToAnswer([&] { AnswerError(stream, code); });
}

void VolumeMessages::HandleRefusal(Verdict reason, Stream& stream, unsigned /*length*/) const
{
    if (reason == Verdict::TooLong)
        Leave("its message is too long");
    TryToAnswer([&] { AnswerError(stream, CodeOf(reason)); });
}

// Whoever does not take an answer gets no other.
template <typename Action>
void VolumeMessages::TryToAnswer(Action action) const
{
    try {
        action();
    } catch (AnswerNotTaken const& failure) {
        Leave(failure.reason);
    }
}

void VolumeMessages::Leave(std::string const& reason) const
{
    reasonToLeave_ = reason;
    EndReading();
}

void VolumeMessages::AnswerError(Stream& stream, int code) const
{
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
