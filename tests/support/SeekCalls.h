#pragma once

#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "Interposition.h"

// Defines lseek(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

/// The calls of lseek(2) in a scope, in order, each as "OFFSET from WHENCE". They go on to the system. One scope at a
/// time.
class SeekCalls
{
public:
    SeekCalls() { Current() = this; }
    SeekCalls(SeekCalls const&) = delete;
    SeekCalls& operator=(SeekCalls const&) = delete;
    ~SeekCalls() { Current() = nullptr; }

    std::vector<std::string> calls;

    /// Runs after each call.
    std::function<void()> after;

    static SeekCalls*& Current()
    {
        static SeekCalls* current = nullptr;
        return current;
    }
};

}}  // namespace tovu::test

extern "C" off_t lseek(int descriptor, off_t offset, int whence) noexcept
{
    typedef off_t System(int, off_t, int);
    static System* const system = tovu::test::NextFunction<System>(sizeof(off_t) > sizeof(long) ? "lseek64" : "lseek");

    off_t const result = system(descriptor, offset, whence);
    if (tovu::test::SeekCalls* const watch = tovu::test::SeekCalls::Current()) {
        watch->calls.push_back(std::to_string(offset) + " from " + std::to_string(whence));
        if (watch->after)
            watch->after();
    }
    return result;
}
