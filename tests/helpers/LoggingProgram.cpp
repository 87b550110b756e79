// A program whose objects with static storage log, like those of a library and of a plug-in that it uses: LoggingProgram
// PLUGIN. The plug-in's name is given without its extension. Its standard output is the log.

#include <exception>

#include "LoggingLibrary.h"
#include "LoggingObject.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/LoggerMgr.h"

namespace {

LoggingObject const object("program");

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    StartLogging();
    try {
        tovu::util::DynamicLibrary plugin;
        plugin.Load(argv[1]);
        plugin.Unload();
        TOVU_LOG(tovu::util::LoggerMgr::LEVEL_INFO, "main returns\n");
        return 0;
    } catch (std::exception const&) {
        return 1;
    }
}
