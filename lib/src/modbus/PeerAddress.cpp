#include "PeerAddress.h"

#include <algorithm>
#include <cctype>
#include <regex>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace orv::modbus {
namespace {

// "::FFFF:" followed by a dotted quad: an IPv4 client seen through an IPv6
// socket, once the text is in upper case.
const std::regex g_ipv4MappedAddress("::FFFF:((?:[0-9]{1,3}\\.){3}[0-9]{1,3})");
constexpr std::size_t g_ipv4MappedPrefixLength = 7;

std::string ipv6Text(const sockaddr_in6& address)
{
    char buffer[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, &address.sin6_addr, buffer, sizeof(buffer));
    std::string text(buffer);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    if (std::regex_search(text, g_ipv4MappedAddress)) {
        text.erase(0, g_ipv4MappedPrefixLength);
    }
    return text;
}

std::string ipv4Text(const sockaddr_in& address)
{
    char buffer[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, buffer, sizeof(buffer));
    return buffer;
}

} // namespace

std::string peerAddressText(const sockaddr_storage& address)
{
    switch (address.ss_family) {
    case AF_INET:
        return ipv4Text(reinterpret_cast<const sockaddr_in&>(address));
    case AF_INET6:
        return ipv6Text(reinterpret_cast<const sockaddr_in6&>(address));
    default:
        return {};
    }
}

} // namespace orv::modbus
