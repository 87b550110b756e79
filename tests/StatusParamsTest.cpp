#include "tovu/util/StatusParams.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "ChildProcess.h"
#include "Descriptors.h"
#include "DigitGroups.h"
#include "Interruptions.h"
#include "Latch.h"
#include "MutexCalls.h"
#include "ParameterName.h"
#include "SqliteDatabase.h"
#include "StatusCommands.h"
#include "StatusRegistry.h"
#include "StatusSmallVolume.h"
#include "StatusVolumes.h"
#include "TemporaryDirectory.h"
#include "tovu/db/DB.h"

namespace tovu { namespace util { namespace {

using test::ENOUGH;
using test::Entries;
using test::EntryOf;
using test::FreeSpace;
using test::IDLE;
using test::LocksOf;
using test::LOW;
using test::MutexCalls;
using test::NO_ENTRY;
using test::RecordingDatabase;
using test::SetEntry;
using test::STALLED_BY_DISK;
using test::STALLED_BY_MEMORY;

typedef StatusParams::DISK_INFO DiskInfo;
typedef std::string const& Text;
typedef std::vector<std::string> Texts;

// Everything is static.
static_assert(!std::is_default_constructible<StatusParams>::value, "there are no objects");
static_assert(std::is_same<decltype(&StatusParams::STATUS_NORMAL), char const* const*>::value, "");
static_assert(std::is_same<decltype(&StatusParams::STATUS_DISK), char const* const*>::value, "");
static_assert(std::is_same<decltype(&StatusParams::STATUS_MEM), char const* const*>::value, "");
static_assert(std::is_same<decltype(&StatusParams::ACTION_IDLE), char const* const*>::value, "");
static_assert(std::is_same<decltype(&StatusParams::ACTION_STALLED), char const* const*>::value, "");
static_assert(std::is_same<decltype(&StatusParams::InitDiskInfoStruct), void (*)(DiskInfo&)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::GetDiskInfo), bool (*)(Text, DiskInfo&)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::SetDiskInfo), void (*)(Text, DiskInfo const&)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::InsertNewEntry), void (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::AddNewDiskInfoEntry), void (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::RemoveDiskInfo), void (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::GetRemainingDiskSpace), unsigned long long (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::IsLowDiskSpace), bool (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::GetFreeDiskSpace), std::string (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::IsSQLiteError_MemoryOrDiskSpace), bool (*)(Text, unsigned)>::value,
              "");
static_assert(std::is_same<decltype(&StatusParams::ResetStatusIfStalled), bool (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::CheckVolumeDiskSpaceStatus), bool (*)(db::DB const&, Text)>::value,
              "");
static_assert(std::is_same<decltype(&StatusParams::IsVolumeLowOnDiskSpace), bool (*)(db::DB const&, Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::GetStatusFlag), std::string (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::IsStatusNormal), bool (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::DoPopen), std::string (*)(Text)>::value, "");
static_assert(std::is_same<decltype(&StatusParams::ParseMemInfo), unsigned long long (*)(Text, std::string&)>::value,
              "");
static_assert(std::is_abstract<db::DB>::value && std::has_virtual_destructor<db::DB>::value, "an interface");
static_assert(SQLITE_NOMEM == 7 && SQLITE_IOERR == 10 && SQLITE_FULL == 13, "the codes that the registry knows");
static_assert(std::is_same<decltype(&db::DB::NotifyAction), void (db::DB::*)(Text, Text) const>::value, "");

class StatusParamsTest : public test::StatusFixture
{};

// ---- Words and defaults.

TEST_F(StatusParamsTest, WordsAreFixed)
{
    EXPECT_STREQ("normal", StatusParams::STATUS_NORMAL);
    EXPECT_STREQ("out of disk space", StatusParams::STATUS_DISK);
    EXPECT_STREQ("out of memory", StatusParams::STATUS_MEM);
    EXPECT_STREQ("idle", StatusParams::ACTION_IDLE);
    EXPECT_STREQ("stalled", StatusParams::ACTION_STALLED);
}

TEST_F(StatusParamsTest, InitDiskInfoStructSetsTheDefaults)
{
    DiskInfo info = {"stalled", "out of memory"};
    StatusParams::InitDiskInfoStruct(info);
    EXPECT_EQ("idle", info.action);
    EXPECT_EQ("normal", info.status);
    EXPECT_TRUE(Entries().empty());
}

TEST_F(StatusParamsTest, ProcessorStatusIsExportedWithItsMutexAndZero)
{
    EXPECT_NE(test::Exported("_ZN4tovu4util12StatusParams9_mutexcpuE"),
              test::Exported("_ZN4tovu4util12StatusParams6_mutexE"));
    Dl_info library = {};
    ElfW(Sym)* symbol = nullptr;
    void* const status = test::Exported("_ZN4tovu4util12StatusParams10_cpuStatusE");
    ASSERT_NE(0, dladdr1(status, &library, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT));
    ASSERT_NE(nullptr, symbol);
    unsigned char const* const bytes = static_cast<unsigned char const*>(status);
    EXPECT_LT(0u, symbol->st_size);
    EXPECT_TRUE(std::all_of(bytes, bytes + symbol->st_size, [](unsigned char byte) { return byte == 0; }));
}

// ---- Entries.

TEST_F(StatusParamsTest, WithoutAnEntryGetDiskInfoLeavesTheResultAlone)
{
    DiskInfo info = {"action", "status"};
    EXPECT_FALSE(StatusParams::GetDiskInfo(volume_, info));
    EXPECT_EQ("action", info.action);
    EXPECT_EQ("status", info.status);
    EXPECT_TRUE(Entries().empty());
}

TEST_F(StatusParamsTest, SetDiskInfoInsertsAnEntryOrOverwritesBothFields)
{
    StatusParams::SetDiskInfo(volume_, {"action", "status"});
    EXPECT_EQ("action: status", EntryOf(volume_));
    StatusParams::SetDiskInfo(volume_, {"another", "word"});
    EXPECT_EQ("another: word", EntryOf(volume_));
    EXPECT_EQ(1u, Entries().size());
}

TEST_F(StatusParamsTest, EntriesAreKeptByTheExactPath)
{
    SetEntry("/volumes/photos", "one: word");
    SetEntry("/volumes/photos/", "another: word");
    SetEntry("", "a third: word");
    EXPECT_EQ("one: word", EntryOf("/volumes/photos"));
    EXPECT_EQ("another: word", EntryOf("/volumes/photos/"));
    EXPECT_EQ("a third: word", EntryOf(""));
    EXPECT_EQ(NO_ENTRY, EntryOf("/volumes/Photos"));
}

TEST_F(StatusParamsTest, AnEntryIsACopy)
{
    DiskInfo info = {"action", "status"};
    StatusParams::SetDiskInfo(volume_, info);
    info.action = "changed";
    EXPECT_EQ("action: status", EntryOf(volume_));
    ASSERT_TRUE(StatusParams::GetDiskInfo(volume_, info));
    info.status = "changed";
    EXPECT_EQ("action: status", EntryOf(volume_));
}

TEST_F(StatusParamsTest, RemoveDiskInfoErasesTheEntryOfThisVolume)
{
    SetEntry(volume_, STALLED_BY_DISK);
    SetEntry(other_, STALLED_BY_MEMORY);
    StatusParams::RemoveDiskInfo(volume_);
    StatusParams::RemoveDiskInfo(volume_);
    EXPECT_EQ(NO_ENTRY, EntryOf(volume_));
    EXPECT_EQ(STALLED_BY_MEMORY, EntryOf(other_));
}

struct Inserter
{
    char const* name;
    void (*insert)(std::string const&);
};

class StatusInsertTest : public StatusParamsTest, public testing::WithParamInterface<Inserter>
{};

INSTANTIATE_TEST_SUITE_P(Names, StatusInsertTest,
                         testing::Values(Inserter{"InsertNewEntry", &StatusParams::InsertNewEntry},
                                         Inserter{"AddNewDiskInfoEntry", &StatusParams::AddNewDiskInfoEntry}),
                         test::ParameterName());

TEST_P(StatusInsertTest, MakesADefaultEntry)
{
    GetParam().insert(volume_);
    EXPECT_EQ(IDLE, EntryOf(volume_));
    EXPECT_EQ(1u, Entries().size());
}

TEST_P(StatusInsertTest, LeavesAnEntryThatIsThere)
{
    SetEntry(volume_, STALLED_BY_MEMORY);
    GetParam().insert(volume_);
    EXPECT_EQ(STALLED_BY_MEMORY, EntryOf(volume_));
}

TEST_F(StatusParamsTest, StatusFlagIsTheStatusOfTheEntry)
{
    SetEntry(volume_, STALLED_BY_DISK);
    EXPECT_EQ("out of disk space", StatusParams::GetStatusFlag(volume_));
    SetEntry(volume_, "idle: a word of its own");
    EXPECT_EQ("a word of its own", StatusParams::GetStatusFlag(volume_));
    EXPECT_EQ("idle: a word of its own", EntryOf(volume_));
}

TEST_F(StatusParamsTest, StatusFlagMakesADefaultEntry)
{
    EXPECT_EQ("normal", StatusParams::GetStatusFlag(volume_));
    EXPECT_EQ(IDLE, EntryOf(volume_));
    EXPECT_TRUE(StatusParams::IsStatusNormal(other_));
    EXPECT_EQ(IDLE, EntryOf(other_));
}

TEST_F(StatusParamsTest, OnlyTheExactWordIsNormal)
{
    SetEntry(volume_, "stalled: normal");
    EXPECT_TRUE(StatusParams::IsStatusNormal(volume_));
    for (char const* entry : {STALLED_BY_DISK, STALLED_BY_MEMORY, "idle: Normal", "idle: normal ", "idle: "}) {
        SetEntry(volume_, entry);
        EXPECT_FALSE(StatusParams::IsStatusNormal(volume_)) << entry;
    }
}

// ---- Free space.

TEST_F(StatusParamsTest, RemainingSpaceIsBlockSizeTimesFreeBlocks)
{
    FreeSpace const space(4096, 1000);
    EXPECT_EQ(4096000u, StatusParams::GetRemainingDiskSpace(volume_));
    EXPECT_EQ(Texts{volume_}, space.asked);
}

TEST_F(StatusParamsTest, RemainingSpaceHasSixtyFourBits)
{
    FreeSpace const space(65536, 0x100000001ULL);
    EXPECT_EQ(0x1000000010000ULL, StatusParams::GetRemainingDiskSpace(volume_));
    EXPECT_EQ("281474976776192 bytes", StatusParams::GetFreeDiskSpace(volume_));
    EXPECT_FALSE(StatusParams::IsLowDiskSpace(volume_));
}

TEST_F(StatusParamsTest, TheResultOfTheProbeIsNotLookedAt)
{
    FreeSpace space(ENOUGH);
    space.result = -1;
    EXPECT_EQ(ENOUGH, StatusParams::GetRemainingDiskSpace(volume_));
    EXPECT_FALSE(StatusParams::IsLowDiskSpace(volume_));
}

TEST_F(StatusParamsTest, AVolumeThatIsNotThereHasNothingFree)
{
    EXPECT_EQ(0u, StatusParams::GetRemainingDiskSpace(volume_));
    EXPECT_EQ("0 bytes", StatusParams::GetFreeDiskSpace(volume_));
    EXPECT_TRUE(StatusParams::IsLowDiskSpace(volume_));
}

TEST_F(StatusParamsTest, LowMeansAtMost250MiB)
{
    for (unsigned long long const bytes : {0ULL, 1ULL, LOW - 1, LOW}) {
        FreeSpace const space(bytes);
        EXPECT_TRUE(StatusParams::IsLowDiskSpace(volume_)) << bytes;
    }
    for (unsigned long long const bytes : {ENOUGH, 1ULL << 32, std::numeric_limits<unsigned long long>::max()}) {
        FreeSpace const space(bytes);
        EXPECT_FALSE(StatusParams::IsLowDiskSpace(volume_)) << bytes;
    }
}

TEST_F(StatusParamsTest, LowIsAMatterOfTheProduct)
{
    {
        FreeSpace const space(4096, 64000);
        EXPECT_TRUE(StatusParams::IsLowDiskSpace(volume_));
    }
    FreeSpace const space(4096, 64001);
    EXPECT_FALSE(StatusParams::IsLowDiskSpace(volume_));
}

TEST_F(StatusParamsTest, FreeSpaceIsADecimalNumberInAnyLocale)
{
    test::DigitGroups const groups;
    FreeSpace const space(LOW);
    EXPECT_EQ("262144000 bytes", StatusParams::GetFreeDiskSpace(volume_));
}

TEST_F(StatusParamsTest, FreeSpaceHasNoSign)
{
    FreeSpace const space(std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ("18446744073709551615 bytes", StatusParams::GetFreeDiskSpace(volume_));
}

TEST_F(StatusParamsTest, ProbesTouchNoEntry)
{
    StatusParams::GetRemainingDiskSpace(volume_);
    StatusParams::IsLowDiskSpace(volume_);
    StatusParams::GetFreeDiskSpace(volume_);
    EXPECT_TRUE(Entries().empty());
}

// ---- Result codes of SQLite.

// One row for a kind of code, an entry before and a volume that is low on space or not: what is told and what is left.
struct CodeRow
{
    char const* name;
    unsigned code;
    unsigned long long space;
    char const* before;
    bool stalled;
    char const* after;
};

class StatusCodeTest : public StatusParamsTest, public testing::WithParamInterface<CodeRow>
{};

TEST_P(StatusCodeTest, TellsWhetherItStallsAndLeavesAnEntry)
{
    FreeSpace const space(GetParam().space);
    SetEntry(volume_, GetParam().before);
    EXPECT_EQ(GetParam().stalled, StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, GetParam().code));
    EXPECT_EQ(GetParam().after, EntryOf(volume_));
}

TEST_P(StatusCodeTest, NeedsAProbeForDiskErrorsOnly)
{
    FreeSpace const space(GetParam().space);
    SetEntry(volume_, GetParam().before);
    StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, GetParam().code);
    bool const disk = GetParam().code == SQLITE_IOERR || GetParam().code == SQLITE_FULL;
    EXPECT_EQ(disk ? Texts{volume_} : Texts{}, space.asked);
}

char const* const OTHER_ENTRY = "paused: for a walk";

INSTANTIATE_TEST_SUITE_P(WithoutAnEntry, StatusCodeTest,
                         testing::Values(CodeRow{"Memory", SQLITE_NOMEM, ENOUGH, NO_ENTRY, true, STALLED_BY_MEMORY},
                                         CodeRow{"MemoryWhenLow", SQLITE_NOMEM, LOW, NO_ENTRY, true, STALLED_BY_MEMORY},
                                         CodeRow{"FullWhenLow", SQLITE_FULL, LOW, NO_ENTRY, true, STALLED_BY_DISK},
                                         CodeRow{"IoErrorWhenLow", SQLITE_IOERR, LOW, NO_ENTRY, true, STALLED_BY_DISK},
                                         CodeRow{"Full", SQLITE_FULL, ENOUGH, NO_ENTRY, false, IDLE},
                                         CodeRow{"IoError", SQLITE_IOERR, ENOUGH, NO_ENTRY, false, IDLE},
                                         CodeRow{"Busy", SQLITE_BUSY, ENOUGH, NO_ENTRY, false, IDLE},
                                         CodeRow{"BusyWhenLow", SQLITE_BUSY, LOW, NO_ENTRY, false, IDLE}),
                         test::ParameterName());

INSTANTIATE_TEST_SUITE_P(OfANormalVolume, StatusCodeTest,
                         testing::Values(CodeRow{"Memory", SQLITE_NOMEM, ENOUGH, IDLE, true, STALLED_BY_MEMORY},
                                         CodeRow{"MemoryWhenLow", SQLITE_NOMEM, LOW, IDLE, true, STALLED_BY_MEMORY},
                                         CodeRow{"FullWhenLow", SQLITE_FULL, LOW, IDLE, true, STALLED_BY_DISK},
                                         CodeRow{"IoErrorWhenLow", SQLITE_IOERR, LOW, IDLE, true, STALLED_BY_DISK},
                                         CodeRow{"Full", SQLITE_FULL, ENOUGH, IDLE, false, IDLE},
                                         CodeRow{"IoError", SQLITE_IOERR, ENOUGH, IDLE, false, IDLE},
                                         CodeRow{"Busy", SQLITE_BUSY, LOW, IDLE, false, IDLE}),
                         test::ParameterName());

INSTANTIATE_TEST_SUITE_P(
    OfAnotherVolume, StatusCodeTest,
    testing::Values(CodeRow{"MemoryAfterDisk", SQLITE_NOMEM, ENOUGH, STALLED_BY_DISK, true, STALLED_BY_MEMORY},
                    CodeRow{"DiskAfterMemory", SQLITE_FULL, LOW, STALLED_BY_MEMORY, true, STALLED_BY_DISK},
                    CodeRow{"DiskAgain", SQLITE_IOERR, LOW, STALLED_BY_DISK, true, STALLED_BY_DISK},
                    CodeRow{"FullAfterMemory", SQLITE_FULL, ENOUGH, STALLED_BY_MEMORY, false, STALLED_BY_MEMORY},
                    CodeRow{"IoErrorAfterDisk", SQLITE_IOERR, ENOUGH, STALLED_BY_DISK, false, STALLED_BY_DISK},
                    CodeRow{"BusyAfterDisk", SQLITE_BUSY, LOW, STALLED_BY_DISK, false, STALLED_BY_DISK},
                    CodeRow{"Memory", SQLITE_NOMEM, ENOUGH, OTHER_ENTRY, true, STALLED_BY_MEMORY},
                    CodeRow{"FullWhenLow", SQLITE_FULL, LOW, OTHER_ENTRY, true, STALLED_BY_DISK},
                    CodeRow{"Full", SQLITE_FULL, ENOUGH, OTHER_ENTRY, false, OTHER_ENTRY},
                    CodeRow{"Success", SQLITE_OK, LOW, OTHER_ENTRY, false, OTHER_ENTRY}),
    test::ParameterName());

TEST_F(StatusParamsTest, NoOtherCodeStalls)
{
    FreeSpace const space(0);
    std::vector<unsigned> codes = {SQLITE_ROW, SQLITE_DONE, SQLITE_IOERR_READ, SQLITE_IOERR_NOMEM, 0x107, 0x10D, ~0u};
    for (unsigned code = 0; code <= 30; ++code)
        codes.push_back(code);
    for (unsigned const code : codes) {
        bool const known = code == 7 || code == 10 || code == 13;
        SetEntry(volume_, NO_ENTRY);
        EXPECT_EQ(known, StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, code)) << code;
        SetEntry(other_, OTHER_ENTRY);
        EXPECT_EQ(known, StatusParams::IsSQLiteError_MemoryOrDiskSpace(other_, code)) << code;
        EXPECT_EQ(known, EntryOf(volume_) != IDLE) << code;
        EXPECT_EQ(known, EntryOf(other_) != OTHER_ENTRY) << code;
    }
}

// ---- Clearing a stall.

TEST_F(StatusParamsTest, ResetMakesAnEntryForAnUnknownVolume)
{
    EXPECT_FALSE(StatusParams::ResetStatusIfStalled(volume_));
    EXPECT_EQ(IDLE, EntryOf(volume_));
}

TEST_F(StatusParamsTest, ResetLeavesAnIdleVolumeWhateverItsStatus)
{
    for (char const* entry : {IDLE, "idle: out of memory"}) {
        SetEntry(volume_, entry);
        EXPECT_FALSE(StatusParams::ResetStatusIfStalled(volume_));
        EXPECT_EQ(entry, EntryOf(volume_));
    }
}

TEST_F(StatusParamsTest, ResetTakesAnyOtherActionForAStall)
{
    for (char const* entry : {STALLED_BY_DISK, STALLED_BY_MEMORY, OTHER_ENTRY, "stalled: normal", "Idle: normal"}) {
        SetEntry(volume_, entry);
        EXPECT_TRUE(StatusParams::ResetStatusIfStalled(volume_)) << entry;
        EXPECT_EQ(IDLE, EntryOf(volume_));
        EXPECT_FALSE(StatusParams::ResetStatusIfStalled(volume_));
    }
}

class StatusCheckTest : public StatusParamsTest
{
protected:
    bool Check() { return StatusParams::CheckVolumeDiskSpaceStatus(database_, volume_); }
    bool IsLow() { return StatusParams::IsVolumeLowOnDiskSpace(database_, volume_); }

    RecordingDatabase database_{volume_};
};

TEST_F(StatusCheckTest, WhileSpaceIsLowCheckTouchesNothing)
{
    FreeSpace const space(LOW);
    for (char const* entry : {NO_ENTRY, IDLE, STALLED_BY_DISK, STALLED_BY_MEMORY}) {
        SetEntry(volume_, entry);
        EXPECT_FALSE(Check());
        EXPECT_EQ(entry, EntryOf(volume_));
    }
    EXPECT_EQ(Texts(4, volume_), space.asked);
    EXPECT_EQ(Texts{}, database_.told);
}

TEST_F(StatusCheckTest, WithEnoughSpaceCheckTellsNothingOfAVolumeThatWasNotStalled)
{
    FreeSpace const space(ENOUGH);
    for (char const* entry : {NO_ENTRY, IDLE}) {
        SetEntry(volume_, entry);
        EXPECT_TRUE(Check());
        EXPECT_EQ(IDLE, EntryOf(volume_));
    }
    EXPECT_EQ(Texts{}, database_.told);
}

TEST_F(StatusCheckTest, WithEnoughSpaceCheckResetsAStallAndThenTellsIdle)
{
    FreeSpace const space(ENOUGH);
    for (char const* entry : {STALLED_BY_DISK, STALLED_BY_MEMORY}) {
        SetEntry(volume_, entry);
        database_.told.clear();
        EXPECT_TRUE(Check());
        EXPECT_TRUE(Check());
        EXPECT_EQ(Texts{"'idle' '' with idle: normal"}, database_.told);
    }
}

TEST_F(StatusCheckTest, AVolumeThatIsLowIsStalledAndToldSoEachTime)
{
    FreeSpace const space(LOW);
    for (char const* entry : {NO_ENTRY, IDLE, STALLED_BY_DISK, STALLED_BY_MEMORY}) {
        SetEntry(volume_, entry);
        EXPECT_TRUE(IsLow());
        EXPECT_EQ(STALLED_BY_DISK, EntryOf(volume_));
    }
    EXPECT_EQ(Texts(4, "'stalled' '' with stalled: out of disk space"), database_.told);
    EXPECT_EQ(Texts(4, volume_), space.asked);
}

TEST_F(StatusCheckTest, AVolumeWithEnoughSpaceIsCheckedAndNotStalled)
{
    FreeSpace const space(ENOUGH);
    for (char const* entry : {NO_ENTRY, IDLE, STALLED_BY_MEMORY}) {
        SetEntry(volume_, entry);
        EXPECT_FALSE(IsLow());
        EXPECT_EQ(IDLE, EntryOf(volume_));
    }
    EXPECT_EQ(Texts{"'idle' '' with idle: normal"}, database_.told);
}

TEST_F(StatusCheckTest, OtherVolumesAreLeftAlone)
{
    FreeSpace const space(LOW);
    SetEntry(other_, STALLED_BY_MEMORY);
    EXPECT_TRUE(IsLow());
    StatusParams::ResetStatusIfStalled(volume_);
    StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_FULL);
    EXPECT_EQ(STALLED_BY_MEMORY, EntryOf(other_));
    EXPECT_EQ(Texts(2, volume_), space.asked);
}

TEST_F(StatusCheckTest, PassesOnWhatTheDatabaseThrowsOnceTheEntryIsStored)
{
    database_.after = [] { throw std::runtime_error("closed"); };
    {
        FreeSpace const space(LOW);
        EXPECT_THROW(IsLow(), std::runtime_error);
        EXPECT_EQ(STALLED_BY_DISK, EntryOf(volume_));
    }
    FreeSpace const space(ENOUGH);
    EXPECT_THROW(Check(), std::runtime_error);
    EXPECT_EQ(IDLE, EntryOf(volume_));
}

// ---- What the system itself does.

class StatusVolumeTest : public test::SmallVolumeFixture
{};

TEST_F(StatusVolumeTest, FreeSpaceFollowsTheFilesOnAVolume)
{
    OnASmallVolume([](std::string const& volume) {
        EXPECT_EQ(300u << 20, StatusParams::GetRemainingDiskSpace(volume));
        EXPECT_EQ("314572800 bytes", StatusParams::GetFreeDiskSpace(volume));
        LeaveFree(volume, LOW);
        EXPECT_EQ("262144000 bytes", StatusParams::GetFreeDiskSpace(volume));
        EXPECT_TRUE(StatusParams::IsLowDiskSpace(volume));
        LeaveFree(volume, LOW + static_cast<unsigned long long>(sysconf(_SC_PAGESIZE)));
        EXPECT_FALSE(StatusParams::IsLowDiskSpace(volume));
    });
}

TEST_F(StatusVolumeTest, ADatabaseOnAFullVolumeStallsIt)
{
    OnASmallVolume([](std::string const& volume) {
        test::SqliteDatabase database(volume + "/index.db");
        ASSERT_EQ(unsigned{SQLITE_OK}, database.Insert(1));
        LeaveFree(volume, 0);
        unsigned const code = database.Insert(1 << 20);
        EXPECT_EQ(unsigned{SQLITE_FULL}, code);
        EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, code));
        EXPECT_EQ(STALLED_BY_DISK, EntryOf(volume));
    });
}

TEST_F(StatusVolumeTest, AStalledVolumeGoesOnOnceSpaceHasReturned)
{
    OnASmallVolume([](std::string const& volume) {
        RecordingDatabase const database(volume);
        LeaveFree(volume, 0);
        EXPECT_TRUE(StatusParams::IsVolumeLowOnDiskSpace(database, volume));
        EXPECT_FALSE(StatusParams::CheckVolumeDiskSpaceStatus(database, volume));
        GiveBack(volume);
        EXPECT_FALSE(StatusParams::IsVolumeLowOnDiskSpace(database, volume));
        EXPECT_TRUE(StatusParams::CheckVolumeDiskSpaceStatus(database, volume));
        EXPECT_EQ((Texts{"'stalled' '' with stalled: out of disk space", "'idle' '' with idle: normal"}),
                  database.told);
    });
}

TEST_F(StatusVolumeTest, AFullDatabaseOnAVolumeWithRoomIsNotBlamedOnTheDisk)
{
    OnASmallVolume([](std::string const& volume) {
        test::SqliteDatabase database(volume + "/index.db");
        ASSERT_EQ(unsigned{SQLITE_OK}, database.Execute("PRAGMA max_page_count = 4"));
        unsigned const code = database.Insert(1 << 20);
        EXPECT_EQ(unsigned{SQLITE_FULL}, code);
        EXPECT_FALSE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, code));
        EXPECT_EQ(IDLE, EntryOf(volume));
    });
}

TEST_F(StatusVolumeTest, AnIoErrorIsBlamedOnTheDiskOnlyWhileItIsLow)
{
    OnASmallVolume([](std::string const& volume) {
        test::SqliteDatabase database(volume + "/index.db");
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
        rlimit const limit = {32768, before.rlim_max};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        unsigned const code = database.Insert(1 << 20);
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
        EXPECT_EQ(unsigned{SQLITE_IOERR}, code);
        EXPECT_FALSE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, code));
        LeaveFree(volume, LOW);
        EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, code));
        EXPECT_EQ(STALLED_BY_DISK, EntryOf(volume));
    });
}

TEST_F(StatusVolumeTest, ADatabaseWithoutMemoryStallsItsVolumeUntilTheNextCheck)
{
    OnASmallVolume([](std::string const& volume) {
        test::SqliteDatabase database(volume + "/index.db");
        unsigned code = SQLITE_OK;
        {
            test::SqliteHeapLimit const limit(1 << 20);
            code = database.Execute("SELECT randomblob(4194304)");
        }
        EXPECT_EQ(unsigned{SQLITE_NOMEM}, code);
        EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume, code));
        EXPECT_EQ(STALLED_BY_MEMORY, EntryOf(volume));

        RecordingDatabase const told(volume);
        EXPECT_TRUE(StatusParams::CheckVolumeDiskSpaceStatus(told, volume));
        EXPECT_EQ(Texts{"'idle' '' with idle: normal"}, told.told);
    });
}

TEST_F(StatusVolumeTest, ADatabaseThatIsDamagedOrMissingStallsNothing)
{
    std::string const path = folder_ / "index.db";
    test::WriteFile(path, std::string(4096, 'x'));
    test::SqliteDatabase database(path);
    unsigned const damaged = database.Insert(1);
    unsigned const missing = database.Execute("ATTACH '" + (folder_ / "missing/index.db") + "' AS other");
    EXPECT_EQ(unsigned{SQLITE_NOTADB}, damaged);
    EXPECT_EQ(unsigned{SQLITE_CANTOPEN}, missing);
    EXPECT_FALSE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, damaged));
    EXPECT_FALSE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, missing));
    EXPECT_EQ(IDLE, EntryOf(volume_));
}

// ---- Locks and threads.

char const* const ONE_ACCESS = "lock unlock ";
char const* const TWO_ACCESSES = "lock unlock lock unlock ";

TEST_F(StatusParamsTest, EveryAccessToAnEntryIsLockedOnce)
{
    DiskInfo info = {"action", "status"};
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::GetDiskInfo(volume_, info); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::InsertNewEntry(volume_); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::GetDiskInfo(volume_, info); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::AddNewDiskInfoEntry(volume_); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::SetDiskInfo(volume_, info); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::RemoveDiskInfo(volume_); }));
}

TEST_F(StatusParamsTest, WhatReadsAndThenWritesLocksForEach)
{
    EXPECT_EQ(TWO_ACCESSES, LocksOf([&] { StatusParams::GetStatusFlag(volume_); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::GetStatusFlag(volume_); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::ResetStatusIfStalled(volume_); }));
    EXPECT_EQ(TWO_ACCESSES, LocksOf([&] { StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_NOMEM); }));
    EXPECT_EQ(TWO_ACCESSES, LocksOf([&] { StatusParams::ResetStatusIfStalled(volume_); }));
    EXPECT_EQ(ONE_ACCESS, LocksOf([&] { StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_BUSY); }));
}

TEST_F(StatusParamsTest, ProbesAndCommandsNeedNoLock)
{
    EXPECT_EQ("", LocksOf([&] { StatusParams::GetRemainingDiskSpace(volume_); }));
    EXPECT_EQ("", LocksOf([&] { StatusParams::IsLowDiskSpace(volume_); }));
    EXPECT_EQ("", LocksOf([&] { StatusParams::GetFreeDiskSpace(volume_); }));
    EXPECT_EQ("", LocksOf([] { StatusParams::DoPopen("true"); }));
    EXPECT_EQ("", LocksOf([] {
                  std::string text = "MemFree: 1 kB";
                  StatusParams::ParseMemInfo("MemFree:", text);
              }));
}

TEST_F(StatusCheckTest, TheSystemAndTheDatabaseAreAskedWithoutTheLock)
{
    for (unsigned long long const bytes : {LOW, ENOUGH}) {
        FreeSpace const space(bytes);
        MutexCalls const calls([&] {
            StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_FULL);
            IsLow();
            Check();
        });
        EXPECT_EQ(3u, space.asked.size());
        EXPECT_FALSE(space.underALock);
    }
    EXPECT_EQ(2u, database_.told.size());
    EXPECT_FALSE(database_.underALock);
}

TEST_F(StatusParamsTest, WhatIsStoredDuringAProbeIsOverwrittenWhereTheVolumeHadNoEntry)
{
    for (unsigned long long const bytes : {LOW, ENOUGH}) {
        FreeSpace space(bytes);
        SetEntry(volume_, NO_ENTRY);
        space.during = [&] { SetEntry(volume_, STALLED_BY_MEMORY); };
        StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_FULL);
        EXPECT_EQ(bytes == LOW ? STALLED_BY_DISK : IDLE, EntryOf(volume_));
    }
}

TEST_F(StatusParamsTest, AKnownVolumeIsStoredOnlyWhenItStalls)
{
    for (unsigned long long const bytes : {LOW, ENOUGH}) {
        FreeSpace space(bytes);
        SetEntry(volume_, IDLE);
        space.during = [&] { SetEntry(volume_, NO_ENTRY); };
        StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_FULL);
        EXPECT_EQ(bytes == LOW ? STALLED_BY_DISK : NO_ENTRY, EntryOf(volume_));
    }
}

// Runs `body` on several threads at once, each with its number.
void OnThreads(std::function<void(int)> const& body)
{
    constexpr int THREADS = 6;

    test::Latch ready;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&ready, &body, i] {
            ready.Arrive();
            EXPECT_TRUE(ready.WaitFor(THREADS)) << "not all threads have started";
            body(i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(StatusParamsTest, ThreadsOnVolumesOfTheirOwnDoNotDisturbEachOther)
{
    OnThreads([this](int number) {
        std::string const own = volume_ + std::to_string(number);
        RecordingDatabase const database(own);
        for (int round = 0; round < 200; ++round) {
            EXPECT_TRUE(StatusParams::IsStatusNormal(own));
            EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(own, SQLITE_NOMEM));
            EXPECT_EQ("out of memory", StatusParams::GetStatusFlag(own));
            EXPECT_TRUE(StatusParams::IsVolumeLowOnDiskSpace(database, own));
            EXPECT_EQ(STALLED_BY_DISK, EntryOf(own));
            EXPECT_TRUE(StatusParams::ResetStatusIfStalled(own));
            StatusParams::InsertNewEntry(own);
            EXPECT_EQ(IDLE, EntryOf(own));
            StatusParams::RemoveDiskInfo(own);
            EXPECT_EQ(NO_ENTRY, EntryOf(own));
        }
        EXPECT_EQ(200u, database.told.size());
    });
}

TEST_F(StatusParamsTest, ThreadsOnOneVolumeSeeWholeEntries)
{
    Texts const whole = {NO_ENTRY, IDLE, STALLED_BY_DISK, STALLED_BY_MEMORY};
    OnThreads([&](int number) {
        for (int round = 0; round < 200; ++round) {
            switch ((number + round) % 5) {
                case 0:
                    EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_NOMEM));
                    break;
                case 1:
                    EXPECT_TRUE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(volume_, SQLITE_FULL));
                    break;
                case 2:
                    StatusParams::ResetStatusIfStalled(volume_);
                    break;
                case 3:
                    StatusParams::GetStatusFlag(volume_);
                    break;
                default:
                    StatusParams::RemoveDiskInfo(volume_);
            }
            EXPECT_EQ(1, std::count(whole.begin(), whole.end(), EntryOf(volume_)));
        }
    });
}

TEST_F(StatusParamsTest, EveryThreadSeesWhatAnotherStored)
{
    std::thread([this] { SetEntry(volume_, STALLED_BY_DISK); }).join();
    EXPECT_EQ(STALLED_BY_DISK, EntryOf(volume_));
}

// ---- Commands.

class StatusCommandTest : public StatusParamsTest
{
protected:
    ~StatusCommandTest() override
    {
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child was not waited for";
        EXPECT_EQ(ECHILD, errno);
    }
};

TEST_F(StatusCommandTest, GivesWhatTheCommandWrites)
{
    EXPECT_EQ("hello", StatusParams::DoPopen("printf hello"));
    EXPECT_EQ("", StatusParams::DoPopen("true"));
    EXPECT_EQ("", StatusParams::DoPopen(""));
}

TEST_F(StatusCommandTest, KeepsLineFeedsAndBlanks)
{
    EXPECT_EQ("\n a \n\n", StatusParams::DoPopen("printf '\\n a \\n\\n'"));
}

TEST_F(StatusCommandTest, KeepsBytesOfEveryValue)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    test::TemporaryDirectory const folder;
    test::WriteFile(folder / "bytes", bytes);
    EXPECT_EQ(bytes, StatusParams::DoPopen("cat '" + folder / "bytes'"));
}

TEST_F(StatusCommandTest, RunsTheCommandInAShell)
{
    EXPECT_EQ("3 2\n", StatusParams::DoPopen("x=1; echo $((x + 2)) $(printf 'a\\nb\\n' | wc -l)"));
}

TEST_F(StatusCommandTest, GivesTheStandardOutputOnly)
{
    test::ChildResult const result = test::RunInChild([] {
        std::string const output = StatusParams::DoPopen("printf output; printf errors >&2");
        EXPECT_EQ("output", output);
    });
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("errors", result.output);
}

class StatusOutputTest : public StatusCommandTest, public testing::WithParamInterface<std::size_t>
{};

TEST_P(StatusOutputTest, IsWholeAtAnySize)
{
    std::string const command = "head -c " + std::to_string(GetParam()) + " /dev/zero | tr '\\0' x";
    std::string const output = StatusParams::DoPopen(command);
    EXPECT_EQ(GetParam(), output.size());
    EXPECT_EQ(std::string::npos, output.find_first_not_of('x'));
}

INSTANTIATE_TEST_SUITE_P(Sizes, StatusOutputTest,
                         testing::Values(1, 127, 128, 129, 255, 256, 257, 4096, 65537, 300000));

TEST_F(StatusCommandTest, TakesOutputThatComesInParts)
{
    EXPECT_EQ("abc", StatusParams::DoPopen("for x in a b c; do printf $x; /bin/true; done"));
}

TEST_F(StatusCommandTest, HowTheCommandEndsIsIgnored)
{
    EXPECT_EQ("before", StatusParams::DoPopen("printf before; exit 3"));
    EXPECT_EQ("before", StatusParams::DoPopen("printf before; kill -KILL $$"));
    EXPECT_EQ("", StatusParams::DoPopen("exec 2>/dev/null; no-such-command"));
}

TEST_F(StatusCommandTest, AnEndThatCannotBeAskedForIsIgnoredToo)
{
    test::ExpectPassesInChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ("before", StatusParams::DoPopen("printf before"));
    });
}

TEST_F(StatusCommandTest, ACommandThatCannotBeStartedGivesNothing)
{
    test::ExpectPassesInChild([] {
        EXPECT_EQ("before", StatusParams::DoPopen("printf before"));
        rlimit before = {};
        ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
        rlimit const none = {0, before.rlim_max};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
        EXPECT_EQ("", StatusParams::DoPopen("printf never"));
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
        EXPECT_EQ("after", StatusParams::DoPopen("printf after"));
    });
}

TEST_F(StatusCommandTest, IsOpenedForReading)
{
    Texts opened;
    test::PopenFunction::Replacement const watched(test::PopenCall(), [&](char const* command, char const* mode) {
        opened = {command, mode};
        return test::PopenCall().System(command, mode);
    });
    EXPECT_EQ("x", StatusParams::DoPopen("printf x"));
    EXPECT_EQ((Texts{"printf x", "r"}), opened);
}

TEST_F(StatusCommandTest, IsClosedOnceAsACommandIs)
{
    int closed = 0;
    test::PcloseFunction::Replacement const watched(test::PcloseCall(), [&](FILE* stream) {
        ++closed;
        test::PcloseCall().System(stream);
        return -1;
    });
    EXPECT_EQ("x", StatusParams::DoPopen("printf x"));
    EXPECT_EQ(1, closed);
}

TEST_F(StatusCommandTest, IsReadInPiecesOf128Bytes)
{
    std::vector<std::size_t> pieces;
    test::FreadFunction::Replacement const watched(
        test::FreadCall(), [&](void* buffer, std::size_t size, std::size_t count, FILE* stream) {
            pieces.push_back(size * count);
            return test::FreadCall().System(buffer, size, count, stream);
        });
    EXPECT_EQ(300u, StatusParams::DoPopen("head -c 300 /dev/zero").size());
    EXPECT_EQ(std::vector<std::size_t>(3, 128), pieces);
}

// What DoPopen returns when the reading end of the command's pipe becomes another descriptor, which is used up.
std::string ReadFrom(int descriptor)
{
    test::PopenFunction::Replacement const exchanged(test::PopenCall(), [=](char const* command, char const* mode) {
        FILE* const stream = test::PopenCall().System(command, mode);
        EXPECT_NE(-1, dup2(descriptor, fileno(stream)));
        close(descriptor);
        return stream;
    });
    return StatusParams::DoPopen("true");
}

// In a child, whose processor time is limited.
TEST_F(StatusCommandTest, AReadThatFailsEndsTheOutput)
{
    test::ExpectPassesInChild([] { EXPECT_EQ("", ReadFrom(open("/", O_RDONLY | O_DIRECTORY))); });
}

// A connection whose other end goes without having read everything breaks off behind what it sent.
TEST_F(StatusCommandTest, KeepsWhatCameBeforeAReadThatFails)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_LOCAL, SOCK_STREAM, 0, ends));
    EXPECT_EQ(6, write(ends[0], "before", 6));
    EXPECT_EQ(6, write(ends[1], "unread", 6));
    close(ends[0]);
    EXPECT_EQ("before", ReadFrom(ends[1]));
}

// The command waits to be let go until the interrupted read is over: it is waited for in any case.
TEST_F(StatusCommandTest, AReadThatIsInterruptedEndsTheOutput)
{
    test::TemporaryDirectory const folder;
    std::string const gate = folder / "gate";
    ASSERT_EQ(0, mkfifo(gate.c_str(), 0600));
    std::unique_ptr<test::Interruptions> interruptions;
    test::PopenFunction::Replacement const started(test::PopenCall(), [&](char const* command, char const* mode) {
        FILE* const stream = test::PopenCall().System(command, mode);
        pollfd output = {fileno(stream), POLLIN, 0};
        EXPECT_EQ(1, poll(&output, 1, -1));
        interruptions.reset(new test::Interruptions(1000));
        return stream;
    });
    test::PcloseFunction::Replacement const ended(test::PcloseCall(), [&](FILE* stream) {
        interruptions.reset();
        close(open(gate.c_str(), O_WRONLY));
        return test::PcloseCall().System(stream);
    });
    EXPECT_EQ("before", StatusParams::DoPopen("printf before; read line <'" + gate + "'; printf behind"));
}

TEST_F(StatusCommandTest, LeavesNoDescriptorOpen)
{
    StatusParams::DoPopen("printf x");
    StatusParams::DoPopen("exit 1");
    EXPECT_EQ(descriptors_, test::CountDescriptors());
}

TEST_F(StatusCommandTest, ThreadsGetTheOutputOfTheirOwnCommands)
{
    OnThreads([](int number) {
        for (int round = 0; round < 5; ++round) {
            std::string const text = std::to_string(number) + " " + std::to_string(round);
            EXPECT_EQ(text, StatusParams::DoPopen("printf '" + text + "'"));
        }
    });
}

// ---- Values out of a text.

// What ParseMemInfo makes of a text: the number and what is left of the text.
std::string Parse(std::string const& key, std::string text)
{
    unsigned long long const value = StatusParams::ParseMemInfo(key, text);
    return std::to_string(value) + " '" + text + "'";
}

std::string Parse(std::string const& text)
{
    return Parse("MemFree:", text);
}

TEST(StatusMemInfoTest, GivesTheNumberBetweenTheKeyAndTheUnit)
{
    EXPECT_EQ("42 '42'", Parse("MemTotal: 100 kB\nMemFree: 42 kB\n"));
    EXPECT_EQ("100 '100'", Parse("MemTotal:", "MemTotal: 100 kB\nMemFree: 42 kB\n"));
    EXPECT_EQ("0 '0'", Parse("MemFree: 0 kB"));
}

TEST(StatusMemInfoTest, WithoutTheKeyTheTextStays)
{
    EXPECT_EQ("0 'MemTotal: 100 kB'", Parse("MemTotal: 100 kB"));
    EXPECT_EQ("0 'memfree: 1 kB'", Parse("memfree: 1 kB"));
    EXPECT_EQ("0 ''", Parse(""));
}

TEST(StatusMemInfoTest, WithoutAUnitWhatFollowsTheKeyIsLeft)
{
    EXPECT_EQ("0 ' 42 pages\n'", Parse("MemTotal: 100 kB\nMemFree: 42 pages\n"));
    EXPECT_EQ("0 ' 42 KB '", Parse("MemFree: 42 KB "));
    EXPECT_EQ("0 ''", Parse("MemFree:"));
}

TEST(StatusMemInfoTest, TheFirstKeyAnywhereInTheTextCounts)
{
    EXPECT_EQ("1 '1'", Parse("MemFree: 1 kB\nMemFree: 2 kB\n"));
    EXPECT_EQ("3 '3'", Parse("NotMemFree: 3 kB\nMemFree: 4 kB\n"));
    EXPECT_EQ("0 ': 5'", Parse("MemFree", "MemFree: 5 kB"));
    EXPECT_EQ("0 'Total: 6'", Parse("Mem", "MemTotal: 6 kB\nMem 7 kB"));
}

TEST(StatusMemInfoTest, TheUnitMayStandOnALaterLine)
{
    EXPECT_EQ("1 '1\nMemUsed: 2'", Parse("MemFree: 1\nMemUsed: 2 kB\n"));
    EXPECT_EQ("8 '8'", Parse("MemFree:8kB"));
    EXPECT_EQ("9 '9'", Parse("1 kB MemFree: 9 kB"));
}

TEST(StatusMemInfoTest, AnEmptyKeyStandsAtTheBeginning)
{
    EXPECT_EQ("7 '7'", Parse("", " 7 kB"));
}

TEST(StatusMemInfoTest, WhiteSpaceIsTrimmedFromBothEndsOnly)
{
    EXPECT_EQ("1 '1 \t2'", Parse("MemFree: \t\n\v\f\r1 \t2\r\f\v\n\t kB"));
    EXPECT_EQ("0 ''", Parse("MemFree: \t kB"));
    EXPECT_EQ("0 ''", Parse("MemFree:kB"));
    EXPECT_EQ(
        "0 '\xa0"
        "1\x85'",
        Parse("MemFree: \xa0"
              "1\x85 kB"));
}

TEST(StatusMemInfoTest, NoNumberGivesZero)
{
    EXPECT_EQ("0 'many'", Parse("MemFree: many kB"));
    EXPECT_EQ("0 '-'", Parse("MemFree: - kB"));
    EXPECT_EQ("0 '.5'", Parse("MemFree: .5 kB"));
}

TEST(StatusMemInfoTest, TheNumberIsDecimalAndReadAsFarAsItGoes)
{
    EXPECT_EQ("12 '12x'", Parse("MemFree: 12x kB"));
    EXPECT_EQ("12 '12.5'", Parse("MemFree: 12.5 kB"));
    EXPECT_EQ("10 '010'", Parse("MemFree: 010 kB"));
    EXPECT_EQ("0 '0x10'", Parse("MemFree: 0x10 kB"));
    EXPECT_EQ("5 '+5'", Parse("MemFree: +5 kB"));
}

TEST(StatusMemInfoTest, TheNumberHasSixtyFourBits)
{
    EXPECT_EQ("4294967296 '4294967296'", Parse("MemFree: 4294967296 kB"));
    EXPECT_EQ("18446744073709551615 '18446744073709551615'", Parse("MemFree: 18446744073709551615 kB"));
}

// As stream extraction has it: too large becomes the largest, and a minus sign is taken from 2 to the power of 64.
TEST(StatusMemInfoTest, ANumberOutOfRangeIsWhatStreamExtractionGives)
{
    EXPECT_EQ("18446744073709551615 '18446744073709551616'", Parse("MemFree: 18446744073709551616 kB"));
    EXPECT_EQ("18446744073709551611 '-5'", Parse("MemFree: -5 kB"));
}

TEST(StatusMemInfoTest, DigitGroupsOfTheLocaleAreNotUnderstood)
{
    test::DigitGroups const groups;
    EXPECT_EQ("1 '1,234'", Parse("MemFree: 1,234 kB"));
    EXPECT_EQ("1234567 '1234567'", Parse("MemFree: 1234567 kB"));
}

// To this locale a digit is white space.
TEST(StatusMemInfoTest, WhiteSpaceOfTheLocaleIsNotTrimmed)
{
    struct Strange : std::ctype<char>
    {
        Strange() : std::ctype<char>(Table()) {}

        static mask const* Table()
        {
            static std::vector<mask> table(classic_table(), classic_table() + table_size);
            table['4'] = space;
            return table.data();
        }
    };
    std::locale const before = std::locale::global(std::locale(std::locale::classic(), new Strange));
    std::string const result = Parse("MemFree: 444 kB");
    std::locale::global(before);
    EXPECT_EQ("444 '444'", result);
}

TEST(StatusMemInfoTest, ReadsWhatTheSystemTells)
{
    std::string text = StatusParams::DoPopen("cat /proc/meminfo");
    std::string const key = "MemTotal:";
    std::string::size_type const number = text.find_first_not_of(' ', text.find(key) + key.size());
    std::string const expected = text.substr(number, text.find(' ', number) - number);
    unsigned long long const value = StatusParams::ParseMemInfo(key, text);
    EXPECT_LT(0u, value);
    EXPECT_EQ(expected, text);
    EXPECT_EQ(expected, std::to_string(value));
}

}}}  // namespace tovu::util
