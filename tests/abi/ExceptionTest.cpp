#include "tovu/util/Exception.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "Throws.h"
#include "tovu/util/FileHandleStream.h"

// Exceptions that the library, a program and a plug-in throw at each other. The plug-in is loaded with RTLD_LOCAL: nothing
// that it brings along serves the program, and it finds the type of the Exception in the library alone.

namespace tovu { namespace util { namespace {

char const* const REPORT = "No such file or directory\nTraceback:\nthrown from src/util/FileHandleStream.cpp, line 238";

void LibraryThrows()
{
    FileHandleStream().Open("/no/such/file", O_RDONLY, 0);
}

void ProgramThrows()
{
    throw Exception("program.cpp", 11, "The program has failed.");
}

void ProgramThrowsAnother()
{
    throw std::runtime_error("not of the library");
}

class AbiExceptionTest : public testing::Test
{
protected:
    typedef void (*Action)();
    typedef void (*Catcher)(Action action, std::string& result);

    AbiExceptionTest() : plugin_(dlopen(THROWING_PLUGIN, RTLD_NOW | RTLD_LOCAL))
    {
        EXPECT_NE(nullptr, plugin_) << dlerror();
    }
    AbiExceptionTest(AbiExceptionTest const&) = delete;
    AbiExceptionTest& operator=(AbiExceptionTest const&) = delete;
    ~AbiExceptionTest() override { EXPECT_EQ(0, dlclose(plugin_)); }

    Action InPlugin(char const* name) const { return Function<Action>(name); }

    std::string CaughtInPlugin(char const* catcher, Action action) const
    {
        std::string result;
        Function<Catcher>(catcher)(action, result);
        return result;
    }

private:
    template <typename Type>
    Type Function(char const* name) const
    {
        return reinterpret_cast<Type>(dlsym(plugin_, name));
    }

    void* const plugin_;
};

TEST_F(AbiExceptionTest, ProgramCatchesWhatTheLibraryThrows)
{
    EXPECT_EQ(REPORT, test::Thrown(&LibraryThrows).Report());
}

TEST_F(AbiExceptionTest, PluginCatchesWhatTheLibraryThrows)
{
    EXPECT_EQ(REPORT, CaughtInPlugin("CatchFrom", InPlugin("LibraryThrows")));
}

TEST_F(AbiExceptionTest, PluginCatchesItAsAStandardException)
{
    EXPECT_EQ("No such file or directory", CaughtInPlugin("CatchStandardFrom", InPlugin("LibraryThrows")));
}

TEST_F(AbiExceptionTest, ProgramCatchesWhatTheLibraryThrowsThroughThePlugin)
{
    EXPECT_EQ(std::string(REPORT) + "\n  seen at plugin.cpp, line 7",
              test::Thrown(InPlugin("LibraryThrowsOnward")).Report());
}

TEST_F(AbiExceptionTest, ProgramCatchesWhatThePluginThrows)
{
    EXPECT_EQ("The plug-in has failed.\nTraceback:\nthrown from plugin.cpp, line 9",
              test::Thrown(InPlugin("PluginThrows")).Report());
}

TEST_F(AbiExceptionTest, PluginCatchesWhatTheProgramThrows)
{
    EXPECT_EQ("The program has failed.\nTraceback:\nthrown from program.cpp, line 11",
              CaughtInPlugin("CatchFrom", &ProgramThrows));
}

TEST_F(AbiExceptionTest, PluginTellsOtherExceptionsApart)
{
    EXPECT_EQ("not an Exception: not of the library", CaughtInPlugin("CatchFrom", &ProgramThrowsAnother));
}

}}}  // namespace tovu::util
