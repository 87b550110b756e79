#include "PlainText.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <vector>
#include <xercesc/dom/DOMNode.hpp>

#include "common/XmlText.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/Directory.h"
#include "tovu/util/Format.h"

namespace volume {

using namespace tovu::util;
using xercesc::DOMNode;

namespace {

char const* const UNITS[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

std::string Line(char const* label, std::string const& value)
{
    return FormatString("%-12s%s\n", label, value.c_str());
}

std::string Info(DOMNode const& element)
{
    return Line("host", AttributeText(element, "hostName")) + Line("process", AttributeText(element, "processId")) +
           Line("version", AttributeText(element, "version"));
}

std::string Date(std::int32_t seconds)
{
    time_t const when = seconds;
    tm local = {};
    char text[32] = "";
    localtime_r(&when, &local);
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M", &local);
    return text;
}

// One line for each entry, by name.
std::string Listing(DOMNode const& element)
{
    std::vector<Directory::Entry> entries;
    for (DOMNode const* node = element.getFirstChild(); node != nullptr; node = node->getNextSibling()) {
        if (node->getNodeType() != DOMNode::ELEMENT_NODE)
            continue;
        Directory::Entry entry;
        entry.Parse(*node);
        entry.name = AttributeText(*node, "name");  // Parse gives it in the terminal's encoding, which may lack letters
        entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end(),
              [](Directory::Entry const& left, Directory::Entry const& right) { return left.name < right.name; });

    std::string text;
    for (Directory::Entry const& entry : entries) {
        bool const special = entry.type == Directory::Entry::TYPE_INVALID;
        text += FormatString(
            "%-7s %14llu  %s  %s\n", special ? "other" : Directory::Entry::type2string(entry.type).c_str(),
            static_cast<unsigned long long>(entry.size), Date(entry.lastModifiedDate).c_str(), entry.name.c_str());
    }
    return text;
}

std::string Status(DOMNode const& element)
{
    std::string const bytes = AttributeText(element, "freeSpace");
    return Line("volume", AttributeText(element, "volume")) +
           Line("free space", ReadableSize(std::strtoull(bytes.c_str(), nullptr, 10))) +
           Line("status", AttributeText(element, "status")) + Line("action", AttributeText(element, "action"));
}

std::string Guids(DOMNode const& element)
{
    std::string text;
    for (DOMNode const* node = element.getFirstChild(); node != nullptr; node = node->getNextSibling())
        text += Utf8(node->getTextContent()) + "\n";
    return text;
}

std::string Job(DOMNode const& element)
{
    std::string const name = "job " + AttributeText(element, "name");
    std::string const status = AttributeText(element, "status");
    if (!AttributeText(element, "cancelled").empty())
        return name + " was cancelled\n";
    switch (std::strtol(AttributeText(element, "result").c_str(), nullptr, 10)) {
        case ChildProcess::RESULT_SUCCESS:
            return name + " succeeded\n";
        case ChildProcess::RESULT_FAILURE:
            return name + " failed with exit code " + status + "\n";
        case ChildProcess::RESULT_SIGNAL:
            return name + " was ended by signal " + status + "\n";
        default:
            return name + " could not be started\n";
    }
}

std::string Echo(DOMNode const& element)
{
    return Utf8(element.getTextContent()) + "\n";
}

std::string Cancelled(DOMNode const& element)
{
    return "job " + AttributeText(element, "name") + " is cancelled\n";
}

std::string File(DOMNode const& element)
{
    return AttributeText(element, "name") + "\n";
}

struct KnownAnswer
{
    char const* name;
    std::string (*describe)(DOMNode const&);  // cppcheck-suppress unusedStructMember ; called by PlainText
};

KnownAnswer const ANSWERS[] = {{"Echo", &Echo},   {"Info", &Info}, {"Listing", &Listing},     {"Status", &Status},
                               {"Guids", &Guids}, {"Job", &Job},   {"Cancelled", &Cancelled}, {"File", &File}};

}  // namespace

bool PlainText(DOMNode const& element, std::string& text)
{
    std::string const name = Utf8(element.getNodeName());
    auto const* const known = std::find_if(std::begin(ANSWERS), std::end(ANSWERS),
                                           [&name](KnownAnswer const& answer) { return name == answer.name; });
    if (known == std::end(ANSWERS))
        return false;
    text = known->describe(element);
    return true;
}

std::string ReadableSize(unsigned long long bytes)
{
    if (bytes < 1024)
        return std::to_string(bytes) + " bytes";

    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; size >= 1024; ++unit)
        size /= 1024;
    return FormatString("%.1f %s", size, UNITS[unit]);
}

}  // namespace volume
