#pragma once

#include <string>

namespace tovu { namespace util {

/// A 128-bit identifier: 16 bytes, with a text form of 32 lower-case hexadecimal digits.
/// \code
///     GUID const volume = GUID::FromRandom();
///     std::string const text = volume.ToString();  // 32 digits
///     GUID const same(text);                       // same == volume
/// \endcode
///
/// Threads: as any value. FromRandom may be called on any thread.
class GUID
{
public:
    /// Reads the text form; upper-case digits count as well.
    ///
    /// Requires: at least 32 characters. Only the first 32 are looked at, and none is checked: dashes are not skipped,
    /// and what is no digit gives some value, not an error.
    explicit GUID(std::string const& text);

    /// A new random identifier (version 4 of RFC 9562), from the kernel's random device.
    ///
    /// Opens and closes the device in each call. Throws std::runtime_error "failed to open random device." when it
    /// cannot be opened, for want of descriptors for example.
    static GUID FromRandom();

    /// The identifier of nothing: all bits set, not all clear.
    static GUID const Empty;

    /// 32 lower-case digits, without dashes or braces.
    std::string ToString() const;

    /// The 16 bytes, in the order of the text; they live as long as the GUID.
    unsigned char const* GetBytes() const { return bytes_; }

private:
    explicit GUID(unsigned char byte) noexcept;  // that byte 16 times

    unsigned char bytes_[16];
};

/// True when all 16 bytes are equal.
/// \relates GUID
bool operator==(GUID const& left, GUID const& right);

/// The opposite of ==.
/// \relates GUID
bool operator!=(GUID const& left, GUID const& right);

/// Orders byte by byte, the first byte first, and so as the texts are ordered.
/// \relates GUID
bool operator<(GUID const& left, GUID const& right);

}}  // namespace tovu::util
