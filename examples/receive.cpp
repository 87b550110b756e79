// Waits for one client on receive.sock, and prints the name of every message that it sends until it leaves.
#include <cstdio>
#include <memory>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "tovu/util/MessageProcessor.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/XercesUtils.h"

using namespace tovu::util;

class PrintNames : public MessageProcessor
{
    bool IsValidMessage(std::string const& /*name*/) const override { return true; }
    void HandleMessage(Stream& /*stream*/, unsigned char const* /*bytes*/, unsigned /*length*/,
                       xercesc::DOMNode const& element) const override
    {
        std::printf("%s\n", XMLCh2string(element.getNodeName()).c_str());
    }
};

int main()
{
    xercesc::XMLPlatformUtils::Initialize();
    ServerSocket listener(Socket::Address("receive.sock"), SOMAXCONN, true);
    std::unique_ptr<Socket> client(listener.Accept());
    PrintNames().ReadMessages(*client);
}
