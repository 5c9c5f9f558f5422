#pragma once
// A TCP port that nothing listens on right now, for a server under test.

#include <cstdint>

namespace orv::test {

// Asks the kernel for an ephemeral port on the IPv6 wildcard (which also
// covers IPv4) and releases it again.
std::uint16_t freeTcpPort();

// Whether something accepts TCP connections on 127.0.0.1 at that port.
bool isListening(std::uint16_t port);

} // namespace orv::test
