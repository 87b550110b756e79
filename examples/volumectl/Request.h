#pragma once

#include <string>
#include <vector>

namespace volume {

/// The document that a command sends. Throws UsageError for what is no command, and LocalError for a file that cannot be
/// read or sent.
std::string RequestFor(std::vector<std::string> const& command);

}  // namespace volume
