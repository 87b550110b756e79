#pragma once

#include <string>

#include "tovu/util/Socket.h"

namespace volume {

/// A port number from 0 to 65535. Throws std::invalid_argument for any other text.
unsigned short ParsePort(std::string const& text);

/// The address that "HOST:PORT" names; the host by name or in dotted decimal, the port from 0 to 65535.
/// Throws std::invalid_argument for a text of another form, and tovu::util::Exception for a host that cannot be found.
tovu::util::Socket::Address ParseHostPort(std::string const& text);

/// "HOST:PORT" for an IPv4 address, the path for a local one, "local" for one without a path.
std::string ToText(tovu::util::Socket::Address const& address);

}  // namespace volume
