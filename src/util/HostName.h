#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace tovu { namespace util { namespace internal {

constexpr std::size_t HOST_NAME_SIZE = 256;  // a name of the system's has 64 bytes

/// The machine's name. Whether gethostname(2) has it is not looked at: without it the text is empty.
inline void ReadHostName(char (&name)[HOST_NAME_SIZE])
{
    std::memset(name, 0, sizeof(name));
    static_cast<void>(gethostname(name, sizeof(name)));
}

}}}  // namespace tovu::util::internal
