#pragma once

#include <string>

#include <sys/socket.h>

namespace orv::modbus {

// The text a TCP client is known by, for address matching and logs: dotted
// IPv4, or upper-case IPv6 text with IPv4-mapped addresses reduced to their
// IPv4 part ("::ffff:192.168.1.20" gives "192.168.1.20"). Empty for any
// other address family.
std::string peerAddressText(const sockaddr_storage& address);

} // namespace orv::modbus
