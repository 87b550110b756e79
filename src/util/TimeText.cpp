#include "TimeText.h"

#include <langinfo.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tovu { namespace util { namespace internal {

static_assert(sizeof(time_t) == 8, "compiled with 64-bit times on every build");

namespace {

constexpr std::size_t ZONE_SIZE = 100;

// The text that the calling thread asked for last, and what it was made of: the second, the text of TZ, and the month,
// whose name is the locale's. To make one costs more than the rest of a line, above all where TZ is not set and the
// system's zone is looked up in its file.
struct TimeText
{
    bool isKept;
    time_t second;
    nl_item month;
    bool hasZone;  // TZ was set, be it to nothing
    char zone[ZONE_SIZE];
    char text[100];
};
thread_local TimeText lastTime = {false, 0, ABMON_1, false, "", ""};

// The month's name, with which the text begins, is all of it that depends on the locale.
bool IsInLocale(TimeText const& time)
{
    char const* month = nl_langinfo(time.month);  // NOLINT(concurrency-mt-unsafe): strftime reads it as well
    char const* text = time.text;
    for (; *month != '\0' && *month == *text; ++month)
        ++text;
    return *month == '\0' && *text == ' ';
}

bool IsOf(TimeText const& time, time_t now, char const* zone)
{
    if (!time.isKept || time.second != now || time.hasZone != (zone != nullptr))
        return false;
    return (zone == nullptr || std::strcmp(zone, time.zone) == 0) && IsInLocale(time);
}

// The text for a zone that is too long is made anew each time.
void Make(TimeText& result, time_t now, char const* zone)
{
    tm local;
    tzset();  // localtime_r alone may keep the zone that it saw first
    localtime_r(&now, &local);
    strftime(result.text, sizeof(result.text), "%b %d %T", &local);

    std::size_t const zoneSize = zone == nullptr ? 0 : std::strlen(zone) + 1;
    result.isKept = zoneSize <= ZONE_SIZE;
    result.second = now;
    result.month = ABMON_1 + local.tm_mon;
    result.hasZone = zone != nullptr;
    if (result.isKept)
        std::copy_n(zone, zoneSize, result.zone);
}

}  // namespace

char const* CurrentTimeText()
{
    TimeText& last = lastTime;
    time_t const now = time(nullptr);
    char const* const zone = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe): tzset reads it in the same way
    if (!IsOf(last, now, zone))
        Make(last, now, zone);
    return last.text;
}

}}}  // namespace tovu::util::internal
