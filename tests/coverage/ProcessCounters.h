#pragma once

namespace tovu { namespace test {

/// What a program or a library has counted of itself: `write` adds it to its files, `reset` begins anew.
struct ModuleCounters
{
    void (*write)();
    void (*reset)();
};

/// Has a module's counts written when the process ends with _exit(2), where no exit handler runs, or when it becomes
/// another program. Modules are never taken out again: one that is unloaded must not be added.
void AddModuleCounters(ModuleCounters counters);

}}  // namespace tovu::test
