#include "AnswerReader.h"

#include <xercesc/dom/DOMNode.hpp>

#include "common/Prolog.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using tovu::util::Stream;
using tovu::util::StreamSelector;
using tovu::util::XMLCh2string;

namespace {

constexpr long ANSWER_SECONDS = 30;

}  // namespace

// The time is for all of the answer: the selector leaves in it what has not been used.
void AnswerReader::Read(Stream& stream)
{
    StreamSelector::TimeVal remaining(ANSWER_SECONDS, 0);
    while (!answered_) {
        StreamSelector selector;
        selector.AddStreamForReading(stream);
        bool const ready = selector.Select(remaining);
        if (ready && !ProcessMessages(stream))
            throw NoAnswer("the service closed the connection without an answer");
        if (!ready && remaining.tv_sec == 0 && remaining.tv_usec == 0)
            throw NoAnswer("no answer came within " + std::to_string(ANSWER_SECONDS) + " seconds");
    }
}

// The service is trusted no more than it trusts its clients.
unsigned AnswerReader::ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const
{
    if (InspectProlog(data, length) != Prolog::Accepted)
        throw NoAnswer("the answer is no XML document that may be read");
    return MessageProcessor::ParseMessage(stream, data, length);
}

bool AnswerReader::IsValidMessage(std::string const& /*name*/) const
{
    return true;
}

void AnswerReader::HandleMessage(Stream& /*stream*/, unsigned char const* data, unsigned length,
                                 xercesc::DOMNode const& element) const
{
    answered_ = true;
    document_.assign(reinterpret_cast<char const*>(data), length);
    refusal_ = XMLCh2string(element.getNodeName()) == "Error";
    if (refusal_)
        words_ = XMLCh2string(element.getTextContent());
}

void AnswerReader::HandleError(int /*code*/, Stream& /*stream*/, unsigned char const* /*data*/,
                               unsigned /*length*/) const
{
    throw NoAnswer("the answer is malformed");
}

}  // namespace volume
