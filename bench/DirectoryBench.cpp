// What does a listing cost beyond readdir and lstat by path, and beside what else lists folders? All gather the same of
// each item: kind, name, three dates and size. The others know one date only, so a program that needs all asks the system
// for each path that they name; their own way, which lacks two dates, is measured as well.
// Second: what does an entry's XML element cost, and its way back?

#include "tovu/util/Directory.h"

#include <Poco/DirectoryIterator.h>
#include <Poco/File.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

using tovu::util::Directory;

namespace {

// A folder with files of different sizes, removed at the end.
class Folder
{
public:
    explicit Folder(int files) : files_(files)
    {
        if (mkdtemp(path_) == nullptr)
            throw std::runtime_error("no folder for the files to list");
        for (int i = 0; i < files_; ++i)
            std::ofstream(File(i)) << std::string(static_cast<std::size_t>(i % 100), 'x');
    }

    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    ~Folder()
    {
        for (int i = 0; i < files_; ++i)
            unlink(File(i).c_str());
        rmdir(path_);
    }

    char const* Path() const { return path_; }

private:
    std::string File(int number) const { return std::string(path_) + "/picture-" + std::to_string(number) + ".jpg"; }

    int files_;
    char path_[sizeof("/tmp/listed.XXXXXX")] = "/tmp/listed.XXXXXX";
};

Folder const& FolderOf(int files)
{
    static std::map<int, std::unique_ptr<Folder>> folders;
    std::unique_ptr<Folder>& folder = folders[files];
    if (!folder)
        folder = std::make_unique<Folder>(files);
    return *folder;
}

// What a walk has seen, "." and ".." left out: not all show them.
struct Sums
{
    long items = 0;
    unsigned long long nameBytes = 0;
    unsigned long long bytes = 0;
    long long dates = 0;
    long long kinds = 0;

    void Add(Directory::Entry const& entry)
    {
        if (entry.name == "." || entry.name == "..")
            return;
        ++items;
        nameBytes += entry.name.size();
        bytes += entry.size;
        dates += static_cast<long long>(entry.lastStatusDate) + entry.lastAccessedDate + entry.lastModifiedDate;
        kinds += entry.type;
    }
};

bool operator==(Sums const& left, Sums const& right)
{
    return left.items == right.items && left.nameBytes == right.nameBytes && left.bytes == right.bytes &&
           left.dates == right.dates && left.kinds == right.kinds;
}

// ---- Walks.

Sums WalkOurs(char const* path)
{
    Sums sums;
    Directory folder(path);
    Directory::Entry entry;
    for (bool more = folder.GetFirstEntry(entry); more; more = folder.GetNextEntry(entry))
        sums.Add(entry);
    return sums;
}

int KindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return Directory::Entry::TYPE_FILE;
    if (S_ISDIR(mode))
        return Directory::Entry::TYPE_FOLDER;
    return S_ISLNK(mode) ? Directory::Entry::TYPE_LINK : Directory::Entry::TYPE_INVALID;
}

void Describe(char const* path, char const* name, Directory::Entry& entry)
{
    struct stat status = {};
    if (lstat(path, &status) != 0)
        throw std::runtime_error("a file to list is gone");
    entry.type = KindOf(status.st_mode);
    entry.name = name;
    entry.lastStatusDate = static_cast<std::int32_t>(status.st_ctime);
    entry.lastAccessedDate = static_cast<std::int32_t>(status.st_atime);
    entry.lastModifiedDate = static_cast<std::int32_t>(status.st_mtime);
    entry.size = static_cast<std::uint64_t>(status.st_size);
}

Sums WalkBare(char const* path)
{
    Sums sums;
    Directory::Entry entry;
    char item[PATH_MAX];
    std::size_t const start = static_cast<std::size_t>(std::snprintf(item, sizeof(item), "%s/", path));
    DIR* const folder = opendir(path);
    while (dirent const* const found = readdir(folder)) {
        std::strcpy(item + start, found->d_name);
        Describe(item, found->d_name, entry);
        sums.Add(entry);
    }
    closedir(folder);
    return sums;
}

Sums WalkStandard(char const* path)
{
    Sums sums;
    Directory::Entry entry;
    for (std::filesystem::directory_entry const& item : std::filesystem::directory_iterator(path)) {
        Describe(item.path().c_str(), item.path().filename().c_str(), entry);
        sums.Add(entry);
    }
    return sums;
}

Sums WalkBoost(char const* path)
{
    Sums sums;
    Directory::Entry entry;
    for (boost::filesystem::directory_entry const& item : boost::filesystem::directory_iterator(path)) {
        Describe(item.path().c_str(), item.path().filename().c_str(), entry);
        sums.Add(entry);
    }
    return sums;
}

Sums WalkPoco(char const* path)
{
    Sums sums;
    Directory::Entry entry;
    for (Poco::DirectoryIterator item(std::string{path}), end; item != end; ++item) {
        Describe(item->path().c_str(), item.name().c_str(), entry);
        sums.Add(entry);
    }
    return sums;
}

template <Sums (*Walk)(char const*)>
void List(benchmark::State& state)
{
    char const* const path = FolderOf(static_cast<int>(state.range(0))).Path();
    if (!(Walk(path) == WalkBare(path)))
        state.SkipWithError("this walk sees something else");
    for (auto _ : state)
        benchmark::DoNotOptimize(Walk(path));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(List, WalkOurs)->Name("Directory_Walk_AllFields/tovuutil")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(List, WalkBare)->Name("Directory_Walk_AllFields/bare")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(List, WalkStandard)->Name("Directory_Walk_AllFields/std")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(List, WalkBoost)->Name("Directory_Walk_AllFields/Boost")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(List, WalkPoco)->Name("Directory_Walk_AllFields/POCO")->Arg(100)->Arg(1000)->Arg(10000);

// ---- Walks by what the other libraries tell themselves: kind, name, size and the one date that they have.

Sums WalkStandardAlone(char const* path)
{
    Sums sums;
    for (std::filesystem::directory_entry const& item : std::filesystem::directory_iterator(path)) {
        bool const file = item.symlink_status().type() == std::filesystem::file_type::regular;
        sums.kinds += file ? Directory::Entry::TYPE_FILE : Directory::Entry::TYPE_INVALID;
        sums.nameBytes += item.path().filename().string().size();
        sums.bytes += item.file_size();
        sums.dates +=
            std::chrono::duration_cast<std::chrono::seconds>(item.last_write_time().time_since_epoch()).count();
        ++sums.items;
    }
    return sums;
}

Sums WalkBoostAlone(char const* path)
{
    Sums sums;
    for (boost::filesystem::directory_entry const& item : boost::filesystem::directory_iterator(path)) {
        bool const file = item.symlink_status().type() == boost::filesystem::regular_file;
        sums.kinds += file ? Directory::Entry::TYPE_FILE : Directory::Entry::TYPE_INVALID;
        sums.nameBytes += item.path().filename().string().size();
        sums.bytes += boost::filesystem::file_size(item.path());
        sums.dates += boost::filesystem::last_write_time(item.path());
        ++sums.items;
    }
    return sums;
}

Sums WalkPocoAlone(char const* path)
{
    Sums sums;
    for (Poco::DirectoryIterator item(std::string{path}), end; item != end; ++item) {
        sums.kinds += item->isFile() ? Directory::Entry::TYPE_FILE : Directory::Entry::TYPE_INVALID;
        sums.nameBytes += item.name().size();
        sums.bytes += item->getSize();
        sums.dates += item->getLastModified().epochTime();
        ++sums.items;
    }
    return sums;
}

template <Sums (*Walk)(char const*)>
void ListAlone(benchmark::State& state)
{
    char const* const path = FolderOf(static_cast<int>(state.range(0))).Path();
    Sums expected = WalkBare(path);
    Sums const seen = Walk(path);
    expected.dates = seen.dates;  // one of three, and std::filesystem has a clock of its own
    if (!(seen == expected))
        state.SkipWithError("this walk sees something else");
    for (auto _ : state)
        benchmark::DoNotOptimize(Walk(path));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(ListAlone, WalkStandardAlone)->Name("Directory_Walk_OneDate/std")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(ListAlone, WalkBoostAlone)->Name("Directory_Walk_OneDate/Boost")->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_TEMPLATE(ListAlone, WalkPocoAlone)->Name("Directory_Walk_OneDate/POCO")->Arg(100)->Arg(1000)->Arg(10000);

// ---- Entries as XML.

Directory::Entry SampleEntry()
{
    Directory::Entry entry;
    entry.type = Directory::Entry::TYPE_FILE;
    entry.name = "picture-0001.jpg";
    entry.lastStatusDate = 1700000001;
    entry.lastAccessedDate = 1700000002;
    entry.lastModifiedDate = 1700000003;
    entry.size = 4567890;
    return entry;
}

void PrintOurs(benchmark::State& state)
{
    Directory::Entry const entry = SampleEntry();
    for (auto _ : state)
        benchmark::DoNotOptimize(entry.ToString(0));
}
BENCHMARK(PrintOurs)->Name("Directory_EntryToString_File/tovuutil");

std::string PrintWithSnprintf(Directory::Entry const& entry)
{
    char text[512];
    int const length = std::snprintf(
        text, sizeof(text),
        "<Entry type = \"%s\" name = \"%s\" lastStatusDate = \"%d\" lastAccessedDate = \"%d\" lastModifiedDate = \"%d\""
        " size = \"%llu\"/>",
        Directory::Entry::type2string(entry.type).c_str(), entry.name.c_str(), entry.lastStatusDate,
        entry.lastAccessedDate, entry.lastModifiedDate, static_cast<unsigned long long>(entry.size));
    return std::string(text, static_cast<std::size_t>(length));
}

std::string PrintWithStream(Directory::Entry const& entry)
{
    std::ostringstream text;
    text << "<Entry type = \"" << Directory::Entry::type2string(entry.type) << "\" name = \"" << entry.name
         << "\" lastStatusDate = \"" << entry.lastStatusDate << "\" lastAccessedDate = \"" << entry.lastAccessedDate
         << "\" lastModifiedDate = \"" << entry.lastModifiedDate << "\" size = \"" << entry.size << "\"/>";
    return text.str();
}

template <std::string (*Print)(Directory::Entry const&)>
void PrintOthers(benchmark::State& state)
{
    Directory::Entry const entry = SampleEntry();
    if (Print(entry) != entry.ToString(0))
        state.SkipWithError("another text");
    for (auto _ : state)
        benchmark::DoNotOptimize(Print(entry));
}
BENCHMARK_TEMPLATE(PrintOthers, PrintWithSnprintf)->Name("Directory_EntryToString_File/snprintf");
BENCHMARK_TEMPLATE(PrintOthers, PrintWithStream)->Name("Directory_EntryToString_File/stream");

// An element's attributes, their names in the parser's characters made once.
void ParseWithParser(xercesc::DOMElement const& element, Directory::Entry& entry)
{
    static XMLCh const* const names[] = {u"type", u"name", u"lastStatusDate", u"lastAccessedDate", u"lastModifiedDate",
                                         u"size"};
    std::string values[6];
    for (std::size_t i = 0; i < 6; ++i) {
        char* value = xercesc::XMLString::transcode(element.getAttributes()->getNamedItem(names[i])->getNodeValue());
        values[i] = value;
        xercesc::XMLString::release(&value);
    }
    entry.type = Directory::Entry::string2type(values[0]);
    entry.name = values[1];
    entry.lastStatusDate = static_cast<std::int32_t>(std::strtol(values[2].c_str(), nullptr, 10));
    entry.lastAccessedDate = static_cast<std::int32_t>(std::strtol(values[3].c_str(), nullptr, 10));
    entry.lastModifiedDate = static_cast<std::int32_t>(std::strtol(values[4].c_str(), nullptr, 10));
    entry.size = static_cast<std::uint64_t>(std::strtoll(values[5].c_str(), nullptr, 10));
}

void ParseOurs(xercesc::DOMElement const& element, Directory::Entry& entry)
{
    entry.Parse(element);
}

template <void (*Parse)(xercesc::DOMElement const&, Directory::Entry&)>
void ParseEntry(benchmark::State& state)
{
    std::string const text = SampleEntry().ToString(0);
    xercesc::XercesDOMParser parser;
    parser.parse(xercesc::MemBufInputSource(reinterpret_cast<XMLByte const*>(text.data()), text.size(), "entry"));
    xercesc::DOMElement const& element = *parser.getDocument()->getDocumentElement();
    Directory::Entry entry;
    for (auto _ : state) {
        Parse(element, entry);
        benchmark::DoNotOptimize(entry);
    }
    if (entry.ToString(0) != text)
        state.SkipWithError("another entry");
}
BENCHMARK_TEMPLATE(ParseEntry, ParseOurs)->Name("Directory_EntryParse_File/tovuutil");
BENCHMARK_TEMPLATE(ParseEntry, ParseWithParser)->Name("Directory_EntryParse_File/Xerces");

}  // namespace
