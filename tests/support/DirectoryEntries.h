#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tovu/util/Directory.h"

namespace tovu { namespace test {

typedef std::vector<std::string> Names;

/// All fields of an entry in one text, in their order.
inline std::string Text(util::Directory::Entry const& entry)
{
    std::string text = std::to_string(entry.type) + " '" + entry.name + "'";
    for (std::int32_t const date : {entry.lastStatusDate, entry.lastAccessedDate, entry.lastModifiedDate})
        text += " " + std::to_string(date);
    return text + " " + std::to_string(entry.size);
}

/// The text of an entry that could not be examined.
constexpr char const* EMPTY = "0 '' -1 -1 -1 0";

/// The text of an entry for a file of which the system says this. Its dates fit into 32 bits.
inline std::string Expected(int type, std::string const& name, struct statx const& status)
{
    return std::to_string(type) + " '" + name + "' " + std::to_string(status.stx_ctime.tv_sec) + " " +
           std::to_string(status.stx_atime.tv_sec) + " " + std::to_string(status.stx_mtime.tv_sec) + " " +
           std::to_string(status.stx_size);
}

/// An entry with the dates 10, 20 and 30 and the size 40.
inline util::Directory::Entry MakeEntry(int type, std::string const& name)
{
    util::Directory::Entry entry;
    entry.type = type;
    entry.name = name;
    entry.lastStatusDate = 10;
    entry.lastAccessedDate = 20;
    entry.lastModifiedDate = 30;
    entry.size = 40;
    return entry;
}

/// What stands in an entry before a call that may leave it unchanged.
inline util::Directory::Entry Untouched()
{
    return MakeEntry(17, "untouched");
}

/// What GetEntry makes of an item of this name.
inline util::Directory::Entry EntryOf(util::Directory const& folder, std::string const& name)
{
    dirent item = {};
    EXPECT_LT(name.size(), sizeof(item.d_name));
    std::memcpy(item.d_name, name.data(), name.size());
    util::Directory::Entry entry = Untouched();
    folder.GetEntry(item, entry);
    return entry;
}

inline std::vector<util::Directory::Entry> Walk(util::Directory& folder)
{
    std::vector<util::Directory::Entry> entries;
    util::Directory::Entry entry;
    for (bool more = folder.GetFirstEntry(entry); more; more = folder.GetNextEntry(entry))
        entries.push_back(entry);
    return entries;
}

inline Names NamesOf(std::vector<util::Directory::Entry> const& entries)
{
    Names names;
    for (util::Directory::Entry const& entry : entries)
        names.push_back(entry.name);
    return names;
}

inline Names Sorted(Names names)
{
    std::sort(names.begin(), names.end());
    return names;
}

/// The names that a walk gives, sorted.
inline Names SortedNames(util::Directory& folder)
{
    return Sorted(NamesOf(Walk(folder)));
}

}}  // namespace tovu::test
