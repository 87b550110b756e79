#include "tovu/util/MessageProcessor.h"

#include <cstring>
#include <exception>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util {

MessageProcessor::MessageProcessor() = default;

MessageProcessor::~MessageProcessor() = default;

void MessageProcessor::SetStop(bool stop)
{
    __atomic_store_n(&stop_, stop, __ATOMIC_RELEASE);
}

void MessageProcessor::ReadMessages(Stream& stream)
{
    try {
        // The flag is looked at when the wait returns: after the next bytes, the end of the stream, or a signal.
        while (!__atomic_load_n(&stop_, __ATOMIC_ACQUIRE)) {
            StreamSelector selector;
            selector.AddStreamForReading(stream);
            if (!selector.Select())
                continue;
            if (!selector.IsStreamReadyForReading(stream))
                continue;
            if (!ProcessMessages(stream))
                return;
        }
    } catch (Exception& exception) {
        // Also what a hook of a derived class let out.
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

namespace {

using Bytes = unsigned char const*;

// The first complete delimiter in the bytes up to `end`, or null, whatever its length. Kept out of the way of the search
// for one byte, beside which short messages feel each instruction.
__attribute__((noinline)) Bytes FindAny(MessageProcessor::ByteSpan const& delimiter, Bytes data, Bytes end);

// The same, for what is nearly always one byte.
Bytes Find(MessageProcessor::ByteSpan const& delimiter, Bytes data, Bytes end)
{
    if (delimiter.second == 1)
        return static_cast<Bytes>(std::memchr(data, delimiter.first[0], static_cast<std::size_t>(end - data)));
    return FindAny(delimiter, data, end);
}

// What became of a message; all but the first are the codes of HandleError.
constexpr int HANDLED = -1;
constexpr int NAME_REFUSED = 0;
constexpr int NO_DOCUMENT_ELEMENT = 1;
constexpr int EXCEPTION_CAUGHT = 3;

std::string ToText(unsigned char const* data, unsigned length)
{
    return std::string(reinterpret_cast<char const*>(data), length);
}

}  // namespace

// Only a message that is spread over chunks is copied. The delimiter is asked for anew each time, since a hook may have
// changed it; what is skipped behind a message is the one that has ended it. A skip that ends behind the chunk is not
// carried over to the next. Only the first message continues what is pending: what stands there behind it was left by a
// hook that has read by itself.
bool MessageProcessor::ProcessMessages(Stream& stream, unsigned char const* data, unsigned length)
{
    if (data == nullptr || length == 0)
        return false;

    Bytes const end = data + length;
    for (bool continued = !pending_.empty();; continued = false) {
        ByteSpan const delimiter = GetDelimiter();
        Bytes const hit = Find(delimiter, data, end);
        if (hit == nullptr) {
            if (!continued)
                pending_.clear();
            pending_.insert(pending_.end(), data, end);
            return true;
        }

        unsigned skip = 0;
        if (continued) {
            pending_.insert(pending_.end(), data, hit);
            skip = ParseMessage(stream, pending_.data(), static_cast<unsigned>(pending_.size()));
            pending_.clear();
        } else {
            skip = ParseMessage(stream, data, static_cast<unsigned>(hit - data));
        }
        data = hit + delimiter.second;
        if (skip >= static_cast<std::size_t>(end - data))
            return true;
        data += skip;
    }
}

unsigned MessageProcessor::ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const
{
    if (length == 0)
        return 0;

    int error = HANDLED;
    try {
        if (LoggerMgr::Instance().GetLevel() >= LoggerMgr::LEVEL_DEBUG) {
            std::string const text = ToText(data, length);
            TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "%s", HexFormatstring(text).c_str());
            TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "%s", text.c_str());
        }

        XercesErrorHandler errorHandler;
        xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
        parser.setErrorHandler(&errorHandler);
        xercesc::MemBufInputSource source(data, length, "", false, xercesc::XMLPlatformUtils::fgMemoryManager);
        parser.parse(source);

        xercesc::DOMDocument const* const document = parser.getDocument();
        xercesc::DOMElement const* const element = document != nullptr ? document->getDocumentElement() : nullptr;
        std::string const name = element != nullptr ? XMLCh2string(element->getNodeName()) : std::string();
        if (element != nullptr && IsValidMessage(name)) {
            HandleMessage(stream, data, length, *element);
        } else if (element != nullptr) {
            TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "Message name '%s' does not match any expected name(s).\n", name.c_str());
            error = NAME_REFUSED;
        } else {
            // Today's parsers report a document without an element as an error, which the error handler throws, so they
            // do not come here. Nothing in the parser's interface promises that, and a later one may hand such a
            // document out.
            TOVU_LOG(LoggerMgr::LEVEL_ERROR, "NULL document element in message:\n%s", ToText(data, length).c_str());
            error = NO_DOCUMENT_ELEMENT;
        }
    } catch (std::exception const& exception) {
        // Bad XML, a hook that failed, or a log call that did. The parser and its document are gone already, and the
        // text of the exception is all that is left of the place where it went wrong.
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s\nparsing:\n%s", exception.what(), ToText(data, length).c_str());
        error = EXCEPTION_CAUGHT;
    }

    if (error != HANDLED)
        HandleError(error, stream, data, length);
    return 0;
}

// A stream that cannot tell how much it holds is read no further, and neither is one that holds nothing: after a wait
// this is its end. What is pending stays then; it goes when a read brings nothing, since its rest will not come.
bool MessageProcessor::ProcessMessages(Stream& stream)
{
    unsigned long long available = 0;
    if (!stream.IsDataAvailable(&available) || available == 0)
        return false;

    std::vector<unsigned char> bytes(static_cast<unsigned>(available));
    int const count = stream.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
    if (count < 1) {
        pending_.clear();
        return false;
    }
    return ProcessMessages(stream, bytes.data(), static_cast<unsigned>(count));
}

namespace {

Bytes FindAny(MessageProcessor::ByteSpan const& delimiter, Bytes data, Bytes end)
{
    while (static_cast<std::size_t>(end - data) >= delimiter.second) {
        void const* const found = std::memchr(data, delimiter.first[0], static_cast<std::size_t>(end - data));
        auto const* const hit = static_cast<Bytes>(found);
        if (hit == nullptr || static_cast<std::size_t>(end - hit) < delimiter.second)
            return nullptr;
        if (std::memcmp(hit, delimiter.first, delimiter.second) == 0)
            return hit;
        data = hit + 1;
    }
    return nullptr;
}

}  // namespace

unsigned char const* MessageProcessor::FindDelimiter(unsigned char const* data, unsigned length) const
{
    if (data == nullptr || length == 0)
        return nullptr;

    return Find(GetDelimiter(), data, data + length);
}

bool MessageProcessor::WellFormedMessage(std::vector<unsigned char> const& message) const
{
    ByteSpan const delimiter = GetDelimiter();
    return message.size() >= delimiter.second &&
           std::memcmp(message.data() + message.size() - delimiter.second, delimiter.first, delimiter.second) == 0;
}

bool MessageProcessor::IsValidMessage(std::string const& /*name*/) const
{
    return false;
}

void MessageProcessor::HandleMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/,
                                     xercesc::DOMNode const& /*element*/) const
{}

void MessageProcessor::HandleError(int /*code*/, Stream& /*stream*/, unsigned char const* /*data*/,
                                   unsigned /*length*/) const
{}

MessageProcessor::ByteSpan MessageProcessor::GetDelimiter() const
{
    static unsigned char const delimiter = 0x00;
    return ByteSpan(&delimiter, 1);
}

}}  // namespace tovu::util
