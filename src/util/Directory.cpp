#include "tovu/util/Directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "FileSystem.h"
#include "tovu/util/Format.h"
#include "tovu/util/Path.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util {

constexpr int Directory::Entry::TYPE_INVALID;
constexpr int Directory::Entry::TYPE_FILE;
constexpr int Directory::Entry::TYPE_FOLDER;
constexpr int Directory::Entry::TYPE_LINK;

namespace {

constexpr std::int32_t NO_DATE = -1;
constexpr char const* FILE_TEXT = "file";
constexpr char const* FOLDER_TEXT = "folder";
constexpr char const* INVALID_TEXT = "invalid";
constexpr std::size_t LONGEST_MARKUP = 162;  // of an entry as XML, without the name

int Mode2Type(unsigned mode)
{
    switch (mode & S_IFMT) {
        case S_IFREG:
            return Directory::Entry::TYPE_FILE;
        case S_IFDIR:
            return Directory::Entry::TYPE_FOLDER;
        case S_IFLNK:
            return Directory::Entry::TYPE_LINK;
        default:
            return Directory::Entry::TYPE_INVALID;
    }
}

// The three dates, which a folder and its entries have in common.
template <typename Dated>
void SetDates(Dated& dated, internal::FileStatus const& status)
{
    dated.lastStatusDate = status.lastStatusDate;
    dated.lastAccessedDate = status.lastAccessedDate;
    dated.lastModifiedDate = status.lastModifiedDate;
}

void SetStatus(Directory::Entry& entry, internal::FileStatus const& status)
{
    entry.type = Mode2Type(status.mode);
    SetDates(entry, status);
    entry.size = status.size;
}

// A `long` holds more than 32 bits on some builds; what does not fit is cut to the nearest date on all of them.
std::int32_t ParseDate(std::string const& text)
{
    using Limits = std::numeric_limits<std::int32_t>;
    long const seconds = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<std::int32_t>(std::min<long>(std::max<long>(seconds, Limits::min()), Limits::max()));
}

}  // namespace

Directory::Directory(std::string const& path)
    : path_(path), lastStatusDate(NO_DATE), lastAccessedDate(NO_DATE), lastModifiedDate(NO_DATE)
{
    internal::FileStatus status;
    if (internal::QueryFile(path_, status))
        SetDates(*this, status);
}

Directory::~Directory()
{
    Close();
}

bool Directory::GetFirstEntry(Entry& entry)
{
    Close();
    stream_ = opendir(path_.c_str());
    return GetNextEntry(entry);
}

bool Directory::GetNextEntry(Entry& entry)
{
    char const* const name = stream_ != nullptr ? internal::NextName(stream_) : nullptr;
    if (name == nullptr)
        return false;

    entry.name = name;  // where it belongs in the end: no text of its own is made for it
    Describe(entry.name, entry);
    return true;
}

void Directory::Describe(std::string const& name, Entry& entry) const
{
    internal::FileStatus status;
    if (!internal::QueryLink(MakePath(path_, name), status)) {
        entry = Entry::Empty;
        return;
    }
    entry.name = name;
    SetStatus(entry, status);
}

void Directory::Close()
{
    if (stream_ == nullptr)
        return;

    closedir(stream_);
    stream_ = nullptr;
}

Directory::Entry const Directory::Entry::Empty;

Directory::Entry::Entry() noexcept
    : type(TYPE_INVALID), lastStatusDate(NO_DATE), lastAccessedDate(NO_DATE), lastModifiedDate(NO_DATE), size(0)
{}

Directory::Entry::Entry(std::string const& path) : Entry()
{
    internal::FileStatus status;
    if (!internal::QueryFile(path, status))
        return;
    name = Path(path).GetFullFileName();
    SetStatus(*this, status);
}

std::string Directory::Entry::type2string(int type)
{
    switch (type) {
        case TYPE_FILE:
            return FILE_TEXT;
        case TYPE_FOLDER:
            return FOLDER_TEXT;
        default:
            return INVALID_TEXT;
    }
}

int Directory::Entry::string2type(std::string const& text)
{
    if (text == FILE_TEXT)
        return TYPE_FILE;
    if (text == FOLDER_TEXT)
        return TYPE_FOLDER;
    return TYPE_INVALID;
}

std::string Directory::Entry::ToString(int /*indent*/) const
{
    std::string text;
    text.reserve(LONGEST_MARKUP + name.size());
    text.append("<Entry type = \"").append(type2string(type));
    text.append("\" name = \"").append(Encodestring(name));
    text.append("\" lastStatusDate = \"").append(std::to_string(lastStatusDate));
    text.append("\" lastAccessedDate = \"").append(std::to_string(lastAccessedDate));
    text.append("\" lastModifiedDate = \"").append(std::to_string(lastModifiedDate));
    text.append("\" size = \"").append(std::to_string(size));
    text.append("\"/>");
    return text;
}

void Directory::Entry::Parse(xercesc::DOMNode const& node)
{
    xercesc::DOMNamedNodeMap const* const attributes = node.getAttributes();
    Entry parsed;
    parsed.type = string2type(GetAttributeValue("type", attributes));
    parsed.name = Decodestring(GetAttributeValue("name", attributes));
    parsed.lastStatusDate = ParseDate(GetAttributeValue("lastStatusDate", attributes));
    parsed.lastAccessedDate = ParseDate(GetAttributeValue("lastAccessedDate", attributes));
    parsed.lastModifiedDate = ParseDate(GetAttributeValue("lastModifiedDate", attributes));
    parsed.size = static_cast<std::uint64_t>(std::strtoll(GetAttributeValue("size", attributes).c_str(), nullptr, 10));
    *this = std::move(parsed);
}

}}  // namespace tovu::util
