#include "tovu/util/Directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "ChildOrSkip.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "DigitGroups.h"
#include "DirectoryAccess.h"
#include "DirectoryEntries.h"
#include "DirectoryFixture.h"
#include "DirectoryXml.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "PrivateMember.h"
#include "Throws.h"

namespace tovu { namespace util { namespace {

using test::EMPTY;
using test::EntryOf;
using test::Expected;
using test::MakeEntry;
using test::Names;
using test::NamesOf;
using test::SetDates;
using test::Sorted;
using test::SortedNames;
using test::StatusOf;
using test::Text;
using test::Untouched;
using test::Walk;

typedef Directory::Entry Entry;

constexpr std::int32_t FIRST_SECOND = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t LAST_SECOND = std::numeric_limits<std::int32_t>::max();

static_assert(!std::is_copy_constructible<Directory>::value && !std::is_copy_assignable<Directory>::value, "one owner");
static_assert(!std::is_convertible<std::string, Directory>::value && !std::is_convertible<std::string, Entry>::value,
              "explicit");
static_assert(!std::is_polymorphic<Directory>::value && std::is_nothrow_destructible<Directory>::value, "");
static_assert(!std::is_polymorphic<Entry>::value, "a plain value");
static_assert(std::is_copy_constructible<Entry>::value && std::is_copy_assignable<Entry>::value, "a plain value");
static_assert(std::is_same<decltype(&Directory::GetFirstEntry), bool (Directory::*)(Entry&)>::value, "");
static_assert(std::is_same<decltype(&Directory::GetNextEntry), bool (Directory::*)(Entry&)>::value, "");
static_assert(std::is_same<decltype(&Directory::GetEntry), void (Directory::*)(dirent const&, Entry&) const>::value,
              "");
static_assert(std::is_same<decltype(&Entry::type2string), std::string (*)(int)>::value, "");
static_assert(std::is_same<decltype(&Entry::string2type), int (*)(std::string const&)>::value, "");
static_assert(std::is_same<decltype(&Entry::ToString), std::string (Entry::*)(int) const>::value, "");
static_assert(std::is_same<decltype(&Entry::Parse), void (Entry::*)(xercesc::DOMNode const&)>::value, "");
static_assert(std::is_same<decltype(Entry::Empty), Entry const>::value, "");
static_assert(Entry::TYPE_INVALID == 0 && Entry::TYPE_FILE == 1 && Entry::TYPE_FOLDER == 2 && Entry::TYPE_LINK == 3,
              "kinds travel as numbers in memory");

TOVU_PRIVATE_MEMBER(FolderPath, std::string, Directory, path_);
TOVU_PRIVATE_MEMBER(FolderStream, DIR*, Directory, stream_);

class DirectoryTest : public test::DirectoryFixture
{};

// ---- The folder itself.

std::string DatesOf(Directory const& folder)
{
    return std::to_string(folder.lastStatusDate) + " " + std::to_string(folder.lastAccessedDate) + " " +
           std::to_string(folder.lastModifiedDate);
}

TEST_F(DirectoryTest, TakesTheDatesOfTheFolder)
{
    SetDates(path_, 1000000001, 1000000002);
    EXPECT_EQ(std::to_string(StatusOf(path_).stx_ctime.tv_sec) + " 1000000001 1000000002", DatesOf(Directory(path_)));
}

TEST_F(DirectoryTest, KeepsTheDatesThatItTook)
{
    SetDates(path_, 1000000001, 1000000002);
    Directory folder(path_);
    std::string const dates = DatesOf(folder);
    SetDates(path_, 2000000001, 2000000002);
    Walk(folder);
    folder.Close();
    EXPECT_EQ(dates, DatesOf(folder));
}

TEST_F(DirectoryTest, FollowsALinkToTheFolder)
{
    MakeFile("file");
    SetDates(path_, 1000000001, 1000000002);
    std::string const link = folder_ / "link";
    ASSERT_EQ(0, symlink("listed", link.c_str()));
    SetDates(link, 5, 6);
    Directory folder(link);
    EXPECT_EQ(DatesOf(Directory(path_)), DatesOf(folder));
    EXPECT_EQ((Names{".", "..", "file"}), SortedNames(folder));
}

TEST_F(DirectoryTest, OpensNothingUntilTheWalk)
{
    Directory const folder(path_);
    EXPECT_EQ(0u, Opened());
}

TEST_F(DirectoryTest, AMissingFolderHasNoDatesAndNoEntries)
{
    for (std::string const& path : {folder_ / "missing", std::string()}) {
        Directory folder(path);
        Entry entry = Untouched();
        EXPECT_EQ("-1 -1 -1", DatesOf(folder));
        EXPECT_FALSE(folder.GetFirstEntry(entry));
        EXPECT_FALSE(folder.GetNextEntry(entry));
        EXPECT_EQ(Text(Untouched()), Text(entry));
    }
}

TEST_F(DirectoryTest, AFolderThatIsMadeLaterCanBeWalked)
{
    Directory folder(folder_ / "later");
    ASSERT_EQ(0, mkdir((folder_ / "later").c_str(), 0700));
    EXPECT_EQ((Names{".", ".."}), SortedNames(folder));
    EXPECT_EQ("-1 -1 -1", DatesOf(folder));
}

TEST_F(DirectoryTest, AFileHasDatesButNoEntries)
{
    MakeFile("file");
    SetDates(In("file"), 1000000001, 1000000002);
    Directory folder(In("file"));
    Entry entry = Untouched();
    EXPECT_EQ(1000000001, folder.lastAccessedDate);
    EXPECT_EQ(1000000002, folder.lastModifiedDate);
    EXPECT_FALSE(folder.GetFirstEntry(entry));
    EXPECT_EQ(Text(Untouched()), Text(entry));
}

TEST_F(DirectoryTest, AFolderThatMayNotBeReadHasDatesButNoEntries)
{
    SetDates(path_, 1000000001, 1000000002);
    ASSERT_EQ(0, chmod(path_.c_str(), 0));
    ASSERT_EQ(0, chmod((folder_ / "").c_str(), 0755));
    test::ExpectPassesInChildOrSkips([this] {
        test::BecomeNobody();
        Directory folder(path_);
        Entry entry = Untouched();
        EXPECT_EQ(1000000001, folder.lastAccessedDate);
        EXPECT_FALSE(folder.GetFirstEntry(entry));
        EXPECT_EQ(Text(Untouched()), Text(entry));
    });
    EXPECT_EQ(0, chmod(path_.c_str(), 0700));
}

TEST_F(DirectoryTest, ARelativePathIsTakenFromWhereTheProcessIs)
{
    MakeFile("file");
    MakeFolder("inner");
    test::ExpectPassesInChild([this] {
        Directory folder(".");
        ASSERT_EQ(0, chdir(path_.c_str()));
        EXPECT_EQ((Names{".", "..", "file", "inner"}), SortedNames(folder));
        ASSERT_EQ(0, chdir("inner"));
        EXPECT_EQ((Names{".", ".."}), SortedNames(folder));
    });
}

TEST_F(DirectoryTest, KeepsThePathAndTheStream)
{
    Directory folder(path_ + "//");
    EXPECT_EQ(path_ + "//", FolderPath::Of(folder));
    DIR* const& stream = FolderStream::Of(folder);
    EXPECT_EQ(nullptr, stream);

    Walk(folder);
    EXPECT_TRUE(test::IsDescriptorOpen(dirfd(stream)));
    folder.Close();
    EXPECT_EQ(nullptr, stream);
}

// ---- The walk.

TEST_F(DirectoryTest, AnEmptyFolderYieldsItselfAndItsParent)
{
    Directory folder(path_);
    std::vector<Entry> const entries = Walk(folder);
    EXPECT_EQ((Names{".", ".."}), Sorted(NamesOf(entries)));
    for (Entry const& entry : entries)
        EXPECT_EQ(Entry::TYPE_FOLDER, entry.type);
}

// More items than the system hands out in one go.
TEST_F(DirectoryTest, GivesEveryItemInTheOrderOfReaddir)
{
    for (int i = 0; i < 400; ++i)
        MakeFile(std::to_string(i) + std::string(200, 'n'));

    Names expected;
    std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(path_.c_str()), &closedir);
    while (dirent64 const* const item = readdir64(stream.get()))
        expected.emplace_back(item->d_name);
    stream.reset();

    Directory folder(path_);
    EXPECT_EQ(402u, expected.size());
    EXPECT_EQ(expected, NamesOf(Walk(folder)));
}

TEST_F(DirectoryTest, GivesNamesAsTheyAre)
{
    Names names = {".", "..", "\"<&'>", "a\nb", "\xff\xfe", " ", std::string(255, 'n')};
    for (std::size_t i = 2; i < names.size(); ++i)
        MakeFile(names[i]);
    Directory folder(path_);
    EXPECT_EQ(Sorted(names), SortedNames(folder));
}

TEST_F(DirectoryTest, DescribesEveryItemOfTheWalk)
{
    MakeFile("file", "content");
    MakeFolder("folder");
    MakePipe("pipe");
    for (char const* name : {"file", "folder", "pipe"})
        SetDates(In(name), 1000000001 + name[1], 1000000002 + name[1]);

    Directory folder(path_);
    for (Entry const& entry : Walk(folder)) {
        if (entry.name == "." || entry.name == "..")
            continue;
        EXPECT_EQ(Expected(entry.type, entry.name, StatusOf(In(entry.name))), Text(entry));
    }
}

TEST_F(DirectoryTest, WithoutAWalkThereIsNoNextEntry)
{
    Directory folder(path_);
    Entry entry = Untouched();
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_EQ(Text(Untouched()), Text(entry));
    EXPECT_EQ(0u, Opened());
}

TEST_F(DirectoryTest, TheEndStaysTheEndAndLeavesTheFolderOpen)
{
    Directory folder(path_);
    Walk(folder);
    Entry entry = Untouched();
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_EQ(Text(Untouched()), Text(entry));
    EXPECT_EQ(1u, Opened());
}

TEST_F(DirectoryTest, GetFirstEntryStartsAgain)
{
    Directory folder(path_);
    Entry first;
    Entry entry;
    ASSERT_TRUE(folder.GetFirstEntry(first));
    ASSERT_TRUE(folder.GetNextEntry(entry));
    EXPECT_NE(first.name, entry.name);
    ASSERT_TRUE(folder.GetFirstEntry(entry));
    EXPECT_EQ(first.name, entry.name);
    EXPECT_EQ(1u, Opened()) << "the stream of the first walk was not closed";
}

TEST_F(DirectoryTest, EachWalkSeesTheFolderAsItIs)
{
    Directory folder(path_);
    EXPECT_EQ(2u, Walk(folder).size());
    MakeFile("new");
    EXPECT_EQ((Names{".", "..", "new"}), SortedNames(folder));
    EXPECT_EQ(1u, Opened());
}

TEST_F(DirectoryTest, TwoWalksOfOneFolderAreIndependent)
{
    Directory one(path_);
    Directory other(path_);
    Entry entry;
    ASSERT_TRUE(one.GetFirstEntry(entry));
    EXPECT_EQ(2u, Walk(other).size());
    EXPECT_TRUE(one.GetNextEntry(entry));
    EXPECT_FALSE(one.GetNextEntry(entry));
}

TEST_F(DirectoryTest, CloseEndsTheWalkAndMayBeRepeated)
{
    Directory folder(path_);
    Entry entry = Untouched();
    folder.Close();
    ASSERT_TRUE(folder.GetFirstEntry(entry));
    entry = Untouched();
    folder.Close();
    EXPECT_EQ(0u, Opened());
    errno = 0;
    folder.Close();
    EXPECT_EQ(0, errno) << "closedir was given no stream";
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_EQ(Text(Untouched()), Text(entry));
    EXPECT_EQ(2u, Walk(folder).size());
}

TEST_F(DirectoryTest, DestructorCloses)
{
    std::unique_ptr<Directory> folder(new Directory(path_));
    Walk(*folder);
    EXPECT_EQ(1u, Opened());
    folder.reset();
    EXPECT_EQ(0u, Opened());
}

TEST_F(DirectoryTest, AFolderThatHasGoneCannotBeWalkedAgain)
{
    Directory folder(path_);
    Entry entry;
    ASSERT_TRUE(folder.GetFirstEntry(entry));
    RemoveFolder();
    entry = Untouched();
    EXPECT_FALSE(folder.GetFirstEntry(entry));
    EXPECT_EQ(0u, Opened()) << "the stream of the first walk was not closed";
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_EQ(Text(Untouched()), Text(entry));
}

// A removed folder can still be opened through a descriptor. It has no items, not even itself.
TEST_F(DirectoryTest, AFolderWithoutItemsHasNoFirstEntry)
{
    int const descriptor = open(path_.c_str(), O_RDONLY | O_DIRECTORY);
    RemoveFolder();
    {
        Directory folder("/proc/self/fd/" + std::to_string(descriptor));
        Entry entry = Untouched();
        EXPECT_FALSE(folder.GetFirstEntry(entry));
        EXPECT_EQ(Text(Untouched()), Text(entry));
        EXPECT_EQ(2u, Opened()) << "the folder was not open";
    }
    close(descriptor);
}

// The system hands out the names of all four items with the first.
TEST_F(DirectoryTest, AnItemThatGoesDuringTheWalkIsEmpty)
{
    MakeFile("one", "content");
    MakeFile("two", "content");
    Directory folder(path_);
    Entry entry;
    ASSERT_TRUE(folder.GetFirstEntry(entry));
    std::size_t const before = entry.name == "one" || entry.name == "two" ? 1 : 0;
    ASSERT_EQ(0, unlink(In("one").c_str()));
    ASSERT_EQ(0, unlink(In("two").c_str()));

    Names gone;
    while (folder.GetNextEntry(entry)) {
        if (entry.name != "." && entry.name != "..")
            gone.push_back(Text(entry));
    }
    EXPECT_EQ(Names(2 - before, EMPTY), gone);
}

// ---- One item.

struct KindRow
{
    char const* name;
    int type;
};

class DirectoryKindTest : public DirectoryTest, public testing::WithParamInterface<KindRow>
{
protected:
    DirectoryKindTest()
    {
        MakeFile("File");
        MakeFolder("Folder");
        MakeLink("File", "LinkToFile");
        MakeLink("Folder", "LinkToFolder");
        MakeLink("missing", "LinkToNothing");
        MakePipe("Pipe");
        MakeSocket("Socket");
    }
};

TEST_P(DirectoryKindTest, ComesFromTheItemItself)
{
    Directory const folder(path_);
    EXPECT_EQ(Expected(GetParam().type, GetParam().name, StatusOf(In(GetParam().name))),
              Text(EntryOf(folder, GetParam().name)));
}

INSTANTIATE_TEST_SUITE_P(Items, DirectoryKindTest,
                         testing::Values(KindRow{"File", 1}, KindRow{"Folder", 2}, KindRow{"LinkToFile", 3},
                                         KindRow{"LinkToFolder", 3}, KindRow{"LinkToNothing", 3}, KindRow{"Pipe", 0},
                                         KindRow{"Socket", 0}),
                         test::ParameterName());

TEST_F(DirectoryTest, DevicesAreInvalidButHaveAName)
{
    Directory const devices("/dev");
    Entry const device = EntryOf(devices, "null");
    EXPECT_EQ(Entry::TYPE_INVALID, device.type);
    EXPECT_EQ("null", device.name);
    EXPECT_EQ(StatusOf("/dev/null").stx_mtime.tv_sec, device.lastModifiedDate);
}

// It is described, not opened: there need be nothing behind its number.
TEST_F(DirectoryTest, BlockDevicesAreInvalidToo)
{
    if (mknod(In("disk").c_str(), S_IFBLK | 0600, makedev(240, 0)) == -1)
        GTEST_SKIP() << "this process may not make devices";
    EXPECT_EQ(Expected(Entry::TYPE_INVALID, "disk", StatusOf(In("disk"))), Text(EntryOf(Directory(path_), "disk")));
    EXPECT_EQ(Expected(Entry::TYPE_INVALID, "disk", StatusOf(In("disk"))), Text(Entry(In("disk"))));
}

// The sticky bit, as that of /tmp, and the bits that give another user's rights.
TEST_F(DirectoryTest, OtherBitsOfTheModeDoNotMatter)
{
    MakeFile("file");
    MakeFolder("folder");
    for (mode_t const bits : {S_ISVTX, S_ISUID, S_ISGID}) {
        ASSERT_EQ(0, chmod(In("file").c_str(), bits | 0777));
        ASSERT_EQ(0, chmod(In("folder").c_str(), bits | 0777));
        EXPECT_EQ(Entry::TYPE_FILE, EntryOf(Directory(path_), "file").type) << bits;
        EXPECT_EQ(Entry::TYPE_FOLDER, EntryOf(Directory(path_), "folder").type) << bits;
        EXPECT_EQ(Entry::TYPE_FOLDER, Entry(In("folder")).type) << bits;
    }
}

TEST_F(DirectoryTest, AnItemHasItsOwnDatesAndSize)
{
    MakeFile("file", "content");
    SetDates(In("file"), 1000000001, 1000000002);
    Directory const folder(path_);
    std::int64_t const changed = StatusOf(In("file")).stx_ctime.tv_sec;
    EXPECT_EQ("1 'file' " + std::to_string(changed) + " 1000000001 1000000002 7", Text(EntryOf(folder, "file")));
}

TEST_F(DirectoryTest, ALinkHasItsOwnDatesAndSize)
{
    MakeFile("file", "content");
    MakeLink("file", "link");
    SetDates(In("file"), 1000000001, 1000000002);
    SetDates(In("link"), 1000000003, 1000000004);
    Entry const link = EntryOf(Directory(path_), "link");
    EXPECT_EQ(1000000003, link.lastAccessedDate);
    EXPECT_EQ(1000000004, link.lastModifiedDate);
    EXPECT_EQ(std::strlen("file"), link.size);
}

TEST_F(DirectoryTest, AnItemThatIsNotThereIsEmpty)
{
    EXPECT_EQ(EMPTY, Text(EntryOf(Directory(path_), "missing")));
    EXPECT_EQ(EMPTY, Text(EntryOf(Directory(folder_ / "missing"), ".")));
}

TEST_F(DirectoryTest, OnlyTheNameOfTheItemCounts)
{
    MakeFile("file");
    dirent item = {};
    std::strcpy(item.d_name, "file");
    item.d_type = DT_DIR;
    item.d_ino = 1;
    item.d_reclen = 1;
    Entry entry = Untouched();
    Directory(path_).GetEntry(item, entry);
    EXPECT_EQ(Expected(Entry::TYPE_FILE, "file", StatusOf(In("file"))), Text(entry));
}

TEST_F(DirectoryTest, DescribingAnItemNeedsAndStartsNoWalk)
{
    MakeFile("file");
    Directory folder(path_);
    EXPECT_EQ("file", EntryOf(folder, "file").name);
    Entry entry;
    EXPECT_FALSE(folder.GetNextEntry(entry));
    EXPECT_EQ(0u, Opened());
}

TEST_F(DirectoryTest, FolderAndNameAreJoinedWithOneSlash)
{
    MakeFile("file");
    EXPECT_EQ("file", EntryOf(Directory(path_ + "/"), "file").name);
    EXPECT_EQ("listed/file", EntryOf(Directory(folder_ / ""), "listed/file").name);
}

// A backslash is a separator to MakePath, and none to the system.
TEST_F(DirectoryTest, NoSlashIsPutNextToABackslash)
{
    ASSERT_EQ(0, mkdir((folder_ / "odd\\").c_str(), 0700));
    test::WriteFile(folder_ / "odd\\file", "beside the folder");
    test::WriteFile(folder_ / "odd\\/inside", "");
    MakeFile("\\name");
    EXPECT_EQ(17u, EntryOf(Directory(folder_ / "odd\\"), "file").size);
    EXPECT_EQ(EMPTY, Text(EntryOf(Directory(folder_ / "odd\\"), "inside")));
    EXPECT_EQ(EMPTY, Text(EntryOf(Directory(path_), "\\name")));
}

TEST_F(DirectoryTest, SizesGoPastFourGiB)
{
    MakeFile("file");
    ASSERT_EQ(0, truncate64(In("file").c_str(), 0x140000003LL));
    EXPECT_EQ(0x140000003u, EntryOf(Directory(path_), "file").size);
    Entry const entry(In("file"));
    EXPECT_EQ(0x140000003u, entry.size);
    EXPECT_NE(std::string::npos, entry.ToString(0).find(" size = \"5368709123\"/>"));
    EXPECT_EQ(0, truncate64(In("file").c_str(), 0));  // what removes it knows no such sizes on a 32-bit build
}

struct DateRow
{
    char const* name;
    std::int64_t date;
    std::int32_t expected;
};

// In a file system of the test's own that takes any date.
class DirectoryDateTest : public DirectoryTest, public testing::WithParamInterface<DateRow>
{};

TEST_P(DirectoryDateTest, IsClampedToThirtyTwoBits)
{
    test::ExpectPassesInChildOrSkips([this] {
        if (!test::EnterMountNamespace() || mount("none", path_.c_str(), "tmpfs", 0, nullptr) == -1)
            test::SkipFromChild("this machine gives a process no mounts of its own");
        MakeFile("file");
        SetDates(In("file"), GetParam().date, 7);
        ASSERT_EQ(GetParam().date, StatusOf(In("file")).stx_atime.tv_sec);
        EXPECT_EQ(GetParam().expected, EntryOf(Directory(path_), "file").lastAccessedDate);
        EXPECT_EQ(GetParam().expected, Entry(In("file")).lastAccessedDate);
        EXPECT_EQ(GetParam().expected, Directory(In("file")).lastAccessedDate);

        SetDates(In("file"), 7, GetParam().date);
        EXPECT_EQ(GetParam().expected, EntryOf(Directory(path_), "file").lastModifiedDate);
    });
}

INSTANTIATE_TEST_SUITE_P(Dates, DirectoryDateTest,
                         testing::Values(DateRow{"Epoch", 0, 0}, DateRow{"BeforeTheEpoch", -5, -5},
                                         DateRow{"LikeUnknown", -1, -1}, DateRow{"Last", LAST_SECOND, LAST_SECOND},
                                         DateRow{"AfterTheLast", 0x80000000LL, LAST_SECOND},
                                         DateRow{"AllBitsOf32", 0xFFFFFFFFLL, LAST_SECOND},
                                         DateRow{"Zero32", 0x100000000LL, LAST_SECOND},
                                         DateRow{"First", FIRST_SECOND, FIRST_SECOND},
                                         DateRow{"BeforeTheFirst", -0x80000001LL, FIRST_SECOND},
                                         DateRow{"LongBefore", -0x100000000LL, FIRST_SECOND}),
                         test::ParameterName());

// ---- An entry for a path.

class DirectoryEntryTest : public DirectoryTest
{};

TEST_F(DirectoryEntryTest, DescribesWhatIsAtAPath)
{
    MakeFile("file", "content");
    SetDates(In("file"), 1000000001, 1000000002);
    std::int64_t const changed = StatusOf(In("file")).stx_ctime.tv_sec;
    EXPECT_EQ("1 'file' " + std::to_string(changed) + " 1000000001 1000000002 7", Text(Entry(In("file"))));
    EXPECT_EQ(Expected(Entry::TYPE_FOLDER, "listed", StatusOf(path_)), Text(Entry(path_)));
}

TEST_F(DirectoryEntryTest, FollowsLinksAndKeepsTheirName)
{
    MakeFile("file", "content");
    MakeFolder("folder");
    MakeLink("file", "link");
    MakeLink("folder", "way");
    SetDates(In("file"), 1000000001, 1000000002);
    SetDates(In("link"), 5, 6);
    EXPECT_EQ(Expected(Entry::TYPE_FILE, "link", StatusOf(In("file"))), Text(Entry(In("link"))));
    EXPECT_EQ(Expected(Entry::TYPE_FOLDER, "way", StatusOf(In("folder"))), Text(Entry(In("way"))));
}

TEST_F(DirectoryEntryTest, IsEmptyWhereNothingCanBeExamined)
{
    MakeFile("file");
    MakeLink("missing", "link");
    for (std::string const& path : {In("missing"), In("link"), In("file/"), std::string()})
        EXPECT_EQ(EMPTY, Text(Entry(path))) << path;
}

TEST_F(DirectoryEntryTest, IsInvalidForOtherKindsButHasAName)
{
    MakePipe("pipe");
    MakeSocket("socket");
    EXPECT_EQ(Expected(Entry::TYPE_INVALID, "pipe", StatusOf(In("pipe"))), Text(Entry(In("pipe"))));
    EXPECT_EQ(Expected(Entry::TYPE_INVALID, "socket", StatusOf(In("socket"))), Text(Entry(In("socket"))));
    EXPECT_EQ(Entry::TYPE_INVALID, Entry("/dev/null").type);
    EXPECT_EQ("null", Entry("/dev/null").name);
}

TEST_F(DirectoryEntryTest, HasTheFullFileNameOfThePath)
{
    MakeFile("a\\b.c");
    EXPECT_EQ("a\\b.c", Entry(In("a\\b.c")).name);
    EXPECT_EQ(".", Entry(In(".")).name);
    test::ExpectPassesInChild([this] {
        ASSERT_EQ(0, chdir(path_.c_str()));
        EXPECT_EQ("b.c", Entry("a\\b.c").name);
        EXPECT_EQ(Entry::TYPE_FILE, Entry("a\\b.c").type);
    });
}

TEST_F(DirectoryEntryTest, HasNoNameForAPathThatEndsInASlash)
{
    EXPECT_EQ(Expected(Entry::TYPE_FOLDER, "", StatusOf(path_)), Text(Entry(path_ + "/")));
}

TEST_F(DirectoryEntryTest, EmptyStandsForWhatCouldNotBeExamined)
{
    EXPECT_EQ(EMPTY, Text(Entry::Empty));
    EXPECT_EQ(EMPTY, Text(Entry()));
}

// ---- Texts.

TEST_F(DirectoryEntryTest, TypesHaveATextOnlyForFilesAndFolders)
{
    EXPECT_EQ("invalid", Entry::type2string(0));
    EXPECT_EQ("file", Entry::type2string(1));
    EXPECT_EQ("folder", Entry::type2string(2));
    for (int const type : {3, 4, -1, 257, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
        EXPECT_EQ("invalid", Entry::type2string(type)) << type;
}

TEST_F(DirectoryEntryTest, OnlyTheExactTextsAreTypes)
{
    EXPECT_EQ(1, Entry::string2type("file"));
    EXPECT_EQ(2, Entry::string2type("folder"));
    for (char const* text : {"", "invalid", "link", "File", "FOLDER", "file ", " file", "files", "fil", "1", "folders"})
        EXPECT_EQ(0, Entry::string2type(text)) << text;
    EXPECT_EQ(0, Entry::string2type(std::string("file\0", 5)));
    EXPECT_EQ(0, Entry::string2type(std::string("folder\0", 7)));
}

TEST_F(DirectoryEntryTest, ToStringIsOneElementOnOneLine)
{
    EXPECT_EQ(
        "<Entry type = \"file\" name = \"a b.txt\" lastStatusDate = \"10\" lastAccessedDate = \"20\""
        " lastModifiedDate = \"30\" size = \"40\"/>",
        MakeEntry(Entry::TYPE_FILE, "a b.txt").ToString(0));
    EXPECT_EQ(
        "<Entry type = \"invalid\" name = \"\" lastStatusDate = \"-1\" lastAccessedDate = \"-1\""
        " lastModifiedDate = \"-1\" size = \"0\"/>",
        Entry::Empty.ToString(0));
}

TEST_F(DirectoryEntryTest, ToStringWritesLinksAsInvalid)
{
    EXPECT_EQ(MakeEntry(Entry::TYPE_INVALID, "name").ToString(0), MakeEntry(Entry::TYPE_LINK, "name").ToString(0));
    EXPECT_EQ(0u, MakeEntry(Entry::TYPE_LINK, "name").ToString(0).find("<Entry type = \"invalid\" name = \"name\" "));
    EXPECT_EQ(0u, MakeEntry(Entry::TYPE_FOLDER, "name").ToString(0).find("<Entry type = \"folder\" name = \"name\" "));
}

TEST_F(DirectoryEntryTest, ToStringIgnoresItsArgument)
{
    Entry const entry = MakeEntry(Entry::TYPE_FILE, "name");
    for (int const indent : {1, 4, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
        EXPECT_EQ(entry.ToString(0), entry.ToString(indent)) << indent;
}

TEST_F(DirectoryEntryTest, ToStringWritesNamesAsTheyAre)
{
    std::string const name("\"&<>'\xc3\xa9\n\0!", 10);
    EXPECT_NE(std::string::npos, MakeEntry(Entry::TYPE_FILE, name).ToString(0).find(" name = \"" + name + "\" last"));
}

// The widest numbers, and what they look like.
Entry WidestEntry()
{
    Entry entry = MakeEntry(Entry::TYPE_FILE, "wide");
    entry.lastStatusDate = FIRST_SECOND;
    entry.lastAccessedDate = LAST_SECOND;
    entry.lastModifiedDate = -1234567;
    entry.size = std::numeric_limits<std::uint64_t>::max();
    return entry;
}

char const* const WIDEST_TEXT =
    "<Entry type = \"file\" name = \"wide\" lastStatusDate = \"-2147483648\" lastAccessedDate = \"2147483647\""
    " lastModifiedDate = \"-1234567\" size = \"18446744073709551615\"/>";

TEST_F(DirectoryEntryTest, ToStringWritesNumbersOfAnySize)
{
    EXPECT_EQ(WIDEST_TEXT, WidestEntry().ToString(0));
}

TEST_F(DirectoryEntryTest, ToStringDoesNotFollowTheLocale)
{
    test::ExpectPassesInChild([] {
        test::DigitGroups const groups;
        std::setlocale(LC_ALL, "");
        EXPECT_EQ(WIDEST_TEXT, WidestEntry().ToString(0));
    });
}

// ---- Reading entries back.

Entry Parsed(std::string const& element)
{
    test::ParsedXml document(element);
    Entry entry = Untouched();
    entry.Parse(document.Root());
    return entry;
}

TEST_F(DirectoryEntryTest, ParseRestoresWhatToStringWrote)
{
    for (int const type : {Entry::TYPE_INVALID, Entry::TYPE_FILE, Entry::TYPE_FOLDER}) {
        Entry const entry = MakeEntry(type, "a name");
        EXPECT_EQ(Text(entry), Text(Parsed(entry.ToString(0))));
    }
    EXPECT_EQ(EMPTY, Text(Parsed(Entry::Empty.ToString(0))));
}

TEST_F(DirectoryEntryTest, ParseReadsLinksAsInvalid)
{
    EXPECT_EQ(Text(MakeEntry(Entry::TYPE_INVALID, "name")),
              Text(Parsed(MakeEntry(Entry::TYPE_LINK, "name").ToString(0))));
}

TEST_F(DirectoryEntryTest, ParseRestoresNamesOfAllOtherCharacters)
{
    std::string name;
    for (char character = ' '; character <= '~'; ++character) {
        if (std::strchr("\"&<", character) == nullptr)
            name += character;
    }
    EXPECT_EQ(name, Parsed(MakeEntry(Entry::TYPE_FILE, name).ToString(0)).name);
}

TEST_F(DirectoryEntryTest, ParseRestoresTheWidestDatesAndSizesOfFiles)
{
    Entry entry = WidestEntry();
    entry.size = 0x7FFFFFFFFFFFFFFFu;
    EXPECT_EQ(Text(entry), Text(Parsed(entry.ToString(0))));
    EXPECT_EQ(0x7FFFFFFFFFFFFFFFu, Parsed(WIDEST_TEXT).size) << "sizes are read as signed numbers";
}

TEST_F(DirectoryEntryTest, ANameThatBreaksTheElementIsRefusedByTheParser)
{
    for (char const* name : {"a\"b", "a&b", "a<b"}) {
        Entry const entry = MakeEntry(Entry::TYPE_FILE, name);
        EXPECT_THROWN_AT("src/util/XercesUtils.cpp", 97, Parsed(entry.ToString(0)));
    }
}

TEST_F(DirectoryEntryTest, ANameThatWasEncodedBeforeIsRestored)
{
    std::string const name = "\"a\" & <b> 'c' &lt;";
    EXPECT_EQ(name, Parsed(MakeEntry(Entry::TYPE_FILE, EncodeXMLCharEntities(name)).ToString(0)).name);
}

TEST_F(DirectoryEntryTest, ANameThatLooksEncodedIsResolvedByTheParser)
{
    EXPECT_EQ("A<", Parsed(MakeEntry(Entry::TYPE_FILE, "&#65;&lt;").ToString(0)).name);
}

TEST_F(DirectoryEntryTest, ParseTakesAnyElementAndAnyOrderOfAttributes)
{
    EXPECT_EQ("2 'n' 1 2 3 4",
              Text(Parsed("<Other extra='x' size='4' lastModifiedDate='3' lastAccessedDate='2' lastStatusDate='1' "
                          "name='n' type='folder'>text</Other>")));
}

TEST_F(DirectoryEntryTest, ParseGivesZeroAndNoNameForMissingAttributes)
{
    EXPECT_EQ("0 '' 0 0 0 0", Text(Parsed("<Entry/>")));
    EXPECT_EQ("0 '' 0 0 0 0", Text(Parsed("<Entry type='' name='' lastStatusDate='' lastAccessedDate='' "
                                          "lastModifiedDate='' size=''/>")));
    EXPECT_EQ("0 '' 0 0 0 0", Text(Parsed("<Entry Type='file' Name='n' laststatusdate='1' SIZE='4'/>")));
}

struct NumberRow
{
    char const* name;
    char const* text;
    std::int32_t date;
    std::uint64_t size;
};

class DirectoryNumberTest : public testing::TestWithParam<NumberRow>
{};

TEST_P(DirectoryNumberTest, IsReadAsFarAsItGoes)
{
    std::string const text = GetParam().text;
    EXPECT_EQ(GetParam().date, Parsed("<Entry lastStatusDate='" + text + "'/>").lastStatusDate);
    EXPECT_EQ(GetParam().date, Parsed("<Entry lastAccessedDate='" + text + "'/>").lastAccessedDate);
    EXPECT_EQ(GetParam().date, Parsed("<Entry lastModifiedDate='" + text + "'/>").lastModifiedDate);
    EXPECT_EQ(GetParam().size, Parsed("<Entry size='" + text + "'/>").size);
}

constexpr std::uint64_t LARGEST_SIZE = 0x7FFFFFFFFFFFFFFFu;
constexpr std::uint64_t MINUS_ONE = 0xFFFFFFFFFFFFFFFFu;

INSTANTIATE_TEST_SUITE_P(
    Numbers, DirectoryNumberTest,
    testing::Values(NumberRow{"None", "soon", 0, 0}, NumberRow{"Blanks", "  12", 12, 12},
                    NumberRow{"Tail", "12 seconds", 12, 12}, NumberRow{"Sign", "+7", 7, 7},
                    NumberRow{"Decimal", "010", 10, 10}, NumberRow{"NotHexadecimal", "0x10", 0, 0},
                    NumberRow{"Grouped", "1,000", 1, 1}, NumberRow{"Negative", "-1", -1, MINUS_ONE},
                    NumberRow{"LastSecond", "2147483647", LAST_SECOND, 2147483647u},
                    NumberRow{"AfterTheLastSecond", "2147483648", LAST_SECOND, 2147483648u},
                    NumberRow{"AllBitsOf32", "4294967295", LAST_SECOND, 4294967295u},
                    NumberRow{"FirstSecond", "-2147483648", FIRST_SECOND, MINUS_ONE - 0x7FFFFFFF},
                    NumberRow{"BeforeTheFirstSecond", "-2147483649", FIRST_SECOND, MINUS_ONE - 0x80000000u},
                    NumberRow{"LargestSize", "9223372036854775807", LAST_SECOND, LARGEST_SIZE},
                    NumberRow{"TooLarge", "9223372036854775808", LAST_SECOND, LARGEST_SIZE},
                    NumberRow{"FarTooLarge", "99999999999999999999999", LAST_SECOND, LARGEST_SIZE},
                    NumberRow{"FarTooSmall", "-99999999999999999999999", FIRST_SECOND, LARGEST_SIZE + 1}),
    test::ParameterName());

// ---- A listing.

class DirectoryListingTest : public DirectoryTest
{
protected:
    DirectoryListingTest()
    {
        MakeFile("file", "content");
        MakeFolder("folder");
        MakeLink("file", "link");
        MakePipe("pipe");
    }

    static std::string List(std::vector<Entry> const& entries)
    {
        std::string listing;
        for (Entry const& entry : entries)
            listing += entry.ToString(1);
        return "<Listing>" + listing + "</Listing>";
    }

    Directory listed_{path_};
};

TEST_F(DirectoryListingTest, TravelsAsXml)
{
    std::vector<Entry> entries = Walk(listed_);
    test::ParsedXml document(List(entries));
    std::vector<xercesc::DOMElement const*> const elements = document.Children();
    ASSERT_EQ(6u, entries.size());
    ASSERT_EQ(entries.size(), elements.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        Entry entry;
        entry.Parse(*elements[i]);
        if (entries[i].name == "link")
            entries[i].type = Entry::TYPE_INVALID;
        EXPECT_EQ("Entry", XMLCh2string(elements[i]->getNodeName()));
        EXPECT_EQ(Text(entries[i]), Text(entry));
    }
}

TEST_F(DirectoryListingTest, ANameWithAQuoteBreaksTheDocumentButNotTheWalk)
{
    MakeFile("a \"quoted\" name", "content");
    EXPECT_THROWN_AT("src/util/XercesUtils.cpp", 97, test::ParsedXml{List(Walk(listed_))});
    EXPECT_EQ((Names{".", "..", "a \"quoted\" name", "file", "folder", "link", "pipe"}), SortedNames(listed_));
    EXPECT_EQ(7u, EntryOf(listed_, "a \"quoted\" name").size);
}

TEST_F(DirectoryListingTest, NothingIsThrownOrLogged)
{
    test::CapturedLog log;
    EXPECT_NO_THROW(Walk(listed_));
    EXPECT_NO_THROW(EntryOf(listed_, "missing"));
    EXPECT_NO_THROW(Parsed("<Entry size='many' type='unknown'/>"));
    EXPECT_NO_THROW(Entry(folder_ / "missing").ToString(0));
    Directory missing(folder_ / "missing");
    EXPECT_NO_THROW(Walk(missing));
    EXPECT_NO_THROW(missing.Close());
    EXPECT_TRUE(test::TakeLines(log).empty());
}

}}}  // namespace tovu::util
