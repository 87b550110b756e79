// What the guard of volumed and volumectl lets through to the parser, and what becomes of a stream from behind it.

#include <algorithm>
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

#include "Fuzz.h"
#include "Xml.h"
#include "common/GuardedMessageProcessor.h"
#include "common/MessageGuard.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace fuzz { namespace {

using volume::MessageGuard;
using volume::Verdict;

MessageGuard::Limits const LIMITS = {200, 4, 3};

// The parser that messages are read with. It reports a document type before it follows it anywhere.
class Parser : public xercesc::XercesDOMParser
{
public:
    void doctypeDecl(xercesc::DTDElementDecl const& /*root*/, XMLCh const* /*publicId*/, XMLCh const* /*systemId*/,
                     bool /*hasInternalSubset*/, bool /*hasExternalSubset*/) override
    {
        Require(false, "a document that is let through has no document type");
    }

    void startElement(xercesc::XMLElementDecl const& declaration, unsigned uri, XMLCh const* prefix,
                      xercesc::RefVectorOf<xercesc::XMLAttr> const& attributes, XMLSize_t count, bool isEmpty,
                      bool isRoot) override
    {
        ++open_;
        Require(open_ <= LIMITS.depth, "a document that is let through is not too deep");
        Require(count <= LIMITS.attributes, "an element that is let through has not too many attributes");
        XercesDOMParser::startElement(declaration, uri, prefix, attributes, count, isEmpty, isRoot);
    }

    void endElement(xercesc::XMLElementDecl const& declaration, unsigned uri, bool isRoot, XMLCh const* prefix) override
    {
        --open_;
        XercesDOMParser::endElement(declaration, uri, isRoot, prefix);
    }

private:
    unsigned open_ = 0;
};

void Parse(std::string const& message)
{
    util::XercesErrorHandler errorHandler;
    Parser parser;
    parser.setErrorHandler(&errorHandler);
    xercesc::MemBufInputSource const source(Bytes(message), message.size(), "");
    try {
        parser.parse(source);
    } catch (std::exception const&) {
        return;  // not well-formed
    } catch (xercesc::DOMException const&) {
        return;
    } catch (xercesc::XMLException const&) {
        return;
    }
    Require(parser.getDocument()->getDoctype() == nullptr, "a document that is let through has no document type");
}

Verdict Inspect(MessageGuard const& guard, std::string const& message)
{
    return guard.Inspect(Bytes(message), static_cast<unsigned>(message.size()));
}

void CheckTheDocument(std::string const& message)
{
    MessageGuard const guard(LIMITS);
    if (Inspect(guard, message) == Verdict::Accepted) {
        Require(message.size() <= LIMITS.length, "a document that is let through is not too long");
        Parse(message);
    }
}

struct Refusal
{};

// What became of a message.
struct Event
{
    Verdict verdict;  // Accepted of what was handled, or reported by HandleError
    std::size_t length;
};

class Processor : public volume::GuardedMessageProcessor
{
public:
    using GuardedMessageProcessor::GuardedMessageProcessor;

    bool IsValidMessage(std::string const& name) const override { return name != "Other"; }

    void HandleMessage(util::Stream& /*stream*/, unsigned char const* /*data*/, unsigned length,
                       xercesc::DOMNode const& element) const override
    {
        std::string const name = util::XMLCh2string(element.getNodeName());
        if (name == "Fail")
            throw std::runtime_error("a hook fails");
        if (name == "Refuse")
            throw Refusal();
        events.push_back({Verdict::Accepted, length});
    }

    void HandleError(int /*code*/, util::Stream& /*stream*/, unsigned char const* /*data*/,
                     unsigned length) const override
    {
        events.push_back({Verdict::Accepted, length});
    }

    void HandleRefusal(Verdict reason, util::Stream& /*stream*/, unsigned length) const override
    {
        events.push_back({reason, length});
    }

    mutable std::vector<Event> events;
};

// What is to become of the messages of a stream: nothing comes behind one that is too long.
std::vector<Event> ExpectedEvents(MessageGuard const& guard, Input stream)
{
    std::vector<Event> events;
    while (!stream.IsEmpty() && (events.empty() || events.back().verdict != Verdict::TooLong)) {
        bool const isWhole = stream.Has(std::string(1, '\0'));
        std::string const message = stream.TakeUntil(std::string(1, '\0'));
        Verdict const verdict = Inspect(guard, message);
        if (!message.empty() && (isWhole || verdict == Verdict::TooLong))
            events.push_back({verdict, message.size()});
    }
    return events;
}

void CheckTheStream(std::string const& bytes)
{
    int ends[2];
    Require(util::Pipe::CreatePipe(ends) == 0, "there is a pipe");
    util::Pipe reader(ends[0]);
    {
        util::Pipe writer(ends[1]);
        if (!bytes.empty())
            writer.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
    }

    MessageGuard guard(LIMITS);
    Processor processor(guard);
    processor.ReadMessages(reader);

    std::vector<Event> const expected = ExpectedEvents(guard, Input(Bytes(bytes), bytes.size()));
    Require(processor.events.size() == expected.size(), "one thing becomes of each message");
    unsigned long failures = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        Event const& event = processor.events[i];
        bool const failed = expected[i].verdict == Verdict::Accepted && event.verdict == Verdict::Failed;
        Require(failed || event.verdict == expected[i].verdict, "a message is refused for what the guard says of it");
        Require(event.length == expected[i].length, "the length is that of the message");
        failures += failed ? 1 : 0;
    }
    Require(guard.GetCount(Verdict::Failed) == failures, "what the parser or a hook threw is counted");
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    XmlPlatform::UseWithDocumentTypes();
    std::string const bytes = Input(data, size).TakeRest();
    CheckTheDocument(bytes);  // as a datagram
    std::ptrdiff_t const delimiters = std::count(data, data + size, 0);
    if (delimiters > MOST_MESSAGES)
        return 0;

    for (Input messages(data, size); delimiters != 0 && !messages.IsEmpty();)
        CheckTheDocument(messages.TakeUntil(std::string(1, '\0')));
    CheckTheStream(bytes);
    return 0;
}
