#pragma once

#include <stdexcept>

namespace volume {

/// A command line that makes no sense; what() says why.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace volume
