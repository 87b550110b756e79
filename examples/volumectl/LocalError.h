#pragma once

#include <stdexcept>
#include <string>

namespace volume {

/// A fault on this side of the connection, with the exit status of sysexits.h to end the program with.
class LocalError : public std::runtime_error
{
public:
    LocalError(int exitStatus, std::string const& words) : std::runtime_error(words), status(exitStatus) {}

    int const status;
};

}  // namespace volume
