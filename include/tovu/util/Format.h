#pragma once

#include <cstdarg>
#include <string>

namespace tovu { namespace util {

/// \file
/// Free functions that turn values into text: printf-like formatting, hex dumps, and the two text codec hooks.
/// \code
///     std::string const text = FormatString("%s-%03u", "volume", 7U);  // "volume-007"
///     std::string const dump = HexFormatstring(text);
/// \endcode
///
/// Ownership: every function returns a new std::string and keeps nothing.
/// Threads: any number of threads may call any of them at once.
/// Errors: std::bad_alloc when memory runs out; nothing else is thrown.

/// Formats like printf(3), into a text of any length.
///
/// A conversion that vsnprintf(3) itself refuses (a wide character that the locale cannot express, EILSEQ) has no
/// result: the buffer doubles until memory is exhausted, then std::bad_alloc is thrown.
std::string FormatString(char const* format, ...) __attribute__((format(printf, 1, 2)));

/// FormatString for a caller that already has a va_list. The list is copied, so the caller's own stays usable; the
/// caller still ends it with va_end.
std::string FormatStringHelper(char const* format, va_list arguments) __attribute__((format(printf, 1, 0)));

/// A hex dump of `length` bytes at `data`: lines of 16 bytes, each as two lower-case digits and a blank, one more
/// blank, then the bytes as text with "." for what isprint(3) refuses in the process's locale, and a line feed. A
/// shorter last line is padded, so that its text stands under the others. There is no offset column.
/// \return The dump; an empty text when `data` is null or `length` is 0.
std::string HexFormatBuffer(void const* data, unsigned length);

/// HexFormatBuffer over the bytes of `text`, zero bytes included.
std::string HexFormatstring(std::string const& text);

/// "true" or "false".
std::string bool2string(bool value);

/// Returns `text` unchanged: the one place where an encoding for stored or sent text could be applied.
std::string Encodestring(std::string const& text);

/// Returns `text` unchanged: the way back from Encodestring.
std::string Decodestring(std::string const& text);

}}  // namespace tovu::util
