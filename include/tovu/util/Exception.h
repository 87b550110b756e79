#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace tovu { namespace util {

/// The one error type of the library: a message, and the trail of source locations through which it has travelled.
/// \code
///     #include <unistd.h>
///     try {
///         if (unlink("/run/volumed.sock") == -1)
///             throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
///     } catch (Exception& exception) {
///         exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
///         throw;
///     }
/// \endcode
///
/// A function that wants to appear in the trail adds its own place and passes the same object on, as above.
///
/// Ownership: the object owns its message and its locations; a location only points at its file name.
/// Threads: none of its own; use one object from one thread at a time.
/// Errors: the operations throw nothing beyond std::bad_alloc; what() never throws.
class Exception : public std::exception
{
public:
    /// One place that an exception was thrown from or seen at.
    /// \code
    ///     Exception::Location const here(__FILE__, __LINE__);
    /// \endcode
    struct Location
    {
        /// Both as they are given.
        Location(char const* sourceFile, std::uint32_t sourceLine) : file(sourceFile), line(sourceLine) {}

        char const* file;    ///< As `__FILE__` spells it. Not copied: it must outlive every exception.
        std::uint32_t line;  ///< As `__LINE__` counts it, from 1.
    };

    /// Starts the trail with its first and only location, the throw site.
    Exception(char const* file, unsigned line, std::string message);

    Exception(Exception const&) = default;             ///< Copies the message and the trail.
    Exception& operator=(Exception const&) = default;  ///< Copies the message and the trail.
    ~Exception() noexcept override;

    /// The message alone, without the traceback. Valid as long as the object lives.
    char const* what() const noexcept override;

    /// The message, "\nTraceback:\n" and the traceback. No newline at the end.
    std::string Report() const;

    /// One line for each location, the throw site first, joined by newlines:
    /// "thrown from FILE, line N", then "  seen at FILE, line N" for each further one. Lines are decimal in any locale.
    /// A null file name ends the text at the place where the name would have stood.
    std::string GetTracebackReport() const;

    /// The text for a failed system call, without line ends at its end: strerror(3) of the current `errno`.
    ///
    /// `code` is not looked up: callers pass `errno` anyway, and it only serves the text for the case that there is no
    /// description. So call this before anything else can change `errno`.
    static std::string FromErrorCode(int code);

    /// The trail: the throw site at index 0, then each place that passed the exception on, in that order.
    std::vector<Location> locations;  // NOLINT(misc-non-private-member-variables-in-classes): callers append to it

private:
    std::string message_;
};

}}  // namespace tovu::util
