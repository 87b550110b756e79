// A plug-in for ThreadsAndForkTest that logs as it is loaded and as it goes, and uses an object that is to be one for the
// process, as the headers of other libraries bring them into plug-ins.

#include "LoggingObject.h"

template <typename Owner>
struct OneForTheProcess
{
    static int value;
};

template <typename Owner>
int OneForTheProcess<Owner>::value = 0;

extern "C" int CountUses()
{
    return ++OneForTheProcess<int>::value;
}

namespace {

LoggingObject const object("plug-in");

}  // namespace
