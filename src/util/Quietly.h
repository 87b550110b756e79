#pragma once

namespace tovu { namespace util { namespace internal {

/// Makes a log call, and lets nothing out of it: where a result tells of a failure, a line for which there is no memory
/// must not take its place.
template <typename LogCall>
void Quietly(LogCall const& log) noexcept
{
    try {
        log();
    } catch (...) {
        return;
    }
}

}}}  // namespace tovu::util::internal
