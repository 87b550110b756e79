#include "tovu/util/Directory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "AllocationCounter.h"
#include "DirectoryFixture.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

// Longer than what a string holds in itself.
std::string const NAME = "a-picture-of-the-mill.jpg";

class DirectoryCosts : public test::DirectoryFixture
{};

TEST_F(DirectoryCosts, AnEntryIsItsMembers)
{
    struct Members
    {
        int type;
        std::string name;
        std::int32_t dates[3];
        std::uint64_t size;
    };
    EXPECT_EQ(sizeof(Members), sizeof(Directory::Entry));
}

TEST_F(DirectoryCosts, AFolderIsOneBlockForItsPath)
{
    AllocationCounter const counter;
    Directory const folder(path_);
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(path_.size() + 1, counter.Bytes());
}

// What holds the names has been allocated by the first round: an entry that is used again grows no more.
TEST_F(DirectoryCosts, AnEntryOfAWalkIsOneBlockForItsPath)
{
    MakeFile(NAME);
    MakeFile("the-other-" + NAME);
    Directory folder(path_);
    Directory::Entry entry;
    for (bool more = folder.GetFirstEntry(entry); more; more = folder.GetNextEntry(entry))
        EXPECT_FALSE(entry.name.empty());

    AllocationCounter const counter;
    std::size_t entries = 0;
    for (bool more = folder.GetFirstEntry(entry); more; more = folder.GetNextEntry(entry))
        ++entries;
    EXPECT_EQ(4U, entries);
    EXPECT_EQ(entries, counter.Blocks());
    EXPECT_EQ(0, counter.HeldBytes());
}

TEST_F(DirectoryCosts, AnEntryOfAPathIsOneBlockForItsName)
{
    MakeFile(NAME);
    std::string const path = In(NAME);

    AllocationCounter const counter;
    Directory::Entry const entry(path);
    EXPECT_EQ(1U, counter.Blocks());
    EXPECT_EQ(NAME, entry.name);
}

TEST_F(DirectoryCosts, AnElementIsOneBlockAndTheEncodedName)
{
    Directory::Entry entry;
    entry.name = NAME;

    AllocationCounter const counter;
    std::string const text = entry.ToString(0);
    EXPECT_EQ(2U, counter.Blocks());
    EXPECT_LE(counter.HeldBytes(), static_cast<std::ptrdiff_t>(162 + NAME.size() + 1));
}

// The longest numbers but for a size of more than fifteen digits, whose text would be a block of its own.
TEST_F(DirectoryCosts, AnElementWithAShortNameIsOneBlock)
{
    Directory::Entry entry;
    entry.name = "short";
    entry.lastStatusDate = entry.lastAccessedDate = entry.lastModifiedDate = INT32_MIN;
    entry.size = 999999999999999;

    AllocationCounter const counter;
    std::string const text = entry.ToString(0);
    EXPECT_EQ(1U, counter.Blocks());
}

}}}  // namespace tovu::util
