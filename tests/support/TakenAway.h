#pragma once

#include <unistd.h>

namespace tovu { namespace test {

/// Takes a descriptor from its owner for the length of a scope: system calls on it fail with EBADF meanwhile.
class TakenAway
{
public:
    explicit TakenAway(int descriptor) : descriptor_(descriptor), kept_(dup(descriptor)) { close(descriptor); }
    TakenAway(TakenAway const&) = delete;
    TakenAway& operator=(TakenAway const&) = delete;
    ~TakenAway()
    {
        dup2(kept_, descriptor_);
        close(kept_);
    }

private:
    int descriptor_;
    int kept_;
};

}}  // namespace tovu::test
