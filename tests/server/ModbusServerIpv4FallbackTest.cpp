// A host without IPv6: every AF_INET6 socket fails with EAFNOSUPPORT while
// g_ipv6Missing is set. The server must then fall back to an IPv4-only
// listening socket instead of failing.

#include "ModbusTcpClient.h"
#include "SpyMap.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include <dlfcn.h>
#include <sys/socket.h>

namespace {

std::atomic<bool> g_ipv6Missing{false};

} // namespace

// Takes the place of the C library's socket() for the whole test program,
// libmodbus included.
extern "C" int socket(int domain, int type, int protocol)
{
    using SocketFunction = int (*)(int, int, int);
    static const auto g_realSocket = reinterpret_cast<SocketFunction>(dlsym(RTLD_NEXT, "socket"));
    if (domain == AF_INET6 && g_ipv6Missing) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return g_realSocket(domain, type, protocol);
}

namespace orv::modbus::test {
namespace {

// While it lives, the host seems to have no IPv6.
class Ipv6Missing {
public:
    Ipv6Missing() { g_ipv6Missing = true; }
    ~Ipv6Missing() { g_ipv6Missing = false; }
    Ipv6Missing(const Ipv6Missing&) = delete;
    Ipv6Missing& operator=(const Ipv6Missing&) = delete;
};

std::unique_ptr<ModbusServer> makeServerWithoutIpv6(std::uint16_t& port)
{
    // The free port is picked with IPv6 still there: the pick needs it.
    std::unique_ptr<ModbusServer> server;
    onFreePort(port, [&server](std::uint16_t freePort) {
        Ipv6Missing noIpv6;
        ModbusServerSettings settings;
        settings.tcpEnabled = true;
        settings.tcpPort = freePort;
        server = std::make_unique<ModbusServer>(settings, false);
    });
    return server;
}

TEST(ModbusServerIpv4FallbackTest, HostWithoutIpv6IsServedOverIpv4)
{
    {
        Ipv6Missing noIpv6;
        ASSERT_EQ(::socket(AF_INET6, SOCK_STREAM, 0), -1);
    }
    std::uint16_t port = 0;
    auto server = makeServerWithoutIpv6(port);
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = allowing(makeSpyMap(), {"^127\\.0\\.0\\.1$", "^::1$"});
    server->run(configuration);

    ModbusTcpClient client("127.0.0.1", port, 1);
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(client.readHolding(0, 2), (std::vector<std::uint16_t>{11, 12}));
    // The fallback socket is IPv4 only.
    EXPECT_TRUE(connectionRefused("::1", port));
}

} // namespace
} // namespace orv::modbus::test
