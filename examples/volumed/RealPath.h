#pragma once

#include <string>

namespace volume {

/// The one absolute path of a file or a folder, without links, "." and ".."; empty when there is none. See realpath(3).
std::string RealPath(std::string const& path);

}  // namespace volume
