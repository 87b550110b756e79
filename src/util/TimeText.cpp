#include "TimeText.h"

#include <ctime>

namespace tovu { namespace util { namespace internal {

static_assert(sizeof(time_t) == 8, "compiled with 64-bit times on every build");

namespace {

// The text of the second that the calling thread asked for last. Making one reads the time zone's file, which costs more
// than the rest of a line; within a second the text stays the same. A changed zone shows from the next second on.
struct TimeText
{
    time_t second;
    char text[100];
};
thread_local TimeText lastTime = {-1, ""};

}  // namespace

char const* CurrentTimeText()
{
    time_t const now = time(nullptr);
    if (now != lastTime.second) {
        tm local;
        tzset();  // localtime_r alone may keep the zone that it saw first
        localtime_r(&now, &local);
        strftime(lastTime.text, sizeof(lastTime.text), "%b %d %T", &local);
        lastTime.second = now;
    }
    return lastTime.text;
}

}}}  // namespace tovu::util::internal
