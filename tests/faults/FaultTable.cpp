#include "FaultTable.h"

#include <cstdio>
#include <vector>

#include "ErrorLists.h"
#include "Sanitizers.h"

namespace tovu { namespace test {

namespace {

std::vector<FaultRow>& Rows()
{
    static std::vector<FaultRow> rows;
    return rows;
}

}  // namespace

FaultRow& RowOf(std::string const& scenario, std::string const& function, unsigned calls)
{
    for (FaultRow& row : Rows()) {
        if (row.scenario == scenario && row.function == function)
            return row;
    }
    Rows().push_back({scenario, function, calls, {}, 0, 0, 0, 0, 0, 0});
    return Rows().back();
}

void FaultRow::Count(Expected::Kind kind, bool withLog)
{
    switch (kind) {
        case Expected::EXCEPTION:
            ++exceptions;
            break;
        case Expected::ANSWER:
            ++answers;
            break;
        case Expected::IGNORED:
            ++(withLog ? logged : ignored);
            break;
        case Expected::UNTRIED:
            break;
    }
}

void PrintTable()
{
    if (Rows().empty())
        return;

    std::printf("\n%-26s %-24s %6s %6s %7s %10s %7s %7s %7s %6s\n", "scenario", "function", "calls", "errors", "faults",
                "exceptions", "answers", "ignored", "logged", "other");
    unsigned faults = 0;
    unsigned other = 0;
    std::set<std::string> scenarios;
    for (FaultRow const& row : Rows()) {
        scenarios.insert(row.scenario);
        if (row.calls == 0)
            continue;  // it takes no memory
        std::printf("%-26s %-24s %6u %6zu %7u %10u %7u %7u %7u %6u\n", row.scenario.c_str(), row.function.c_str(),
                    row.calls, row.errors.size(), row.faults, row.exceptions, row.answers, row.ignored, row.logged,
                    row.other);
        faults += row.faults;
        other += row.other;
    }
    std::printf("\nfunctions of the C library that the library uses and that no fault is made for:\n");
    for (auto const& function : FunctionsThatDoNotFail())
        std::printf("  %-26s %s\n", function.first.c_str(), function.second.c_str());
    if (RunsUnderMemcheck())
        std::printf("\nmemcheck has operator new for itself: the allocations that failed are those of malloc alone\n");
    std::printf("\nfaults: %u injected in %zu scenarios, %u as documented\n", faults, scenarios.size(), faults - other);
}

}}  // namespace tovu::test
