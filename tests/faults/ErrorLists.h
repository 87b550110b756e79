#pragma once

#include <map>
#include <string>
#include <vector>

#include "FaultShim.h"

namespace tovu { namespace test {

/// The errors that a function's man page lists; for functions that return error numbers, those.
std::vector<int> const& ErrorsOf(Call call);

/// Whether each scenario that makes a call must say what its failure leads to. Locks are taken everywhere: what a
/// failing one leads to is said once, by the classes that own one. Memory has a sweep of its own.
bool NeedsRule(Call call);

/// What the library takes from the C library and no fault is made for, each with the reason.
std::map<std::string, std::string> const& FunctionsThatDoNotFail();

}}  // namespace tovu::test
