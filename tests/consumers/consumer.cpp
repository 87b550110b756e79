// What a program outside does with the library: takes a message, has a pool of threads, and sees an exception of the library
// and one of a header. What it prints is in expected.txt.

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/JobQueue.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

using namespace tovu::util;

namespace {

class PrintNames : public MessageProcessor
{
    bool IsValidMessage(std::string const& /*name*/) const override { return true; }
    void HandleMessage(Stream& /*stream*/, unsigned char const* /*bytes*/, unsigned /*length*/,
                       xercesc::DOMNode const& element) const override
    {
        std::printf("message %s\n", XMLCh2string(element.getNodeName()).c_str());
    }
};

// Sends itself a message through a pipe.
void TakeMessage()
{
    int ends[2];
    if (Pipe::CreatePipe(ends) != 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    Pipe reading(ends[0]);
    Pipe writing(ends[1]);
    char const message[] = "<Hello/>";
    writing.Write(message, sizeof message);  // with the zero byte that ends it
    writing.Close();
    PrintNames().ReadMessages(reading);
}

void WriteToReadingEnd()
{
    Pipe reading(open("/dev/null", O_RDONLY));
    reading.Write("", 1);
}

void ReadFromSender()
{
    ClientBroadcastSocket(Socket::Address(4711, INADDR_LOOPBACK), true).Read(nullptr, 0);
}

void PrintReport(void (*action)())
{
    try {
        action();
    } catch (Exception const& exception) {
        std::puts(exception.Report().c_str());
    }
}

}  // namespace

int main()
{
    xercesc::XMLPlatformUtils::Initialize();
    PrintReport(TakeMessage);
    JobQueue queue(1, 0);
    std::printf("job %s\n", queue.Cancel("nobody") ? "cancelled" : "not found");
    PrintReport(WriteToReadingEnd);
    PrintReport(ReadFromSender);
    xercesc::XMLPlatformUtils::Terminate();
}
