#include "Request.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>

#include "LocalError.h"
#include "common/UsageError.h"
#include "common/XmlText.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

namespace volume {

using tovu::util::Exception;
using tovu::util::FileHandleStream;
using tovu::util::Pipe;
using tovu::util::Stream;

namespace {

// The commands that send one element with at most one attribute. A `get` may name the file to write on top.
struct Command
{
    char const* name;
    char const* element;
    char const* attribute;  // null for none
    std::size_t leastArguments;
    std::size_t mostArguments;
};

Command const COMMANDS[] = {{"info", "GetInfo", nullptr, 0, 0},   {"list", "List", "path", 1, 1},
                            {"status", "Status", "volume", 1, 1}, {"guid", "MakeGuid", "count", 0, 1},
                            {"run", "RunJob", "name", 1, 1},      {"cancel", "CancelJob", "name", 1, 1},
                            {"get", "Send", "path", 1, 2}};

std::string ReadToEnd(Stream& stream)
{
    std::string text;
    char buffer[65536];
    for (int count = 0; (count = stream.Read(buffer, sizeof(buffer))) != 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    return text;
}

std::string ReadDocument(std::string const& path)
{
    try {
        if (path == "-") {
            // Not opened again by name: that takes rights of its own, and begins at the start.
            Pipe input(dup(STDIN_FILENO));
            if (!input.IsOpen())
                throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
            return ReadToEnd(input);
        }
        FileHandleStream file;
        file.Open(path, O_RDONLY, 0);
        return ReadToEnd(file);
    } catch (Exception const& exception) {
        throw LocalError(EX_NOINPUT, "cannot read " + path + ": " + exception.what());
    }
}

// A zero byte ends a message: a document cannot hold one, and an empty one is dropped without an answer.
std::string OneMessage(std::string const& document)
{
    if (document.empty())
        throw LocalError(EX_DATAERR, "the document is empty");
    if (document.find('\0') != std::string::npos)
        throw LocalError(EX_DATAERR, "the document holds a zero byte, which ends a message");
    return document;
}

}  // namespace

std::string RequestFor(std::vector<std::string> const& command)
{
    std::string const& name = command.front();
    std::size_t const arguments = command.size() - 1;
    if (name == "echo" && arguments == 1)
        return "<Echo>" + tovu::util::EncodeXMLCharEntities(command[1]) + "</Echo>";
    if (name == "send" && arguments == 1)
        return OneMessage(ReadDocument(command[1]));

    for (Command const& known : COMMANDS) {
        if (name != known.name || arguments < known.leastArguments || arguments > known.mostArguments)
            continue;
        if (arguments == 0)
            return std::string("<") + known.element + "/>";
        return std::string("<") + known.element + " " + known.attribute + "=\"" + EscapeAttribute(command[1]) + "\"/>";
    }
    throw UsageError("'" + name + "' is no command, or its arguments are wrong");
}

}  // namespace volume
