// Part of each module whose lines are counted: the compiler gives each its own counters, out of reach for the others.

#include "ProcessCounters.h"

extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace {

struct Registration
{
    Registration() { tovu::test::AddModuleCounters({__gcov_dump, __gcov_reset}); }
};

Registration const registration;

}  // namespace
