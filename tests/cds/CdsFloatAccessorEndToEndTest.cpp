// A float channel served through a holding-register entry of a map, answered
// by processRequest on a real libmodbus connection, from a Modbus client's
// write to the data store and back, and from a driver's change to a client's
// read.
#include "CdsStoreTest.h"
#include "RegisterWords.h"
#include "ServedMap.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>

#include <gtest/gtest.h>

#include <memory>

#include <modbus/modbus.h>

namespace orv::modbus::cds::test {
namespace {

constexpr uint16_t g_address = 100;

using orv::test::ServedMap;

std::vector<uint16_t> abcdWordsOf(float value)
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
        EXPECT_EQ(served.readHolding(g_address, 2), abcdWordsOf(150.0f));

        const auto written = abcdWordsOf(42.7f);
        ASSERT_EQ(modbus_write_registers(served.client(), g_address, 2, written.data()), 2);
        EXPECT_TRUE(waitUntil([&] { return store().getChannelCValue(channel) == zu::CValue(std::int32_t{42}); }));
        // The store's notification replaces the written words by its value.
        EXPECT_TRUE(waitUntil([&] { return served.readHolding(g_address, 2) == abcdWordsOf(42.0f); }));

        // A driver's change without any Modbus write.
        store().setChannelCValue(channel, zu::CValue(std::int32_t{-7}));
        EXPECT_TRUE(waitUntil([&] { return served.readHolding(g_address, 2) == abcdWordsOf(-7.0f); }));
    }
    // No notification may still be on its way into the map's tables.
    flush();
    map.reset();
}

} // namespace
} // namespace orv::modbus::cds::test
