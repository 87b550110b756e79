#include "tovu/util/Exception.h"

#include <cerrno>
#include <cstring>
#include <locale>
#include <sstream>
#include <utility>

#include "tovu/util/Format.h"

namespace tovu { namespace util {

namespace {

// A null file name puts the stream into a failed state: what follows is not written, what stands there is kept.
void WriteLocation(std::ostream& stream, Exception::Location const& location)
{
    if (location.file == nullptr)
        stream.setstate(std::ios_base::badbit);
    else
        stream << location.file;
    stream << ", line " << location.line;
}

}  // namespace

Exception::Exception(char const* file, unsigned line, std::string message)
    : locations(1, Location(file, line)),  // NOLINT(bugprone-throw-keyword-missing): a Location is no exception
      message_(std::move(message))
{}

Exception::~Exception() noexcept = default;

char const* Exception::what() const noexcept
{
    return message_.c_str();
}

std::string Exception::Report() const
{
    return message_ + "\nTraceback:\n" + GetTracebackReport();
}

std::string Exception::GetTracebackReport() const
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());

    char const* introduction = "thrown from ";
    for (Location const& location : locations) {
        stream << introduction;
        WriteLocation(stream, location);
        introduction = "\n  seen at ";
    }
    return stream.str();
}

std::string Exception::FromErrorCode(int code)
{
    char const* const text = std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): thread-safe since glibc 2.32
    if (text == nullptr)
        return FormatString("[0x%x:%d - Unable to find message text]", static_cast<unsigned>(code), code);

    std::string result(text);
    while (!result.empty() && (result.back() == '\n' || result.back() == '\r'))
        result.pop_back();
    return result;
}

}}  // namespace tovu::util
