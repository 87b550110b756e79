// A plug-in of volumed: answers GetUptime with how long the machine has been running.

#include "common/MessageHandler.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/Format.h"

namespace volume { namespace {

using namespace tovu::util;

// The first number of /proc/uptime, see proc(5): seconds, with two decimals.
std::string Uptime()
{
    char text[64] = "";
    FileStream file;
    file.Open("/proc/uptime", "re");
    file.Read(text, sizeof(text) - 1);
    std::string const line = text;
    return line.substr(0, line.find(' '));
}

class UptimeHandler : public MessageHandler
{
public:
    std::string GetName() const override { return "GetUptime"; }

    std::string Handle(xercesc::DOMNode const& /*element*/) const override
    {
        return FormatString(R"(<Uptime seconds="%s"/>)", Uptime().c_str());
    }
};

}}  // namespace volume

extern "C" volume::MessageHandler* CreateMessageHandler();

extern "C" volume::MessageHandler* CreateMessageHandler()
{
    return new volume::UptimeHandler;
}
