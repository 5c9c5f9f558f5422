// Alarm discretes and device attribute registers of a map over the real data
// store, answered by processRequest on a real libmodbus connection: function
// code 2 for the alarm states, 4 and 3 for the attribute texts, 16 to write
// one; across a device that disappears and comes back, and across a device
// settings event.
#include "CdsServedMapTest.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

using Bits = std::vector<uint8_t>;
using Words = std::vector<uint16_t>;
using cdsapi::DeviceAttribute;

constexpr uint16_t g_alarmTypes = 0;   // discretes 0 to 4: types 0 to 4, device by name
constexpr uint16_t g_phaseAlarm = 5;   // discrete 5: type 1, sub-device 0 of the meter
constexpr uint16_t g_serial = 0;       // input registers 0 to 4
constexpr uint16_t g_subDevices = 5;   // input register 5
constexpr uint16_t g_model = 0;        // holding registers 0 to 4
constexpr int g_textRegisters = 5;

constexpr std::uint64_t g_meter = 100;

// Two characters a register, the first in the high byte, zero-padded.
Words textWords(const std::string& text)
{
    Words words(g_textRegisters, 0);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint16_t>(static_cast<unsigned char>(text[i]));
        words[i / 2] = static_cast<uint16_t>(words[i / 2] | (i % 2 == 0 ? byte << 8 : byte));
    }
    return words;
}

class CdsDeviceAndAlarmEndToEndTest : public CdsServedMapTest {
protected:
    void SetUp() override
    {
        CdsServedMapTest::SetUp();
        store().loadSeed(meterSeed(), "meter");
        flush();
        voltage = store().getChannelId(g_meter, "Voltage");

        std::vector<ModbusMapEntry*> entries;
        for (uint16_t type = 0; type < 5; ++type) {
            entries.push_back(new Discretes(
                static_cast<uint16_t>(g_alarmTypes + type),
                new CdsBooleanToOneDiscreteAccessor(
                    std::make_shared<CdsAlarmToOneDiscreteAccessor>("meter", "Voltage", static_cast<AlarmType>(type)),
                    DiscreteModifier::None),
                false, "alarm", "Voltage alarm state", "on", "off"));
        }
        entries.push_back(new Discretes(
            g_phaseAlarm,
            new CdsBooleanToOneDiscreteAccessor(std::make_shared<CdsAlarmToOneDiscreteAccessor>(
                                                    g_meter, std::vector<unsigned>{0}, "Voltage", AlarmType::Class1),
                                                DiscreteModifier::None),
            false, "phase alarm", "Phase voltage alarm", "on", "off"));
        entries.push_back(new Registers(
            g_serial,
            new CdsStringAccessor(g_textRegisters, std::make_shared<CdsDeviceAccessor>("meter", DeviceAttribute::SerialNumber)),
            false, "serial", "Serial number", ""));
        entries.push_back(new Registers(
            g_subDevices,
            new CdsUint32ToOneRegisterAccessor(
                std::make_shared<CdsDeviceAccessor>(g_meter, static_cast<DeviceAttribute>(16)), 1.0f),
            false, "sub-devices", "Number of sub-devices", ""));
        entries.push_back(new HoldingRegisters(
            g_model,
            new CdsStringAccessor(g_textRegisters, std::make_shared<CdsDeviceAccessor>(g_meter, DeviceAttribute::Model)),
            true, "model", "Model", ""));
        serve(std::make_unique<ModbusMap>("meter", entries, nullptr, ByteOrder::ABCD));
    }

    static std::string meterSeed()
    {
        return fmt::format(R"({{"devices": [{{"id": {}, "name": "meter",
            "attributes": {{"SerialNumber": "PM3-77", "Model": "PM-3"}},
            "channels": [{{"name": "Voltage", "kind": "float", "value": 230.0, "alarm": {{"enabled": true}}}}],
            "devices": [{{"name": "phase", "channels": [{{"name": "Voltage", "kind": "float", "value": 229.0,
                                                        "alarm": {{"enabled": true}}}}]}}]}}]}})",
                           g_meter);
    }

    Words readInput(uint16_t address, int count) const
    {
        Words words(static_cast<std::size_t>(count));
        if (modbus_read_input_registers(served->client(), address, count, words.data()) != count) {
            return {};
        }
        return words;
    }

    Bits alarmStates() const
    {
        return served->readDiscreteInputs(g_alarmTypes, 6);
    }

    std::uint64_t voltage = 0;
};

TEST_F(CdsDeviceAndAlarmEndToEndTest, AlarmStatesFollowRaisedAndClearedTriggers)
{
    // Type 0: the value (230, true as a flag) does not equal the threshold flag (false).
    EXPECT_EQ(alarmStates(), Bits({0, 0, 0, 0, 0, 0}));
    store().raiseAlarm(voltage, zu::CAlarmTrigger{7, 1, 253.0f});
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 0, 0, 1, 0}); }));
    // The same code again replaces the trigger.
    store().raiseAlarm(voltage, zu::CAlarmTrigger{7, 0, 240.0f});
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 1, 0, 0, 0}); }));
    store().raiseAlarm(voltage, zu::CAlarmTrigger{2, 1, 240.0f});
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 0, 1, 0, 0}); }));
    store().clearAlarm(voltage, zu::CAlarmTrigger{7, 0, 0.0f});
    store().clearAlarm(voltage, zu::CAlarmTrigger{2, 0, 0.0f});
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 0, 0, 0, 0}); }));
}

TEST_F(CdsDeviceAndAlarmEndToEndTest, AlarmDiscretesAreWrittenByNobody)
{
    const Bits on{1};
    EXPECT_EQ(modbus_write_bits(served->client(), g_alarmTypes, 1, on.data()), -1);
    EXPECT_EQ(store().getChannelAlarmSettings(voltage).enabled, true);
    EXPECT_TRUE(store().getActiveAlarms(voltage).empty());
}

TEST_F(CdsDeviceAndAlarmEndToEndTest, AlarmDiscretesFollowADeviceThatDisappearsAndComesBack)
{
    store().removeDevice(g_meter);
    // Not found: the entries are unavailable and the read is refused.
    EXPECT_TRUE(waitUntil([&] { return alarmStates().empty(); }));

    store().loadSeed(meterSeed(), "meter again");
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 0, 0, 0, 0}); }));
    voltage = store().getChannelId(g_meter, "Voltage");
    const auto phaseVoltage = store().getChannelId(store().getSubDevicesIds(g_meter, 1).at(0), "Voltage");
    store().raiseAlarm(voltage, zu::CAlarmTrigger{3, 1, 0.0f});
    store().raiseAlarm(phaseVoltage, zu::CAlarmTrigger{3, 0, 0.0f});
    EXPECT_TRUE(waitUntil([&] { return alarmStates() == Bits({0, 0, 0, 1, 0, 1}); }));
}

TEST_F(CdsDeviceAndAlarmEndToEndTest, AttributeTextsAreServedAsRegisters)
{
    EXPECT_EQ(readInput(g_serial, g_textRegisters), textWords("PM3-77"));
    EXPECT_EQ(served->readHolding(g_model, g_textRegisters), textWords("PM-3"));
    EXPECT_EQ(readInput(g_subDevices, 1), Words{1});
}

TEST_F(CdsDeviceAndAlarmEndToEndTest, WrittenTextReachesTheDeviceAttribute)
{
    const auto written = textWords("PM-4X");
    ASSERT_EQ(modbus_write_registers(served->client(), g_model, g_textRegisters, written.data()), g_textRegisters);
    EXPECT_TRUE(waitUntil([&] { return store().getDeviceAttribute(g_meter, DeviceAttribute::Model) == "PM-4X"; }));
}

TEST_F(CdsDeviceAndAlarmEndToEndTest, DeviceSettingsEventLeavesTheAttributesUnavailableUntilTheDeviceReturns)
{
    // A settings event whose detection lands on the same device leaves the
    // attribute accessors not found, so their registers are refused.
    store().setDeviceAttribute(g_meter, DeviceAttribute::SerialNumber, "PM3-78");
    EXPECT_TRUE(waitUntil([&] { return readInput(g_serial, g_textRegisters).empty(); }));
    EXPECT_TRUE(served->readHolding(g_model, g_textRegisters).empty());
    // The alarm discretes detect their channel again and stay served.
    EXPECT_EQ(alarmStates(), Bits({0, 0, 0, 0, 0, 0}));

    // Gone and back, the device is found again. (Any later settings event
    // of the meter would make its attributes unavailable again.)
    store().removeDevice(g_meter);
    flush();
    store().loadSeed(meterSeed(), "meter again");
    EXPECT_TRUE(waitUntil([&] { return readInput(g_serial, g_textRegisters) == textWords("PM3-77"); }));
    EXPECT_TRUE(waitUntil([&] { return served->readHolding(g_model, g_textRegisters) == textWords("PM-3"); }));
    EXPECT_EQ(readInput(g_subDevices, 1), Words{1});
}

} // namespace
} // namespace orv::modbus::cds::test
