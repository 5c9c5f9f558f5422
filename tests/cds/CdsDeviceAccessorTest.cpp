// The device accessor against the in-process data store, with the shared
// client's notification thread delivering the changes.
#include "CdsStoreTest.h"
#include "LogCapture.h"
#include "ValueLog.h"

#include <orv/modbus/cds/CdsDeviceAccessor.h>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <atomic>
#include <memory>
#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using Device = CdsDeviceAccessor;
using cdsapi::DeviceAttribute;

constexpr auto g_subDeviceCount = static_cast<DeviceAttribute>(16);

class CdsDeviceAccessorTest : public CdsStoreTest {
protected:
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        m_device = store().createDevice("meter", 0, {{DeviceAttribute::SerialNumber, "SN-1"},
                                                     {DeviceAttribute::Model, "PM-3"}});
    }

    static bool watchesDevice(const Device::SubscriberSets& sets, std::uint64_t deviceId, const Device* accessor)
    {
        const auto set = sets.find(deviceId);
        return set != sets.end() && set->second.contains(const_cast<Device*>(accessor));
    }

    std::uint64_t m_device = 0;
};

TEST_F(CdsDeviceAccessorTest, ReadsTheAttributeAsText)
{
    Device serial(m_device, DeviceAttribute::SerialNumber);
    Device byName("meter", DeviceAttribute::Model);
    EXPECT_TRUE(serial.isExistingInCds());
    EXPECT_EQ(serial.getCValue(), zu::CValue("SN-1"));
    EXPECT_EQ(byName.getCValue(), zu::CValue("PM-3"));
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceSubscriber, m_device, &serial));
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceSettingsSubscriber, m_device, &serial));
}

TEST_F(CdsDeviceAccessorTest, WritesTextAndHearsTheEcho)
{
    Device location(m_device, DeviceAttribute::Location);
    ValueLog log;
    location.setUpdateCallback(log.callback());
    location.setCValue(zu::CValue(std::int32_t{42}));
    EXPECT_EQ(store().getDeviceAttribute(m_device, DeviceAttribute::Location), "42");
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue("42")); }));
}

TEST_F(CdsDeviceAccessorTest, SubDeviceCountOfADeviceWithoutSubDevicesIsZero)
{
    Device count(m_device, g_subDeviceCount);
    EXPECT_EQ(count.getCValue(), zu::CValue(std::uint32_t{0}));
}

TEST_F(CdsDeviceAccessorTest, SubDeviceCountCountsEveryLevel)
{
    const auto phase = store().createDevice("phase", m_device);
    store().createDevice("sensor", phase);
    store().createDevice("other phase", m_device);
    Device count(m_device, g_subDeviceCount);
    ValueLog log;
    count.setUpdateCallback(log.callback());
    EXPECT_EQ(count.getCValue(), zu::CValue(std::uint32_t{3}));

    // A new sub-device is a device update of its parent.
    store().createDevice("fourth", m_device);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(std::uint32_t{4})); }));
}

TEST_F(CdsDeviceAccessorTest, SubDeviceCountIsServedWhileNotFound)
{
    store().createDevice("phase", m_device);
    Device count(m_device, g_subDeviceCount);
    Device::cdsDeviceSettings(m_device);
    ASSERT_FALSE(count.isExistingInCds());
    EXPECT_EQ(count.getCValue(), zu::CValue(std::uint32_t{1}));
}

TEST_F(CdsDeviceAccessorTest, SubDeviceCountReachesTheCallbackAsACountAfterDetectionAndUpdate)
{
    constexpr std::uint64_t later = 4711;
    Device count(later, g_subDeviceCount);
    ValueLog log;
    count.setUpdateCallback([&log](const zu::CValue& value) {
        if (value.is_valid()) {
            log.callback()(value);
        }
    });

    // Detection finds the device: the callback hears its count, not the
    // text of an attribute 16.
    store().createDevice("late", 0, {}, later);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(std::uint32_t{0})); }));
    // A sub-device is a device update: counted again.
    store().createDevice("phase", later);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(std::uint32_t{1})); }));
    flush();
    for (const auto& value : log.values()) {
        EXPECT_EQ(value.type(), zu::CValue::Type::Uint32);
    }
}

TEST_F(CdsDeviceAccessorTest, SubDeviceCountOfNoReachedDeviceIsEmptyAndBuildsNoMatterWhat)
{
    Device count(4711, g_subDeviceCount);
    ASSERT_FALSE(count.isExistingInCds());
    EXPECT_FALSE(count.getCValue().is_valid());
}

TEST_F(CdsDeviceAccessorTest, WritingTheSubDeviceCountDoesNothing)
{
    Device count(m_device, g_subDeviceCount);
    ValueLog log;
    count.setUpdateCallback(log.callback());
    count.setCValue(zu::CValue("5"));
    flush();
    EXPECT_EQ(store().getDeviceAttribute(m_device, g_subDeviceCount), "");
    EXPECT_EQ(log.count(), 1u) << "a write would have been echoed as a device update";
}

TEST_F(CdsDeviceAccessorTest, DeviceSettingsOnTheSameDeviceLeaveTheAccessorNotFound)
{
    Device serial(m_device, DeviceAttribute::SerialNumber);
    ValueLog log;
    serial.setUpdateCallback(log.callback());
    ASSERT_TRUE(serial.isExistingInCds());

    Device::cdsDeviceSettings(m_device);
    EXPECT_FALSE(serial.isExistingInCds());
    EXPECT_FALSE(log.last().is_valid());
    EXPECT_FALSE(serial.getCValue().is_valid());
    // Still watched: the next device update brings the value again.
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceSubscriber, m_device, &serial));
    store().setDeviceAttribute(m_device, DeviceAttribute::SerialNumber, "SN-2");
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue("SN-2")); }));
}

TEST_F(CdsDeviceAccessorTest, FailingNameLookupReachesTheCallerOfTheConstructor)
{
    EXPECT_THROW(Device("nowhere", DeviceAttribute::Model), cdsapi::CdsError);
}

TEST_F(CdsDeviceAccessorTest, SubDevicePathPastTheListIsNotFound)
{
    const auto phase = store().createDevice("phase", m_device, {{DeviceAttribute::Name, "L1"}});
    Device first(m_device, {0}, DeviceAttribute::Name);
    Device beyond(m_device, {1}, DeviceAttribute::Name);
    EXPECT_TRUE(first.isExistingInCds());
    EXPECT_EQ(first.getCValue(), zu::CValue("L1"));
    EXPECT_FALSE(beyond.isExistingInCds());
    EXPECT_FALSE(beyond.getCValue().is_valid());
    beyond.setCValue(zu::CValue("L2"));
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceCreationSubscriber, m_device, &beyond));
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceSubscriber, phase, &first));
}

TEST_F(CdsDeviceAccessorTest, RemovedDeviceIsWatchedUnderItsIdAndFoundWhenItComesBack)
{
    ValueLog log;
    auto accessor = std::make_unique<Device>("meter", DeviceAttribute::SerialNumber);
    accessor->setUpdateCallback(log.callback());
    store().removeDevice(m_device);
    ASSERT_TRUE(waitUntil([&] { return !accessor->isExistingInCds() && !log.last().is_valid(); }));
    flush();
    EXPECT_TRUE(watchesDevice(Device::m_mapDeviceAccessorDeviceCreationSubscriber, m_device, accessor.get()));

    store().createDevice("meter", 0, {{DeviceAttribute::SerialNumber, "SN-9"}}, m_device);
    EXPECT_TRUE(waitUntil([&] { return accessor->isExistingInCds() && log.lastIs(zu::CValue("SN-9")); }));
    flush();
    EXPECT_FALSE(Device::m_mapDeviceAccessorDeviceCreationSubscriber.contains(m_device));

    // Destroyed, it hears nothing more of creations and updates.
    accessor.reset();
    const auto callsBefore = log.count();
    store().removeDevice(m_device);
    store().createDevice("meter", 0, {}, m_device);
    flush();
    EXPECT_EQ(log.count(), callsBefore);
}

TEST_F(CdsDeviceAccessorTest, OneFailingCallbackCostsOnlyItsOwnAccessorItsValue)
{
    Device failing(m_device, DeviceAttribute::SerialNumber);
    Device healthy(m_device, DeviceAttribute::SerialNumber);
    ValueLog log;
    std::atomic<bool> fail{false};
    failing.setUpdateCallback([&fail](const zu::CValue& value) {
        if (fail && value.is_valid()) {
            throw std::runtime_error("refused");
        }
    });
    healthy.setUpdateCallback(log.callback());
    fail = true;
    Device::cdsDeviceUpdate(m_device);
    // The failing one was detected again (same device: not found); the
    // other kept its value.
    EXPECT_FALSE(failing.isExistingInCds());
    EXPECT_TRUE(healthy.isExistingInCds());
    EXPECT_TRUE(log.lastIs(zu::CValue("SN-1")));
}

TEST_F(CdsDeviceAccessorTest, SubscriptionsAreSharedAndReleasedExactlyOnce)
{
    const auto before = store().subscriptionCount();
    auto first = std::make_unique<Device>(m_device, DeviceAttribute::SerialNumber);
    // Update and settings of the device.
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    auto second = std::make_unique<Device>(m_device, DeviceAttribute::Model);
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    first.reset();
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    second.reset();
    EXPECT_EQ(store().subscriptionCount(), before);
}

TEST_F(CdsDeviceAccessorTest, UpdateSubscriptionIsLoggedWithTheDeviceName)
{
    orv::test::LogCapture log;
    Device model("meter", DeviceAttribute::Model);
    EXPECT_TRUE(log.contains("subscribeDeviceUpdate with the cannonical name meter"));
    EXPECT_TRUE(log.contains(fmt::format("subscribeDeviceUpdate create subscribe on the device Id {}", m_device)));
    EXPECT_TRUE(log.containsFrom("subscribeDeviceUpdate with the cannonical name meter", "CdsDeviceAccessor"));
    store().setDeviceAttribute(m_device, DeviceAttribute::Model, "PM-4");
    EXPECT_TRUE(log.waitFor(fmt::format("Device update with the device id {}", m_device)));
}

} // namespace
} // namespace orv::modbus::cds::test
