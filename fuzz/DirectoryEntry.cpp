// Entries of folders, to XML and back. An input that begins as a document is one; any other is the fields of an entry.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <string>
#include <xercesc/dom/DOMElement.hpp>

#include "DirectoryXml.h"
#include "Fuzz.h"
#include "Xml.h"
#include "tovu/util/Directory.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace fuzz { namespace {

using Entry = util::Directory::Entry;

// True for a name that every locale can hold, and every document.
bool IsPlain(std::string const& name)
{
    return std::all_of(name.begin(), name.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
}

// What is read back: links have no text, and sizes are read as signed numbers.
Entry Returned(Entry const& entry)
{
    constexpr std::uint64_t LARGEST = std::numeric_limits<std::int64_t>::max();
    Entry returned = entry;
    returned.type = entry.type == Entry::TYPE_FILE || entry.type == Entry::TYPE_FOLDER ? entry.type : 0;
    returned.size = std::min(entry.size, LARGEST);
    return returned;
}

void RequireSame(Entry const& expected, Entry const& actual)
{
    Require(expected.type == actual.type, "the type comes back");
    Require(expected.lastStatusDate == actual.lastStatusDate && expected.lastAccessedDate == actual.lastAccessedDate &&
                expected.lastModifiedDate == actual.lastModifiedDate,
            "the dates come back");
    Require(expected.size == actual.size, "the size comes back");
    RequireEqual(expected.name, actual.name, "the name comes back");
}

Entry Read(std::string const& document)
{
    Entry entry;
    entry.Parse(test::ParsedXml(document).Root());
    return entry;
}

void CheckTheWayBack(Entry const& entry)
{
    Entry escaped = entry;
    escaped.name = util::EncodeXMLCharEntities(entry.name);
    if (IsPlain(entry.name)) {
        RequireSame(Returned(entry), Read(escaped.ToString(0)));
        if (entry.name.find_first_of("\"&<") == std::string::npos)
            RequireSame(Returned(entry), Read(entry.ToString(1)));
        return;
    }

    try {
        Read(entry.ToString(0));  // a name that stands there as it is may break the document, and nothing else
    } catch (std::exception const&) {
        return;
    }
}

void CheckFields(Input& input)
{
    Entry entry;
    entry.type = static_cast<int>(input.TakeNumber(1)) - 1;
    entry.lastStatusDate = static_cast<std::int32_t>(input.TakeNumber(4));
    entry.lastAccessedDate = static_cast<std::int32_t>(input.TakeNumber(4));
    entry.lastModifiedDate = static_cast<std::int32_t>(input.TakeNumber(4));
    entry.size = input.TakeNumber(8);
    entry.name = input.TakeRest();
    CheckTheWayBack(entry);
}

void CheckDocument(std::string const& document)
{
    try {
        Entry const entry = Read(document);
        Require(entry.type >= Entry::TYPE_INVALID && entry.type <= Entry::TYPE_FOLDER, "links are not read");
        CheckTheWayBack(entry);
    } catch (std::exception const&) {
        return;
    } catch (xercesc::DOMException const&) {
        return;
    } catch (xercesc::XMLException const&) {
        return;
    }
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    XmlPlatform::Use();
    Input input(data, size);
    if (size != 0 && data[0] == '<')
        CheckDocument(input.TakeRest());
    else
        CheckFields(input);
    return 0;
}
