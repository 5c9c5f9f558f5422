// Accessors built and destroyed while a driver keeps changing the data they
// watch: no notification may reach a destroyed accessor, and everything they
// subscribed must be released. Meaningful in the sanitizer build above all.
#include "CdsStoreTest.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace orv::modbus::cds::test {
namespace {

class CdsChannelAccessorStressTest : public CdsStoreTest {};

TEST_F(CdsChannelAccessorStressTest, DestroyingAccessorsWhileNotificationsFlow)
{
    const auto device = store().createDevice("drive");
    const auto speed = store().addChannel(device, "Speed", zu::CValue(0.0f));
    const auto torque = store().addChannel(device, "Torque", zu::CValue(0.0f));

    std::atomic<bool> stop{false};
    std::atomic<int> writes{0};
    std::thread driver([&] {
        constexpr int maxWrites = 20000;
        for (int i = 0; i < maxWrites && !stop; ++i) {
            store().setChannelCValue(i % 2 == 0 ? speed : torque, zu::CValue(static_cast<float>(i)));
            if (i % 50 == 0) {
                // Makes every accessor on the device detect its channel again.
                store().setDeviceAttribute(device, cdsapi::DeviceAttribute::Location, std::to_string(i));
            }
            if (i % 200 == 0) {
                store().setChannelAlarmHysteresis(torque, static_cast<float>(i));
            }
            writes = i + 1;
            std::this_thread::yield();
        }
    });

    PublishedWords published;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    for (int round = 0; round < 100 && std::chrono::steady_clock::now() < deadline; ++round) {
        // Owned: the conversion accessor takes the channel accessor with it.
        auto owned = std::make_unique<CdsFloatAccessor>(
            std::make_shared<CdsChannelAccessor>(device, "Speed", DataType::ChannelValue), 1.0f, 1);
        owned->setCallback(published.callback());

        // Borrowed: the channel accessor outlives its conversion accessor.
        auto borrowed = std::make_unique<CdsChannelAccessor>("drive", "Torque", DataType::ChannelValue);
        auto settings = std::make_unique<CdsChannelAccessor>(device, "Torque", DataType::AlarmHysteresis);
        auto converted = std::make_unique<CdsFloatAccessor>(borrowed.get(), 2.0f, 1);
        converted->setCallback(published.callback());
        auto settingsConverted = std::make_unique<CdsFloatAccessor>(settings.get(), 1.0f, 1);
        settingsConverted->setCallback(published.callback());

        // Destroy them while their notifications arrive.
        const auto before = published.count();
        waitUntil([&] { return published.count() > before + 2; }, std::chrono::milliseconds(500));

        if (round % 2 == 0) {
            converted.reset();
            owned.reset();
            borrowed.reset();
        } else {
            borrowed->setUpdateCallback({});
            owned.reset();
            converted.reset();
            borrowed.reset();
        }
        settingsConverted.reset();
        settings.reset();
    }
    stop = true;
    driver.join();
    flush();

    EXPECT_GT(writes.load(), 0);
    EXPECT_GT(published.count(), 0u);
}

} // namespace
} // namespace orv::modbus::cds::test
