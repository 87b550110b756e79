#pragma once

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "CFunction.h"
#include "PipePair.h"

// Defines _exit(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

inline CFunction<void(int)>& ExitCall()
{
    static CFunction<void(int)> call("_exit");
    return call;
}

/// What the processes that are forked in this scope have to tell when they end with _exit, where nobody else can look
/// into them: `tell` runs there and writes to the descriptor that it is given.
class LastWords
{
public:
    explicit LastWords(std::function<void(int)> const& tell)
        : exit_(ExitCall(), [this, tell](int code) {
              tell(pipe_.writer.GetDescriptor());
              ExitCall().System(code);
          })
    {}

    /// All that was written. Call it once, when the processes have ended.
    std::string Take()
    {
        pipe_.writer.Close();
        return Drain(pipe_.reader.GetDescriptor());
    }

private:
    PipePair<> pipe_;
    CFunction<void(int)>::Replacement exit_;
};

}}  // namespace tovu::test

extern "C" void _exit(int code)
{
    tovu::test::ExitCall()(code);
    std::abort();
}
