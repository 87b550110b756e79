#include "tovu/util/DynamicLibrary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "AnotherProgram.h"
#include "CapturedLog.h"
#include "ChildProcess.h"
#include "EnvironmentVariable.h"
#include "FreshProcess.h"
#include "LogLines.h"
#include "PrivateMember.h"
#include "QueuedLog.h"
#include "TemporaryDirectory.h"
#include "Throws.h"

namespace tovu { namespace util { namespace {

using test::CapturedLog;

static_assert(!std::is_polymorphic<DynamicLibrary>::value, "no virtual operations");
static_assert(!std::is_copy_constructible<DynamicLibrary>::value, "one owner");
static_assert(!std::is_copy_assignable<DynamicLibrary>::value, "one owner");
static_assert(std::is_nothrow_destructible<DynamicLibrary>::value, "the destructor never throws");

TOVU_PRIVATE_MEMBER(Handle, void*, DynamicLibrary, handle_);

char const* const SOURCE = "src/util/DynamicLibrary.cpp";

// What the loader says when it fails to open `path`.
std::string OpenFailure(std::string const& path)
{
    EXPECT_EQ(nullptr, dlopen(path.c_str(), RTLD_LAZY)) << path;
    return dlerror();
}

// The message of the failure with which `action` ends; it is thrown by the class itself.
template <typename Action>
std::string FailureOf(Action action)
{
    Exception const exception = test::Thrown(action);
    EXPECT_EQ(1u, exception.locations.size());
    EXPECT_STREQ(SOURCE, exception.locations.front().file);
    return exception.what();
}

int Call(DynamicLibrary const& library, std::string const& function)
{
    return reinterpret_cast<int (*)()>(library.GetProc(function))();
}

// Takes the one reference that a DynamicLibrary has to the file at `path`: the loader then refuses to close it. The
// library stays in memory for the length of a scope, because the other plug-in is bound to it meanwhile.
class ClosedByAnother
{
public:
    explicit ClosedByAnother(std::string const& path) : path_(path)
    {
        void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
        user_ = dlopen(OTHER_PLUGIN ".so", RTLD_LAZY);
        EXPECT_NE(nullptr, user_) << dlerror();
        EXPECT_EQ(0, dlclose(handle));
        EXPECT_EQ(0, dlclose(handle));
    }

    ClosedByAnother(ClosedByAnother const&) = delete;
    ClosedByAnother& operator=(ClosedByAnother const&) = delete;
    ~ClosedByAnother() { EXPECT_EQ(0, dlclose(user_)); }

    // Gives the reference back to an object that lives on.
    void GiveBack() const { EXPECT_NE(nullptr, dlopen(path_.c_str(), RTLD_LAZY)) << dlerror(); }

private:
    std::string const path_;
    void* user_;
};

class DynamicLibraryTest : public testing::Test
{
protected:
    // Copies the plug-in to a file of its own, and returns the name to load it by. One of the names in it may be
    // replaced by another of the same length.
    std::string CopyPlugin(std::string const& name, std::string const& from = "", std::string const& to = "")
    {
        std::string bytes = test::ReadFile(PLUGIN ".so");
        if (!from.empty()) {
            std::string::size_type const found = bytes.find('\0' + from + '\0');
            EXPECT_NE(std::string::npos, found) << "the plug-in does not import " << from;
            bytes.replace(found + 1, to.size(), to);
        }
        test::WriteFile(folder_ / (name + ".so"), bytes);
        return folder_ / name;
    }

    // The lines that the plug-ins have written since the last call.
    std::string TakeJournal() const
    {
        std::string const lines = test::ReadFile(journal_);
        test::WriteFile(journal_, "");
        return lines;
    }

    void ExpectEmpty() const
    {
        EXPECT_EQ("Cannot GetProc for x: library not loaded", FailureOf([this] { library_.GetProc("x"); }));
    }

    test::TemporaryDirectory const folder_;
    std::string const journal_ = folder_ / "journal";
    test::EnvironmentVariable const variable_{"PLUGIN_JOURNAL", journal_};
    DynamicLibrary library_;
};

// ---- Loading.

TEST_F(DynamicLibraryTest, StartsEmpty)
{
    EXPECT_EQ(nullptr, Handle::Of(library_));
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, LoadOpensTheNameWithTheExtension)
{
    library_.Load(PLUGIN);
    EXPECT_EQ("plugin loaded\n", TakeJournal());
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, HoldsTheLoadersHandle)
{
    library_.Load(PLUGIN);
    void* const handle = dlopen(PLUGIN ".so", RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_EQ(handle, Handle::Of(library_));
    dlclose(handle);
}

TEST_F(DynamicLibraryTest, NameThatEndsInTheExtensionGetsASecondOne)
{
    std::string const expected = OpenFailure(PLUGIN ".so.so");
    EXPECT_EQ(expected, FailureOf([this] { library_.Load(PLUGIN ".so"); }));
    library_.Load(CopyPlugin("twice.so"));
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, EmptyNameIsTheExtensionAlone)
{
    std::string const expected = OpenFailure(".so");
    EXPECT_EQ(expected, FailureOf([this] { library_.Load(""); }));
}

TEST_F(DynamicLibraryTest, MissingLibraryThrowsTheLoadersText)
{
    std::string const expected = OpenFailure(folder_ / "missing.so");
    EXPECT_EQ(expected, FailureOf([this] { library_.Load(folder_ / "missing"); }));
    EXPECT_NE(std::string::npos, expected.find("missing.so: cannot open shared object file"));
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, FileThatIsNoLibraryThrowsTheLoadersText)
{
    test::WriteFile(folder_ / "text.so", std::string(10000, 'x'));
    std::string const expected = OpenFailure(folder_ / "text.so");
    EXPECT_EQ(expected, FailureOf([this] { library_.Load(folder_ / "text"); }));
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, LibraryThatWantsAMissingVariableThrowsTheLoadersText)
{
    std::string const name = CopyPlugin("wanting", "optind", "absent");
    std::string const expected = OpenFailure(name + ".so");
    EXPECT_EQ(expected, FailureOf([&] { library_.Load(name); }));
    EXPECT_NE(std::string::npos, expected.find("undefined symbol: absent")) << expected;
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, TextOfTheLoaderIsNoFormat)
{
    std::string const expected = OpenFailure(folder_ / "%s%d%n.so");
    EXPECT_EQ(expected, FailureOf([this] { library_.Load(folder_ / "%s%d%n"); }));
}

TEST_F(DynamicLibraryTest, EachThreadGetsTheTextOfItsOwnFailure)
{
    std::string const expected = OpenFailure(folder_ / "missing.so");
    std::string const otherExpected = OpenFailure(folder_ / "other.so");
    auto const failOften = [this](char const* name, std::string const& text) {
        DynamicLibrary library;
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(text, FailureOf([&] { library.Load(folder_ / name); }));
    };
    std::thread other(failOften, "other", otherExpected);
    failOften("missing", expected);
    other.join();
}

// The loader opens the broken copy only as long as it need not look for the function.
TEST_F(DynamicLibraryTest, FunctionsAreBoundWhenTheyAreFirstCalled)
{
    std::string const name = CopyPlugin("lazy", "getpgrp", "nowhere");
    std::string const path = name + ".so";
    ASSERT_EQ(nullptr, dlopen(path.c_str(), RTLD_NOW));
    void* const handle = dlopen(path.c_str(), RTLD_LAZY);
    if (handle == nullptr)
        GTEST_SKIP() << "the plug-ins of this build are linked to be bound at once";
    dlclose(handle);

    library_.Load(name);
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, SymbolsAreNotSeenByTheProgram)
{
    library_.Load(PLUGIN);
    EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, SymbolsAreNotSeenByAnotherLibrary)
{
    library_.Load(PLUGIN);
    DynamicLibrary other;
    other.Load(OTHER_PLUGIN);
    EXPECT_FALSE(reinterpret_cast<bool (*)()>(other.GetProc("SeesTheFirstPlugin"))());
    EXPECT_THROW(other.GetProc("PluginAnswer"), Exception);
}

TEST_F(DynamicLibraryTest, NameWithoutASlashIsNotLookedForInTheCurrentFolder)
{
    test::ExpectPassesInChild([this] {
        ASSERT_EQ(0, chdir(PLUGIN_FOLDER));
        std::string const expected = OpenFailure("plugin.so");
        EXPECT_EQ(expected, FailureOf([this] { library_.Load("plugin"); }));
        library_.Load("./plugin");
        EXPECT_EQ(42, Call(library_, "PluginAnswer"));
    });
}

// The loader reads LD_LIBRARY_PATH when a program starts, so this case runs in a second one.
TEST_F(DynamicLibraryTest, NameWithoutASlashIsLookedForWhereTheLoaderSearches)
{
    if (std::getenv("PLUGIN_SEARCH") != nullptr) {
        library_.Load("plugin");
        EXPECT_EQ(42, Call(library_, "PluginAnswer"));
        return;
    }
    test::EnvironmentVariable const again("PLUGIN_SEARCH", "on");
    char const* const path = std::getenv("LD_LIBRARY_PATH");
    test::EnvironmentVariable const folders("LD_LIBRARY_PATH", PLUGIN_FOLDER ":" + std::string(path ? path : ""));
    test::ExpectPassesInAnotherProgram();
}

// ---- Loading another one.

TEST_F(DynamicLibraryTest, LoadUnloadsTheFirstBeforeItOpensTheSecond)
{
    library_.Load(PLUGIN);
    library_.Load(OTHER_PLUGIN);
    EXPECT_EQ("plugin loaded\nplugin unloaded\nother plugin loaded\n", TakeJournal());
    EXPECT_EQ(43, Call(library_, "OtherAnswer"));
    EXPECT_THROW(library_.GetProc("PluginAnswer"), Exception);
}

TEST_F(DynamicLibraryTest, LoadingTheSameAgainUnloadsItFirst)
{
    library_.Load(PLUGIN);
    library_.Load(PLUGIN);
    EXPECT_EQ("plugin loaded\nplugin unloaded\nplugin loaded\n", TakeJournal());
}

TEST_F(DynamicLibraryTest, FailedLoadLeavesNothingLoaded)
{
    library_.Load(PLUGIN);
    EXPECT_THROW(library_.Load(folder_ / "missing"), Exception);
    EXPECT_EQ("plugin loaded\nplugin unloaded\n", TakeJournal());
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, CanLoadAfterAFailedLoad)
{
    EXPECT_THROW(library_.Load(folder_ / "missing"), Exception);
    library_.Load(PLUGIN);
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, NothingIsLoadedWhenTheFirstCannotBeUnloaded)
{
    std::string const name = CopyPlugin("kept");
    library_.Load(name);
    ClosedByAnother const closed(name + ".so");
    EXPECT_EQ(name + ".so: shared object not open", FailureOf([this] { library_.Load(folder_ / "missing"); }));
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
    closed.GiveBack();
}

// ---- Unloading.

TEST_F(DynamicLibraryTest, UnloadGivesTheLibraryBack)
{
    library_.Load(PLUGIN);
    library_.Unload();
    EXPECT_EQ("plugin loaded\nplugin unloaded\n", TakeJournal());
    EXPECT_EQ(nullptr, Handle::Of(library_));
    ExpectEmpty();
}

TEST_F(DynamicLibraryTest, UnloadWithoutALibraryDoesNothing)
{
    EXPECT_NO_THROW(library_.Unload());
    library_.Load(PLUGIN);
    library_.Unload();
    EXPECT_NO_THROW(library_.Unload());
    EXPECT_EQ("plugin loaded\nplugin unloaded\n", TakeJournal());
}

TEST_F(DynamicLibraryTest, CanLoadAgainAfterUnload)
{
    library_.Load(PLUGIN);
    library_.Unload();
    library_.Load(PLUGIN);
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, FailedUnloadThrowsTheLoadersTextAndKeepsTheLibrary)
{
    std::string const name = CopyPlugin("kept");
    library_.Load(name);
    {
        ClosedByAnother const closed(name + ".so");
        EXPECT_EQ(name + ".so: shared object not open", FailureOf([this] { library_.Unload(); }));
        EXPECT_EQ(42, Call(library_, "PluginAnswer"));
        closed.GiveBack();
    }
    TakeJournal();
    EXPECT_NO_THROW(library_.Unload());
    EXPECT_EQ("plugin unloaded\n", TakeJournal());
}

TEST_F(DynamicLibraryTest, LibraryStaysWhileAnotherObjectHasIt)
{
    DynamicLibrary other;
    library_.Load(PLUGIN);
    other.Load(PLUGIN);
    library_.Unload();
    EXPECT_EQ("plugin loaded\n", TakeJournal());
    EXPECT_EQ(42, Call(other, "PluginAnswer"));
}

// ---- Looking up.

TEST_F(DynamicLibraryTest, GetProcNamesWhatItCannotLookUp)
{
    EXPECT_EQ("Cannot GetProc for PluginAnswer: library not loaded",
              FailureOf([this] { library_.GetProc("PluginAnswer"); }));
    EXPECT_EQ("Cannot GetProc for : library not loaded", FailureOf([this] { library_.GetProc(""); }));
    EXPECT_EQ("Cannot GetProc for %s%n: library not loaded", FailureOf([this] { library_.GetProc("%s%n"); }));
}

TEST_F(DynamicLibraryTest, GetProcFindsVariablesAsWell)
{
    library_.Load(PLUGIN);
    EXPECT_EQ(7, *static_cast<int*>(library_.GetProc("pluginNumber")));
}

TEST_F(DynamicLibraryTest, GetProcReturnsTheLoadersAddress)
{
    library_.Load(PLUGIN);
    DynamicLibrary const& constant = library_;
    EXPECT_EQ(dlsym(Handle::Of(library_), "PluginAnswer"), constant.GetProc("PluginAnswer"));
}

TEST_F(DynamicLibraryTest, MissingSymbolThrowsTheLoadersTextAndKeepsTheLibrary)
{
    library_.Load(PLUGIN);
    EXPECT_EQ(PLUGIN ".so: undefined symbol: Missing", FailureOf([this] { library_.GetProc("Missing"); }));
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

TEST_F(DynamicLibraryTest, SymbolWhoseAddressIsNullIsAFailure)
{
    library_.Load(PLUGIN);
    EXPECT_EQ("(null)", FailureOf([this] { library_.GetProc("pluginNull"); })) << "dlerror has nothing to say";
    EXPECT_EQ(42, Call(library_, "PluginAnswer"));
}

// ---- Destruction.

TEST_F(DynamicLibraryTest, DestructorUnloads)
{
    std::unique_ptr<DynamicLibrary> library(new DynamicLibrary);
    library->Load(PLUGIN);
    library.reset();
    EXPECT_EQ("plugin loaded\nplugin unloaded\n", TakeJournal());
}

TEST_F(DynamicLibraryTest, DestructorLogsAFailedUnload)
{
    CapturedLog log;
    std::string const name = CopyPlugin("kept");
    std::unique_ptr<DynamicLibrary> library(new DynamicLibrary);
    library->Load(name);
    ClosedByAnother const closed(name + ".so");
    Exception const failure = test::Thrown([&] { library->Unload(); });
    library.reset();

    std::vector<CapturedLog::Line> const lines = log.Take();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(0u, lines[0].header.find(std::string("Error ") + SOURCE + ":")) << lines[0].header;
    EXPECT_EQ(failure.Report() + "\n", lines[0].message);
}

TEST_F(DynamicLibraryTest, DestructorIsSilentBelowTheThreshold)
{
    test::ExpectPassesWithIdleLog([this] {
        std::string const name = CopyPlugin("kept");
        std::unique_ptr<DynamicLibrary> library(new DynamicLibrary);
        library->Load(name);
        ClosedByAnother const closed(name + ".so");
        library.reset();
        EXPECT_TRUE(test::TakeQueuedLines().empty());
    });
}

TEST_F(DynamicLibraryTest, DestructorLogsNothingWhenItCanUnload)
{
    CapturedLog log;
    std::unique_ptr<DynamicLibrary> library(new DynamicLibrary);
    library->Load(PLUGIN);
    library.reset(new DynamicLibrary);
    library.reset();
    EXPECT_TRUE(test::TakeLines(log).empty());
}

}}}  // namespace tovu::util
