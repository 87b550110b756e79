// Every call that the library makes of the system fails once, in every way that its man page lists.

#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Census.h"
#include "ErrorLists.h"
#include "FaultShim.h"
#include "FaultTable.h"
#include "ParameterName.h"
#include "Scenario.h"
#include "Sweep.h"

namespace tovu { namespace test {

// As gtest prints the parameter of a case.
void PrintTo(Scenario const& scenario, std::ostream* stream)
{
    *stream << scenario.name;
}

namespace {

// Classes of which nothing can go wrong.
std::map<std::string, char const*> const WITHOUT_FAULTS = {
    {"FileLogger", "calls syslog alone, which has no result"},
    {"Logger", "has no code of its own"},
    {"Stream", "has no code of its own"},
};

std::vector<Scenario> AllScenarios()
{
    std::vector<Scenario> all;
    for (auto* const list : {&FoundationScenarios, &StreamScenarios, &SocketScenarios, &MessageScenarios,
                             &ProcessScenarios, &FileScenarios}) {
        std::vector<Scenario> const scenarios = list();
        all.insert(all.end(), scenarios.begin(), scenarios.end());
    }
    return all;
}

template <typename Predicate>
std::vector<Scenario> ScenariosThat(Predicate predicate)
{
    std::vector<Scenario> chosen;
    for (Scenario const& scenario : AllScenarios()) {
        if (predicate(scenario))
            chosen.push_back(scenario);
    }
    return chosen;
}

bool ComesBeforeTheLog(Scenario const& scenario)
{
    return scenario.comesBeforeTheLog;
}

bool ComesWithTheLog(Scenario const& scenario)
{
    return !scenario.comesBeforeTheLog;
}

bool SweepsMemoryWithTheLog(Scenario const& scenario)
{
    return scenario.sweepsMemory && !scenario.comesBeforeTheLog;
}

// The suites run in this order.
class FaultsBeforeTheLogTest : public testing::TestWithParam<Scenario>
{};

TEST_P(FaultsBeforeTheLogTest, EveryCallThatFailsEndsAsDocumented)
{
    SweepErrors(GetParam());
}

TEST_P(FaultsBeforeTheLogTest, EveryAllocationThatFailsEndsAsDocumented)
{
    SweepAllocations(GetParam());
}

INSTANTIATE_TEST_SUITE_P(EachScenario, FaultsBeforeTheLogTest, testing::ValuesIn(ScenariosThat(ComesBeforeTheLog)),
                         ParameterName());

class FaultsTest : public testing::TestWithParam<Scenario>
{};

TEST_P(FaultsTest, EveryCallThatFailsEndsAsDocumented)
{
    SweepErrors(GetParam());
}

INSTANTIATE_TEST_SUITE_P(EachScenario, FaultsTest, testing::ValuesIn(ScenariosThat(ComesWithTheLog)), ParameterName());

class FaultsOfMemoryTest : public testing::TestWithParam<Scenario>
{};

TEST_P(FaultsOfMemoryTest, EveryAllocationThatFailsEndsAsDocumented)
{
    SweepAllocations(GetParam());
}

INSTANTIATE_TEST_SUITE_P(EachScenario, FaultsOfMemoryTest, testing::ValuesIn(ScenariosThat(SweepsMemoryWithTheLog)),
                         ParameterName());

TEST(FaultsOfInterfacesTest, EveryFaultEndsAsDocumented)
{
    Scenario const scenario = InterfacesScenario();
    test::Run run = {{Fault::NONE, Call::accept, 0, 0}, {}};
    scenario.run(run);
    if (std::string(run.out.Get()) == NO_NETWORK)
        GTEST_SKIP() << "this machine gives a process no network of its own";
    SweepErrors(scenario);
    SweepAllocations(scenario);
}

std::set<std::string> ListedClasses()
{
    std::istringstream stream(CLASSES);
    std::set<std::string> classes;
    for (std::string name; stream >> name;)
        classes.insert(name);
    return classes;
}

TEST(FaultsCoverageTest, EveryClassHasAScenarioOrAReason)
{
    std::set<std::string> covered;
    for (Scenario const& scenario : AllScenarios())
        covered.insert(scenario.classes.begin(), scenario.classes.end());
    for (auto const& other : WITHOUT_FAULTS)
        covered.insert(other.first);
    EXPECT_EQ(ListedClasses(), covered);
}

// The names that the library takes from other files, less those of C++.
class Imports
{
public:
    Imports() { dl_iterate_phdr(&Imports::Look, this); }

    std::set<std::string> names;

private:
    // Undefined symbols stand in front of those that can be looked up.
    static int Look(dl_phdr_info* info, std::size_t /*size*/, void* self)
    {
        if (std::strstr(info->dlpi_name, "/libtovuutil.so") == nullptr)
            return 0;

        ElfW(Sym) const* symbols = nullptr;
        char const* texts = nullptr;
        std::uint32_t const* hash = nullptr;
        for (ElfW(Dyn) const* entry = Dynamic(*info); entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == DT_SYMTAB)
                symbols = reinterpret_cast<ElfW(Sym) const*>(entry->d_un.d_ptr);
            else if (entry->d_tag == DT_STRTAB)
                texts = reinterpret_cast<char const*>(entry->d_un.d_ptr);
            else if (entry->d_tag == DT_GNU_HASH)
                hash = reinterpret_cast<std::uint32_t const*>(entry->d_un.d_ptr);
        }
        for (std::uint32_t i = 1; i < hash[1]; ++i)
            static_cast<Imports*>(self)->Add(texts + symbols[i].st_name);
        return 1;
    }

    static ElfW(Dyn) const* Dynamic(dl_phdr_info const& info)
    {
        for (int i = 0; i < info.dlpi_phnum; ++i) {
            if (info.dlpi_phdr[i].p_type == PT_DYNAMIC)
                return reinterpret_cast<ElfW(Dyn) const*>(info.dlpi_addr + info.dlpi_phdr[i].p_vaddr);
        }
        return nullptr;
    }

    void Add(std::string const& name)
    {
        if (name.empty())
            return;
        for (char const* const other : {"_Z", "__cxa_", "__gxx_", "_ITM_", "_Unwind_", "__aeabi_"}) {
            if (name.compare(0, std::strlen(other), other) == 0)
                return;
        }
        names.insert(name);
    }
};

// The name under which the shim counts a function.
std::string PlainName(std::string const& name)
{
    static std::map<std::string, std::string> const others = {
        {"__fprintf_chk", "fprintf"},     {"__lstat64_time64", "lstat"}, {"__stat64_time64", "stat"},
        {"__vsnprintf_chk", "vsnprintf"}, {"fopen64", "fopen"},          {"readdir64", "readdir"},
        {"statvfs64", "statvfs"},
    };
    auto const other = others.find(name);
    return other != others.end() ? other->second : name;
}

TEST(FaultsCoverageTest, EveryFunctionThatTheLibraryUsesHasFaultsOrAReason)
{
    std::set<std::string> shimmed;
    for (std::size_t i = 0; i < CALL_COUNT; ++i)
        shimmed.insert(NameOf(static_cast<Call>(i)));

    std::set<std::string> const imports = Imports().names;
    EXPECT_EQ(1u, imports.count("accept")) << "the library's imports were not found";
    for (std::string const& name : imports) {
        EXPECT_TRUE(shimmed.count(PlainName(name)) != 0 || FunctionsThatDoNotFail().count(name) != 0)
            << "nothing is said about " << name;
    }
}

TEST(FaultsCoverageTest, EveryFaultHasARule)
{
    std::set<std::string> ruled = {NameOf(Call::malloc)};
    for (Scenario const& scenario : AllScenarios()) {
        for (Rule const& rule : scenario.rules)
            ruled.insert(NameOf(rule.call));
    }
    for (std::size_t i = 0; i < CALL_COUNT; ++i)
        EXPECT_EQ(1u, ruled.count(NameOf(static_cast<Call>(i)))) << NameOf(static_cast<Call>(i));
}

// Prints the table when all cases have run.
class Summary : public testing::Environment
{
public:
    void TearDown() override
    {
        std::printf("\nclasses without a scenario:\n");
        for (auto const& other : WITHOUT_FAULTS)
            std::printf("  %-26s %s\n", other.first.c_str(), other.second);
        PrintTable();
        StopCountingParserPieces();
    }
};

testing::Environment* const summary = testing::AddGlobalTestEnvironment(new Summary);

}  // namespace

}}  // namespace tovu::test
