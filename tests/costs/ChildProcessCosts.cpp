#include "tovu/util/ChildProcess.h"

#include <gtest/gtest.h>

#include <string>

#include "Cost.h"
#include "tovu/util/DynamicLibrary.h"

namespace tovu { namespace util { namespace {

using test::Cost;
using test::CostOf;
using test::CostOfListEntry;
using test::CostOfText;
using test::NO_COST;

std::string const program = "/bin/true";
std::string const longText = "a text that does not fit into a string object";

TEST(ChildProcessCosts, AChildTakesItsTexts)
{
    EXPECT_EQ(NO_COST, CostOf([] { ChildProcess(program, false); }));
    EXPECT_EQ(CostOfText(longText), CostOf([] { ChildProcess(longText, false); }));

    ChildProcess child(program, false);
    Cost const entry = CostOfListEntry<std::string>();
    EXPECT_EQ(entry, CostOf([&] { child.AddArgument(program); }));
    EXPECT_EQ(entry + CostOfText(longText), CostOf([&] { child.AddArgument(longText); }));
    EXPECT_EQ(entry + CostOfText(longText), CostOf([&] { child.AddEnvironmentVariable(longText); }));
    EXPECT_EQ(CostOfText(longText), CostOf([&] { child.SetControlGroup(longText); }));
}

// The array of arguments ends with a null pointer, and doubles as it grows: 1, 2 and 4 pointers.
TEST(ChildProcessCosts, AStartTakesTheArrayOfArguments)
{
    ChildProcess child(program, false);
    Cost const alone = {2, (1 + 2) * sizeof(char*)};
    EXPECT_EQ(alone, CostOf([&] { EXPECT_EQ(ChildProcess::RESULT_SUCCESS, child.Exec()); }));

    child.AddArgument("first");
    child.AddArgument(longText);
    Cost const withArguments = {3, (1 + 2 + 4) * sizeof(char*)};
    EXPECT_EQ(withArguments, CostOf([&] { child.Spawn(); }));
    EXPECT_EQ(NO_COST, CostOf([&] { EXPECT_EQ(ChildProcess::RESULT_SUCCESS, child.Wait()); }));
}

TEST(ChildProcessCosts, PipesTakeNothing)
{
    EXPECT_EQ(NO_COST, CostOf([] { ChildProcess::StdIO(); }));
}

// The loader's own memory is not taken from operator new.
TEST(DynamicLibraryCosts, APlugInTakesTheNameOfItsFileWhileItIsLoaded)
{
    std::string const name = PLUGIN;
    Cost const fileName = CostOf([&] { EXPECT_FALSE((name + ".so").empty()); });
    DynamicLibrary library;
    EXPECT_EQ(fileName, CostOf([&] { library.Load(name); }));

    std::string const function = "PluginAnswer";
    EXPECT_EQ(NO_COST, CostOf([&] { EXPECT_NE(nullptr, library.GetProc(function)); }));
    EXPECT_EQ(NO_COST, CostOf([&] { library.Unload(); }));
}

}}}  // namespace tovu::util
