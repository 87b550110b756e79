#pragma once

#include <set>
#include <string>

#include "Scenario.h"

namespace tovu { namespace test {

/// What the faults of one function in one scenario came to.
struct FaultRow
{
    std::string scenario;
    std::string function;
    unsigned calls;
    std::set<int> errors;
    unsigned faults;
    unsigned exceptions;
    unsigned answers;
    unsigned ignored;
    unsigned logged;
    unsigned other;  ///< Not as documented.

    /// Counts a fault that has ended as documented.
    void Count(Expected::Kind kind, bool withLog);
};

/// The row of a function in a scenario, new or not. It stays where it is until the next one is asked for.
FaultRow& RowOf(std::string const& scenario, std::string const& function, unsigned calls);

void PrintTable();

}}  // namespace tovu::test
