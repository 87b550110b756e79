#pragma once

namespace tovu { namespace util { namespace internal {

/// The current second as a log line shows it, in the local zone: "Jan 19 03:14:08". See strftime(3), "%b %d %T".
///
/// The source is compiled with 64-bit times, so a 32-bit build goes on past 2038.
/// \return A text of the calling thread's, valid until its next call.
char const* CurrentTimeText() __attribute__((visibility("hidden")));

}}}  // namespace tovu::util::internal
