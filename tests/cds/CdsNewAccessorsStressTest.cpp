// Maps with composites, boolean discretes, device attributes and alarm
// discretes built and destroyed while a driver keeps changing everything
// they watch: no notification may reach a destroyed accessor (the sanitizer
// build reports it), and every data-store subscription is released exactly
// once (the fixture compares the store's count).
#include "CdsStoreTest.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>
#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

class CdsNewAccessorsStressTest : public CdsStoreTest {
protected:
    static std::unique_ptr<ModbusMap> buildMap(std::uint64_t device)
    {
        const auto point = [device](const char* name) {
            return new CdsChannelAccessor(device, name, DataType::ChannelValue);
        };
        const auto sum = [](const std::vector<zu::CValue>& values) {
            return std::vector<uint16_t>{static_cast<uint16_t>(values[0].as_float() + values[1].as_float())};
        };
        const auto bits = [](const std::vector<zu::CValue>& values) {
            return std::vector<bool>{values[0].as_bool(), values[1].as_bool()};
        };
        std::vector<ModbusMapEntry*> entries{
            new HoldingRegisters(0, new CdsDataToRegistersAccessor(1, {point("Speed"), point("Torque")}, sum, nullptr,
                                                                   nullptr, "", MissingAccessorPolicy::AnyExisting),
                                 false, "sum", "", ""),
            new Registers(1, new CdsStringAccessor(4, std::make_shared<CdsDeviceAccessor>("drive",
                                                                                          cdsapi::DeviceAttribute::Model)),
                          false, "model", "", ""),
            new Discretes(0, new CdsDataToDiscretesAccessor(2, {point("Run"), point("Fault")}, bits, nullptr,
                                                            MissingAccessorPolicy::AllExisting),
                          false, "flags", "", "on", "off"),
            new Discretes(2, new CdsBooleanToOneDiscreteAccessor(std::shared_ptr<CdsDataAccessor>(point("Run")),
                                                                 DiscreteModifier::Inverted),
                          true, "stopped", "", "on", "off"),
            new Discretes(3, new CdsBooleanToOneDiscreteAccessor(
                                 std::make_shared<CdsAlarmToOneDiscreteAccessor>("drive", "Speed", AlarmType::Class3),
                                 DiscreteModifier::None),
                          false, "alarm", "", "on", "off")};
        return std::make_unique<ModbusMap>("drive", entries, nullptr, ByteOrder::ABCD);
    }
};

TEST_F(CdsNewAccessorsStressTest, MapsComeAndGoWhileNotificationsFlow)
{
    const auto device = store().createDevice("drive", 0, {{cdsapi::DeviceAttribute::Model, "D-1"}});
    cdsapi::ChannelAlarmSettings alarm;
    alarm.enabled = true;
    const auto speed = store().addChannel(device, "Speed", zu::CValue(0.0f), alarm);
    const auto torque = store().addChannel(device, "Torque", zu::CValue(0.0f));
    const auto run = store().addChannel(device, "Run", zu::CValue(false));
    store().addChannel(device, "Fault", zu::CValue(false));

    std::atomic<bool> stop{false};
    std::atomic<int> changes{0};
    std::thread driver([&] {
        constexpr int maxChanges = 20000;
        for (int i = 0; i < maxChanges && !stop; ++i) {
            store().setChannelCValue(i % 2 == 0 ? speed : torque, zu::CValue(static_cast<float>(i % 100)));
            store().setChannelCValue(run, zu::CValue(i % 3 == 0));
            if (i % 10 == 0) {
                store().raiseAlarm(speed, zu::CAlarmTrigger{static_cast<std::uint32_t>(i % 8), 1, 0.0f});
            }
            if (i % 10 == 5) {
                store().clearAlarm(speed, zu::CAlarmTrigger{static_cast<std::uint32_t>((i - 5) % 8), 1, 0.0f});
            }
            if (i % 40 == 0) {
                // Device update and settings of the device at once.
                store().setDeviceAttribute(device, cdsapi::DeviceAttribute::Model, "D-" + std::to_string(i));
            }
            changes = i + 1;
            std::this_thread::yield();
        }
    });

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    int rounds = 0;
    for (; rounds < 200 && std::chrono::steady_clock::now() < deadline; ++rounds) {
        auto map = buildMap(device);
        const auto before = changes.load();
        waitUntil([&] { return changes.load() > before + 3; }, std::chrono::milliseconds(200));
        map.reset();
    }
    stop = true;
    driver.join();
    flush();

    EXPECT_GT(rounds, 0);
    EXPECT_GT(changes.load(), 0);
}

} // namespace
} // namespace orv::modbus::cds::test
