#pragma once

#include <functional>
#include <string>

#include "Scenario.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace test {

/// A folder for the scenarios' files, empty at first, which lives as long as the process.
TemporaryDirectory const& FaultFolder();

/// Runs `body` in a child process, whose text and end become those of the run: for what a process does only once, or
/// does not survive. The scope belongs into the body. What the child logs is not seen.
void RunInFork(Run& run, std::function<void(Run&)> const& body);

}}  // namespace tovu::test
