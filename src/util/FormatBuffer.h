#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace tovu { namespace util { namespace internal {

/// Formats into `buffer`, then into heap buffers of twice the size each, until the text fits. The result has exactly its
/// own size. There is no upper bound: when vsnprintf(3) itself fails, memory ends it with std::bad_alloc.
std::string FormatGrowing(char* buffer, std::size_t size, char const* format, va_list arguments)
    __attribute__((format(printf, 3, 0), visibility("hidden")));

}}}  // namespace tovu::util::internal
