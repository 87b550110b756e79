// What a flood has shown, for a person to read.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tovu/util/Format.h"

namespace volume {

// The long form takes minutes.
inline bool IsLong()
{
    return std::getenv("FLOOD_LONG") != nullptr;
}

template <typename Number>
Number ShortOrLong(Number shortForm, Number longForm)
{
    return IsLong() ? longForm : shortForm;
}

// Prints one row of the table of figures; `limit` is empty for a figure that is only told.
inline void Tell(char const* flood, std::string const& what, std::string const& figure, std::string const& limit)
{
    std::printf("| %-16s | %-58s | %-24s | %-28s |\n", flood, what.c_str(), figure.c_str(), limit.c_str());
    std::fflush(stdout);
}

inline std::string KiB(long amount)
{
    return std::to_string(amount) + " KiB";
}

inline std::string Seconds(double duration)
{
    return tovu::util::FormatString("%.2f s", duration);
}

inline std::string Microseconds(double duration)
{
    return tovu::util::FormatString("%.0f us", duration * 1e6);
}

}  // namespace volume
