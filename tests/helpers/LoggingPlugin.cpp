// A plug-in for ThreadsAndForkTest that logs as it is loaded and as it goes.

#include "LoggingObject.h"

namespace {

LoggingObject const object("plug-in");

}  // namespace
