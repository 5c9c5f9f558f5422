#include "EntryList.h"
#include "ModbusSocketPair.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <atomic>
#include <thread>

namespace orv::modbus::test {
namespace {

constexpr int g_requestsPerClient = 200;
// Upper bound only: notifications go on until both clients are done.
constexpr int g_notifications = 1000000;

// Fired values are 0x1000 + n, client writes 0xa000 + n (first client) or
// 0xb000 + n (second): every word a client reads must be one of these or
// the initial 0.
bool plausibleWord(uint16_t word)
{
    const uint16_t block = word & 0xf000;
    return word == 0 || block == 0x1000 || block == 0xa000 || block == 0xb000;
}

// One connection: the server end answers requests with the map until the
// client end goes away; the client end is a real libmodbus client.
class Connection {
public:
    void serve(ModbusMap& map)
    {
        uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
        for (int served = 0; served < 4 * g_requestsPerClient; ++served) {
            const int length = modbus_receive(m_sockets.server(), query);
            if (length <= 0) {
                return;
            }
            map.processRequest(m_sockets.server(), query, static_cast<unsigned>(length), false, false, false);
        }
    }

    // Reads and writes across both register entries and the bits; counts
    // every malformed or unexpected reply.
    int runClient(uint16_t writeBase)
    {
        int failures = 0;
        modbus_t* ctx = m_sockets.client();
        for (int i = 0; i < g_requestsPerClient; ++i) {
            uint16_t words[4] = {};
            if (modbus_read_registers(ctx, 0, 4, words) != 4) {
                ++failures;
            }
            for (uint16_t word : words) {
                failures += plausibleWord(word) ? 0 : 1;
            }
            const uint16_t written[2] = {static_cast<uint16_t>(writeBase + i), static_cast<uint16_t>(writeBase + i)};
            if (modbus_write_registers(ctx, 1, 2, written) != 2) {
                ++failures;
            }
            uint8_t bits[4] = {};
            if (modbus_read_bits(ctx, 0, 4, bits) != 4) {
                ++failures;
            }
            if (modbus_write_bit(ctx, i % 4, i % 2) != 1) {
                ++failures;
            }
        }
        // Lets the server end see the end of the conversation at once.
        shutdown(m_sockets.clientSocket(), SHUT_RDWR);
        return failures;
    }

private:
    orv::test::ModbusSocketPair m_sockets;
};

TEST(ModbusMapConcurrencyTest, TwoConnectionsAndNotificationsGetWellFormedReplies)
{
    EntryList entries;
    auto low = entries.add<HoldingRegisters>(0, 2);
    auto high = entries.add<HoldingRegisters>(2, 2);
    auto bits = entries.addDiscretes(0, 4);
    ModbusMap map("concurrent", entries.release(), nullptr, ByteOrder::ABCD);

    Connection first;
    Connection second;
    std::atomic<int> firstFailures{-1};
    std::atomic<int> secondFailures{-1};
    std::atomic<bool> clientsDone{false};

    std::thread firstServer([&] { first.serve(map); });
    std::thread secondServer([&] { second.serve(map); });
    std::thread notifier([&] {
        for (int n = 0; n < g_notifications && !clientsDone; ++n) {
            const auto word = static_cast<uint16_t>(0x1000 + n % 0x1000);
            low->fire({word, word});
            high->fire({word, word});
            bits->fire({1, 0, static_cast<uint8_t>(n % 2), 1});
        }
    });
    std::thread firstClient([&] { firstFailures = first.runClient(0xa000); });
    std::thread secondClient([&] { secondFailures = second.runClient(0xb000); });

    firstClient.join();
    secondClient.join();
    clientsDone = true;
    notifier.join();
    firstServer.join();
    secondServer.join();

    EXPECT_EQ(firstFailures, 0);
    EXPECT_EQ(secondFailures, 0);
    // Every register write reached both entries it spans.
    EXPECT_EQ(low->written().size(), 2U * g_requestsPerClient);
    EXPECT_EQ(high->written().size(), 2U * g_requestsPerClient);
    EXPECT_EQ(bits->written().size(), 2U * g_requestsPerClient);
}

} // namespace
} // namespace orv::modbus::test
