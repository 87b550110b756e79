#include "AnswerReader.h"

#include <utility>
#include <xercesc/dom/DOMNode.hpp>

#include "common/MessageGuard.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using tovu::util::Stream;
using tovu::util::StreamSelector;
using tovu::util::XMLCh2string;

namespace {

constexpr long SILENCE_SECONDS = 30;

// The longest answer is that to List: a folder of some hundred thousand files.
constexpr MessageGuard::Limits LIMITS = {64 << 20, 100, 100};

}  // namespace

void AwaitData(Stream const& stream)
{
    StreamSelector::TimeVal remaining(SILENCE_SECONDS, 0);
    for (;;) {
        StreamSelector selector;
        selector.AddStreamForReading(stream);
        if (selector.Select(remaining))
            return;
        if (remaining.tv_sec == 0 && remaining.tv_usec == 0)
            throw NoAnswer("nothing came for " + std::to_string(SILENCE_SECONDS) + " seconds");
    }
}

AnswerReader::AnswerReader(std::function<void(xercesc::DOMNode const&)> look) : look_(std::move(look)) {}

// The processor gets no byte behind the answer: what follows may be a file, and no message.
void AnswerReader::Read(Stream& stream)
{
    unsigned char chunk[4096];
    unsigned come = 0;
    while (!answered_) {
        if (come > LIMITS.length)
            throw NoAnswer("the answer is too long");
        AwaitData(stream);
        auto const count = static_cast<unsigned>(stream.Read(chunk, sizeof(chunk)));
        unsigned char const* const delimiter = FindDelimiter(chunk, count);
        auto const used = delimiter != nullptr ? static_cast<unsigned>(delimiter - chunk + 1) : count;
        if (!ProcessMessages(stream, chunk, used))
            throw NoAnswer("the service closed the connection without an answer");
        come += used;
        rest_.assign(chunk + used, chunk + count);
    }
}

// The service is trusted no more than it trusts its clients.
unsigned AnswerReader::ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const
{
    Verdict const verdict = MessageGuard(LIMITS).Inspect(data, length);
    if (verdict != Verdict::Accepted)
        throw NoAnswer(std::string("the answer is refused: ") + Words(verdict));
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
    else
        look_(element);
}

void AnswerReader::HandleError(int /*code*/, Stream& /*stream*/, unsigned char const* /*data*/,
                               unsigned /*length*/) const
{
    throw NoAnswer("the answer is malformed");
}

}  // namespace volume
