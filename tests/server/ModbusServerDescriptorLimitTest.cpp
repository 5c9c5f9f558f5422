// A process that has run out of file descriptors: pending TCP connections
// are refused instead of keeping the handler busy, admitted clients go on
// being served, and new clients are served again once descriptors are free.

#include "LogCapture.h"
#include "ModbusTcpClient.h"
#include "SocketChecks.h"
#include "SpyMap.h"
#include "TestServer.h"
#include "ProcessCpuTime.h"
#include "WaitUntil.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::modbus::test {
namespace {

using namespace std::chrono_literals;
using orv::test::LogCapture;
using orv::test::waitUntil;

const std::string g_refusedLine = "New Modbus TCP connection from 127.0.0.1 refused! No file descriptor left.";
const std::string g_refusedUnknownLine = "New Modbus TCP connection refused! No file descriptor left.";
const std::string g_loopbackAcceptedLine = "New Modbus TCP connection from 127.0.0.1 accepted.";

// The lowest descriptor number that is free: every lower one is open.
int lowestFreeDescriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

// Lowers the soft descriptor limit of the process to `limit` while it lives:
// descriptors already open stay usable, and with every descriptor below the
// limit open no new one can be opened.
class DescriptorsExhausted {
public:
    explicit DescriptorsExhausted(int limit = lowestFreeDescriptor())
    {
        getrlimit(RLIMIT_NOFILE, &m_saved);
        rlimit lowered = m_saved;
        lowered.rlim_cur = static_cast<rlim_t>(limit);
        m_active = limit > 0 && setrlimit(RLIMIT_NOFILE, &lowered) == 0;
    }
    ~DescriptorsExhausted() { restore(); }
    DescriptorsExhausted(const DescriptorsExhausted&) = delete;
    DescriptorsExhausted& operator=(const DescriptorsExhausted&) = delete;

    bool active() const { return m_active; }

    void restore()
    {
        if (m_active) {
            setrlimit(RLIMIT_NOFILE, &m_saved);
            m_active = false;
        }
    }

private:
    rlimit m_saved{};
    bool m_active = false;
};

bool canOpenDescriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd == -1) {
        return false;
    }
    close(fd);
    return true;
}

// A TCP socket made while descriptors are still free, connected later.
class PreparedConnection {
public:
    PreparedConnection()
        : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
    }
    ~PreparedConnection() { close(m_fd); }
    PreparedConnection(const PreparedConnection&) = delete;
    PreparedConnection& operator=(const PreparedConnection&) = delete;

    // Needs no new descriptor. The kernel completes the connection before
    // the server accepts it.
    bool connect(std::uint16_t port) const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
        return ::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }

    int fd() const { return m_fd; }

private:
    int m_fd;
};

class ModbusServerDescriptorLimitTest : public ::testing::Test {
protected:
    void SetUp() override { m_pServer = makeTcpServer(m_port); }

    void run()
    {
        ModbusMapsConfiguration configuration;
        configuration.tcpMaps[1] = allowing(makeSpyMap(), {"^127\\.0\\.0\\.1$"});
        m_pServer->run(configuration);
    }

    // Log lines of accept attempts that did not admit a client.
    std::size_t failedAccepts() const
    {
        return m_log.count(g_refusedLine) + m_log.count(g_refusedUnknownLine) + m_log.count("Server accept() error");
    }

    LogCapture m_log;
    std::uint16_t m_port = 0;
    std::unique_ptr<ModbusServer> m_pServer;
};

TEST_F(ModbusServerDescriptorLimitTest, ConnectionIsRefusedWithoutSpinningAndServingResumesAfterwards)
{
    run();
    ModbusTcpClient admitted("127.0.0.1", m_port, 1);
    ASSERT_EQ(admitted.readHolding(0, 2), g_pairWords);
    PreparedConnection first;
    PreparedConnection second;
    {
        DescriptorsExhausted exhausted;
        ASSERT_TRUE(exhausted.active());
        ASSERT_FALSE(canOpenDescriptor());
        const auto cpuBefore = processCpuTime();

        ASSERT_TRUE(first.connect(m_port));
        EXPECT_TRUE(peerClosedWithin(first.fd(), 2s));
        EXPECT_TRUE(m_log.waitForAt(spdlog::level::err, g_refusedLine, 2s));
        // Nothing left that would make the handler try again.
        EXPECT_FALSE(waitUntil([this] { return failedAccepts() > 1; }, 1s));
        const auto cpuAfter = processCpuTime();
        EXPECT_LT(cpuAfter - cpuBefore, 250ms);

        // Every new connection is refused alike; admitted clients need no
        // new descriptor and are served.
        ASSERT_TRUE(second.connect(m_port));
        EXPECT_TRUE(peerClosedWithin(second.fd(), 2s));
        EXPECT_TRUE(waitUntil([this] { return m_log.count(g_refusedLine) == 2; }, 2s));
        EXPECT_EQ(admitted.readHolding(0, 2), g_pairWords);
    }
    ASSERT_TRUE(canOpenDescriptor());
    ModbusTcpClient later("127.0.0.1", m_port, 1);
    ASSERT_TRUE(later.connected());
    EXPECT_EQ(later.readHolding(0, 2), g_pairWords);
    EXPECT_EQ(failedAccepts(), 2U);
}

// When even the spare cannot make room (here: the limit is below the spare
// and every descriptor under it is open), the pending connection cannot be
// taken off the listening socket. The handler then tries again about once a
// second instead of at full speed, and admits the connection once it can.
TEST_F(ModbusServerDescriptorLimitTest, WithoutRoomForTheSpareAcceptingPausesAndResumes)
{
    const int belowTheSpare = lowestFreeDescriptor();
    run();
    // Served once: the handler holds its spare, and every check the
    // sanitizers make on first use (some need a descriptor) is done.
    ModbusTcpClient admitted("127.0.0.1", m_port, 1);
    ASSERT_EQ(admitted.readHolding(0, 2), g_pairWords);
    PreparedConnection pending;
    DescriptorsExhausted exhausted(belowTheSpare);
    ASSERT_TRUE(exhausted.active());
    ASSERT_FALSE(canOpenDescriptor());
    const auto cpuBefore = processCpuTime();

    ASSERT_TRUE(pending.connect(m_port));
    EXPECT_TRUE(m_log.waitForAt(spdlog::level::err, g_refusedUnknownLine, 2s));
    // About one attempt a second.
    EXPECT_FALSE(waitUntil([this] { return m_log.count(g_refusedUnknownLine) > 3; }, 1500ms));
    const auto cpuAfter = processCpuTime();
    EXPECT_LT(cpuAfter - cpuBefore, 250ms);
    // The connection waits, unrefused, for a descriptor; admitted clients
    // are served meanwhile.
    EXPECT_TRUE(isOpenNow(pending.fd()));
    EXPECT_EQ(admitted.readHolding(0, 2), g_pairWords);

    exhausted.restore();
    EXPECT_TRUE(waitUntil([this] { return m_log.count(g_loopbackAcceptedLine) == 2; }, 2s));
    EXPECT_TRUE(isOpenNow(pending.fd()));
    ModbusTcpClient later("127.0.0.1", m_port, 1);
    EXPECT_EQ(later.readHolding(0, 2), g_pairWords);
}

} // namespace
} // namespace orv::modbus::test
