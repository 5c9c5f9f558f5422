// A float channel served through a holding-register entry of a map, answered
// by processRequest on a real libmodbus connection, from a Modbus client's
// write to the data store and back, and from a driver's change to a client's
// read.
#include "CdsStoreTest.h"
#include "ModbusSocketPair.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/RegisterWords.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include <modbus/modbus.h>

namespace orv::modbus::cds::test {
namespace {

constexpr uint16_t g_address = 100;

// A Modbus TCP conversation over a socket pair: a thread answers each
// request of the client end with the map's processRequest.
class ServedMap {
public:
    explicit ServedMap(ModbusMap& map)
        : m_map(map)
    {
        // Lets the serving loop look at its stop flag several times a second.
        modbus_set_indication_timeout(m_sockets.server(), 0, 50000);
        m_thread = std::thread([this] { serve(); });
    }

    ~ServedMap()
    {
        m_stop = true;
        m_thread.join();
    }

    ServedMap(const ServedMap&) = delete;
    ServedMap& operator=(const ServedMap&) = delete;

    modbus_t* client() const
    {
        return m_sockets.client();
    }

    std::vector<uint16_t> readHolding(uint16_t address, int count) const
    {
        std::vector<uint16_t> words(static_cast<std::size_t>(count));
        if (modbus_read_registers(client(), address, count, words.data()) != count) {
            return {};
        }
        return words;
    }

private:
    void serve()
    {
        uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
        while (!m_stop) {
            const int length = modbus_receive(m_sockets.server(), query);
            if (length > 0) {
                m_map.processRequest(m_sockets.server(), query, static_cast<unsigned>(length), false, false, false);
            }
        }
    }

    ModbusMap& m_map;
    orv::test::ModbusSocketPair m_sockets;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

std::vector<uint16_t> wordsOf(float value)
{
    return RegisterWords::splitFloat(value, ByteOrder::ABCD, "");
}

class CdsFloatAccessorEndToEndTest : public CdsStoreTest {};

TEST_F(CdsFloatAccessorEndToEndTest, ClientWritesReachTheStoreAndTheStoresValuesReachClients)
{
    const auto device = store().createDevice("meter");
    // An integer channel: the store keeps its own kind, so the value that
    // comes back differs from the float a client writes.
    const auto channel = store().addChannel(device, "Power", zu::CValue(std::int32_t{150}));

    auto channelAccessor = std::make_shared<CdsChannelAccessor>(device, "Power", DataType::ChannelValue);
    auto* entry = new HoldingRegisters(g_address, new CdsFloatAccessor(channelAccessor, 1.0f, 1), true, "power",
                                       "Active power", "W");
    channelAccessor.reset();
    auto map = std::make_unique<ModbusMap>("meter", std::vector<ModbusMapEntry*>{entry}, nullptr, ByteOrder::ABCD);
    {
        ServedMap served(*map);
        EXPECT_EQ(served.readHolding(g_address, 2), wordsOf(150.0f));

        const auto written = wordsOf(42.7f);
        ASSERT_EQ(modbus_write_registers(served.client(), g_address, 2, written.data()), 2);
        EXPECT_TRUE(waitUntil([&] { return store().getChannelCValue(channel) == zu::CValue(std::int32_t{42}); }));
        // The store's notification replaces the written words by its value.
        EXPECT_TRUE(waitUntil([&] { return served.readHolding(g_address, 2) == wordsOf(42.0f); }));

        // A driver's change without any Modbus write.
        store().setChannelCValue(channel, zu::CValue(std::int32_t{-7}));
        EXPECT_TRUE(waitUntil([&] { return served.readHolding(g_address, 2) == wordsOf(-7.0f); }));
    }
    // No notification may still be on its way into the map's tables.
    flush();
    map.reset();
}

} // namespace
} // namespace orv::modbus::cds::test
