#include "RealPath.h"

#include <cstdlib>
#include <memory>

namespace volume {

std::string RealPath(std::string const& path)
{
    std::unique_ptr<char, decltype(&std::free)> const real(realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : std::string();
}

}  // namespace volume
