// A plug-in for the tests of exceptions that cross between the library, a program and plug-ins. It is linked with the
// library, as a plug-in of the server is.

#include <fcntl.h>

#include <exception>
#include <string>

#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"

using tovu::util::Exception;

extern "C" {

// Has the library throw.
void LibraryThrows()
{
    tovu::util::FileHandleStream().Open("/no/such/file", O_RDONLY, 0);
}

// Has the library throw, and lets that pass, with a location of its own.
void LibraryThrowsOnward()
{
    try {
        LibraryThrows();
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location("plugin.cpp", 7));
        throw;
    }
}

void PluginThrows()
{
    throw Exception("plugin.cpp", 9, "The plug-in has failed.");
}

// Catches what an action throws, as an Exception or else as what the standard library knows, and hands out what it says.
void CatchFrom(void (*action)(), std::string& report)
{
    try {
        action();
    } catch (Exception const& exception) {
        report = exception.Report();
    } catch (std::exception const& exception) {
        report = std::string("not an Exception: ") + exception.what();
    }
}

// The same for one that knows no Exception.
void CatchStandardFrom(void (*action)(), std::string& what)
{
    try {
        action();
    } catch (std::exception const& exception) {
        what = exception.what();
    }
}
}
