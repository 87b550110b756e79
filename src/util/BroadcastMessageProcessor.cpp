#include "tovu/util/BroadcastMessageProcessor.h"

#include <exception>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "tovu/util/Exception.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util {

namespace {

// What became of a message; all but the first are the codes of HandleError.
constexpr int HANDLED = -1;
constexpr int NAME_REFUSED = 0;
constexpr int NO_DOCUMENT_ELEMENT = 1;
constexpr int EXCEPTION_CAUGHT = 3;

}  // namespace

void BroadcastMessageProcessor::ReadMessages(ServerBroadcastSocket& socket)
{
    try {
        while (!__atomic_load_n(&stop_, __ATOMIC_ACQUIRE)) {
            StreamSelector selector;
            selector.AddStreamForReading(socket);
            if (!selector.Select())
                continue;
            if (!selector.IsStreamReadyForReading(socket))
                continue;
            if (!ProcessMessage(socket))
                return;
        }
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

void BroadcastMessageProcessor::SetStop(bool stop)
{
    __atomic_store_n(&stop_, stop, __ATOMIC_RELEASE);
}

// One wait and one datagram, for an owner with a loop of its own. The stop flag is not looked at: an owner who calls
// this has decided to read. A wait that a signal cuts short is not repeated, so that such a loop can look at what the
// signal was about.
bool BroadcastMessageProcessor::ReadMessage(ServerBroadcastSocket& socket)
{
    try {
        StreamSelector selector;
        selector.AddStreamForReading(socket);
        if (!selector.Select())
            return false;
        if (!selector.IsStreamReadyForReading(socket))
            return false;
        return ProcessMessage(socket);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

namespace {

// A datagram for the log, up to its first zero byte.
std::string ToText(unsigned char const* data, unsigned length)
{
    return std::string(reinterpret_cast<char const*>(data), length);
}

}  // namespace

// As MessageProcessor::ParseMessage, less the hex dump.
void BroadcastMessageProcessor::ParseMessage(ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                                             Socket::Address const& sender) const
{
    if (length == 0)
        return;

    int error = HANDLED;
    try {
        TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "%s", ToText(data, length).c_str());

        XercesErrorHandler errorHandler;
        xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
        parser.setErrorHandler(&errorHandler);
        xercesc::MemBufInputSource source(data, length, "", false, xercesc::XMLPlatformUtils::fgMemoryManager);
        parser.parse(source);

        xercesc::DOMDocument const* const document = parser.getDocument();
        xercesc::DOMElement const* const element = document != nullptr ? document->getDocumentElement() : nullptr;
        std::string const name = element != nullptr ? XMLCh2string(element->getNodeName()) : std::string();
        if (element != nullptr && IsValidMessage(name)) {
            HandleMessage(socket, data, length, *element, sender);
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
        HandleError(error, socket, data, length, sender);
}

// The count comes from the kernel, so the buffer has the size of the datagram and nothing is cut off. The address is
// made from the port number, taken for an address family: kept so, and of no effect, since the read fills it.
bool BroadcastMessageProcessor::ProcessMessage(ServerBroadcastSocket& socket)
{
    unsigned long long available = 0;
    if (!socket.IsDataAvailable(&available) || available == 0)
        return false;

    std::vector<unsigned char> bytes(static_cast<unsigned>(available));
    Socket::Address sender(socket.GetHostAddress().GetPort());
    sender.length = sizeof(sender.address);
    int const count = socket.Read(bytes.data(), static_cast<unsigned>(bytes.size()), sender);
    if (count < 1)
        return false;

    ParseMessage(socket, bytes.data(), static_cast<unsigned>(count), sender);
    return true;
}

BroadcastMessageProcessor::BroadcastMessageProcessor() = default;

BroadcastMessageProcessor::~BroadcastMessageProcessor() = default;

bool BroadcastMessageProcessor::IsValidMessage(std::string const& /*name*/) const
{
    return false;
}

void BroadcastMessageProcessor::HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/,
                                              unsigned /*length*/, xercesc::DOMNode const& /*element*/,
                                              Socket::Address const& /*sender*/) const
{}

void BroadcastMessageProcessor::HandleError(int /*code*/, ServerBroadcastSocket& /*socket*/,
                                            unsigned char const* /*data*/, unsigned /*length*/,
                                            Socket::Address const& /*sender*/) const
{}

}}  // namespace tovu::util
