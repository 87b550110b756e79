#pragma once

#include "Scenario.h"

namespace tovu { namespace test {

/// The longest that a run may take. It takes milliseconds.
constexpr unsigned WATCHDOG_SECONDS = 60;

/// Runs a scenario once for every call that it makes of every function and for every error that the function may have.
/// Fails the test where a run ends otherwise than expected, or leaves a descriptor, a thread or memory behind. A run
/// that hangs ends the process, with its name.
void SweepErrors(Scenario const& scenario);

/// Runs a scenario once for every allocation that it makes, which then fails.
void SweepAllocations(Scenario const& scenario);

/// The exception being handled, as text.
void DescribeCaught(Text& out);

}}  // namespace tovu::test
