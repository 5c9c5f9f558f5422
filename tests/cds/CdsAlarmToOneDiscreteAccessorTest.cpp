// The alarm discrete accessor against the in-process data store: which
// alarm type reads true for which trigger, and how it follows its channel.
#include "CdsStoreTest.h"
#include "ValueLog.h"

#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <limits>
#include <memory>

namespace orv::modbus::cds::test {
namespace {

using Alarm = CdsAlarmToOneDiscreteAccessor;

constexpr std::uint64_t g_allOnes = std::numeric_limits<std::uint64_t>::max();
constexpr std::array<AlarmType, 5> g_everyType{AlarmType::ThresholdFlag, AlarmType::Class1, AlarmType::Class2,
                                                AlarmType::Class3, AlarmType::Class4};

class CdsAlarmToOneDiscreteAccessorTest : public CdsStoreTest {
protected:
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        m_device = store().createDevice("meter");
        cdsapi::ChannelAlarmSettings alarm;
        alarm.enabled = true;
        m_channel = store().addChannel(m_device, "Voltage", zu::CValue(230.0f), alarm);
    }

    // What each of the types 0 to 4 reads now.
    std::array<bool, 5> readEveryType() const
    {
        std::array<bool, 5> read{};
        for (std::size_t type = 0; type < read.size(); ++type) {
            const Alarm accessor(m_device, "Voltage", g_everyType[type]);
            const auto value = accessor.getCValue();
            EXPECT_TRUE(value.is_valid());
            read[type] = value.as_bool();
        }
        return read;
    }

    void raise(std::uint32_t code, std::uint8_t flag)
    {
        store().raiseAlarm(m_channel, zu::CAlarmTrigger{code, flag, 240.0f});
    }

    static bool watchesObject(const Alarm::SubscriberSets& sets, std::uint64_t objectId, const Alarm* accessor)
    {
        const auto set = sets.find(objectId);
        return set != sets.end() && set->second.contains(const_cast<Alarm*>(accessor));
    }

    std::uint64_t m_device = 0;
    std::uint64_t m_channel = 0;
};

using Reads = std::array<bool, 5>;

TEST_F(CdsAlarmToOneDiscreteAccessorTest, DisabledAlarmReadsFalseForEveryType)
{
    // Type 0 would be true: the value (true) equals the threshold flag.
    const auto flagged = store().addChannel(m_device, "Door", zu::CValue(true));
    store().setChannelAlarmTriggerThreshold(flagged, true);
    raise(7, 1);
    store().setChannelAlarmEnabled(m_channel, false);
    EXPECT_EQ(readEveryType(), Reads({false, false, false, false, false}));
    for (const auto type : g_everyType) {
        EXPECT_EQ(Alarm(m_device, "Door", type).getCValue(), zu::CValue(false));
    }
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, NoActiveAlarmReadsFalseForTypes1To4)
{
    const auto read = readEveryType();
    EXPECT_EQ(Reads({read[0], false, false, false, false}), read);
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, SpecialCodeWithTheFlagIsType4Only)
{
    raise(7, 1);
    EXPECT_EQ(readEveryType(), Reads({false, false, false, false, true}));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, SpecialCodeWithAnotherFlagIsType2Only)
{
    raise(7, 0);
    EXPECT_EQ(readEveryType(), Reads({false, false, true, false, false}));
    store().clearAlarm(m_channel, zu::CAlarmTrigger{7, 0, 0.0f});
    raise(7, 2);
    EXPECT_EQ(readEveryType(), Reads({false, false, true, false, false}));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, OtherCodeWithTheFlagIsType3Only)
{
    raise(3, 1);
    EXPECT_EQ(readEveryType(), Reads({false, false, false, true, false}));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, OtherCodeWithAnotherFlagIsType1Only)
{
    raise(3, 0);
    EXPECT_EQ(readEveryType(), Reads({false, true, false, false, false}));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, TypeOutsideTheRangeNeverMatches)
{
    raise(3, 0);
    EXPECT_EQ(Alarm(m_device, "Voltage", static_cast<AlarmType>(9)).getCValue(), zu::CValue(false));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, Type0ComparesTheValueWithTheThresholdFlag)
{
    cdsapi::ChannelAlarmSettings alarm;
    alarm.enabled = true;
    const auto door = store().addChannel(m_device, "Door", zu::CValue(false), alarm);
    const Alarm accessor(m_device, "Door", AlarmType::ThresholdFlag);
    EXPECT_EQ(accessor.getCValue(), zu::CValue(true)) << "false equals false";
    store().setChannelCValue(door, zu::CValue(true));
    EXPECT_EQ(accessor.getCValue(), zu::CValue(false));
    store().setChannelAlarmTriggerThreshold(door, true);
    EXPECT_EQ(accessor.getCValue(), zu::CValue(true));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, WritesNeverReachTheStore)
{
    std::atomic<int> notified{0};
    std::uint64_t subscription = 0;
    CdsInBandAccessor::getInstance().subscribeDeviceAlarms(
        m_channel, [&notified](std::uint64_t, const zu::CAlarmUpdate&) { ++notified; }, &subscription);
    const auto settings = store().getChannelAlarmSettings(m_channel);
    for (const auto type : g_everyType) {
        Alarm accessor(m_device, "Voltage", type);
        accessor.setCValue(zu::CValue(true));
        accessor.setCValue(zu::CValue(false));
    }
    flush();
    CdsInBandAccessor::getInstance().unsubscribe(subscription);
    EXPECT_EQ(notified.load(), 0);
    EXPECT_EQ(store().getChannelAlarmSettings(m_channel), settings);
    EXPECT_TRUE(store().getActiveAlarms(m_channel).empty());
    EXPECT_EQ(store().getChannelCValue(m_channel), zu::CValue(230.0f));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, RaisedAndClearedAlarmsReachTheCallback)
{
    Alarm accessor(m_device, "Voltage", AlarmType::Class3);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    EXPECT_TRUE(log.lastIs(zu::CValue(false)));
    raise(5, 1);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));
    store().clearAlarm(m_channel, zu::CAlarmTrigger{5, 1, 0.0f});
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(false)); }));
    raise(5, 1);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));
    store().setChannelAlarmEnabled(m_channel, false);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(false)); }));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, WatchesTheChannelsAlarmsAndItsDevicesSettings)
{
    const Alarm accessor(m_device, "Voltage", AlarmType::Class1);
    EXPECT_TRUE(accessor.isExistingInCds());
    EXPECT_TRUE(watchesObject(Alarm::m_mapChannelAccessorChannelAlarmSubscriber, m_channel, &accessor));
    EXPECT_TRUE(Alarm::m_mapChannelAccessorChannelAlarmSubscriberId.contains(m_channel));
    EXPECT_TRUE(watchesObject(Alarm::m_mapChannelAccessorDeviceSettingsSubscriber, m_device, &accessor));
    EXPECT_TRUE(Alarm::m_mapChannelAccessorDeviceCreationSubscriber.empty());
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, MissingChannelReadsFalseAndTellsTheCallbackNothingIsThere)
{
    Alarm accessor(m_device, "Current", AlarmType::Class1);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    EXPECT_FALSE(accessor.isExistingInCds());
    EXPECT_EQ(accessor.getCValue(), zu::CValue(false));
    // A device settings change detects again and reports what it found.
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Location, "cellar");
    EXPECT_TRUE(waitUntil([&] { return log.count() == 2; }));
    EXPECT_FALSE(log.last().is_valid());
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, DeviceGivenByNameDisappearsAndComesBack)
{
    ValueLog log;
    auto accessor = std::make_unique<Alarm>("meter", "Voltage", AlarmType::Class4);
    accessor->setUpdateCallback(log.callback());
    raise(7, 1);
    ASSERT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));

    store().removeDevice(m_device);
    ASSERT_TRUE(waitUntil([&] { return !accessor->isExistingInCds() && !log.last().is_valid(); }));
    EXPECT_EQ(accessor->getCValue(), zu::CValue(false));
    flush();
    EXPECT_TRUE(watchesObject(Alarm::m_mapChannelAccessorDeviceCreationSubscriber, m_device, accessor.get()));

    store().createDevice("meter", 0, {}, m_device);
    cdsapi::ChannelAlarmSettings alarm;
    alarm.enabled = true;
    const auto channel = store().addChannel(m_device, "Voltage", zu::CValue(231.0f), alarm);
    ASSERT_TRUE(waitUntil([&] { return accessor->isExistingInCds(); }));
    store().raiseAlarm(channel, zu::CAlarmTrigger{7, 1, 0.0f});
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));
    flush();
    EXPECT_FALSE(Alarm::m_mapChannelAccessorDeviceCreationSubscriber.contains(m_device));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, AccessorFoundByNameIsNeverCalledAfterItsDestruction)
{
    ValueLog log;
    auto accessor = std::make_unique<Alarm>("late", "Voltage", AlarmType::Class1);
    accessor->setUpdateCallback(log.callback());
    EXPECT_TRUE(watchesObject(Alarm::m_mapChannelAccessorDeviceCreationSubscriber, g_allOnes, accessor.get()));
    const auto late = store().createDevice("late");
    cdsapi::ChannelAlarmSettings alarm;
    alarm.enabled = true;
    store().addChannel(late, "Voltage", zu::CValue(1.0f), alarm);
    ASSERT_TRUE(waitUntil([&] { return accessor->isExistingInCds(); }));
    flush();
    // The watch made under all ones is released under all ones.
    EXPECT_FALSE(Alarm::m_mapChannelAccessorDeviceCreationSubscriber.contains(g_allOnes));

    accessor.reset();
    const auto callsBefore = log.count();
    for (int i = 0; i < 5; ++i) {
        store().createDevice("late");
    }
    flush();
    EXPECT_EQ(log.count(), callsBefore);
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, DeviceOfASubDevicePathDisappearsAndComesBack)
{
    const auto phase = store().createDevice("phase", m_device);
    cdsapi::ChannelAlarmSettings alarm;
    alarm.enabled = true;
    store().addChannel(phase, "Voltage", zu::CValue(229.0f), alarm);
    Alarm accessor(m_device, {0}, "Voltage", AlarmType::Class1);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    ASSERT_TRUE(accessor.isExistingInCds());

    store().removeDevice(m_device);
    ASSERT_TRUE(waitUntil([&] { return !accessor.isExistingInCds() && !log.last().is_valid(); }));

    // The meter comes back whole, with its sub-device, under its id.
    store().loadSeed(fmt::format(R"({{"devices": [{{"id": {}, "name": "meter", "devices": [{{"name": "phase",
        "channels": [{{"name": "Voltage", "kind": "float", "value": 229.0, "alarm": {{"enabled": true}}}}]}}]}}]}})",
                                 m_device),
                     "meter again");
    ASSERT_TRUE(waitUntil([&] { return accessor.isExistingInCds(); }));
    const auto channel = store().getChannelId(store().getSubDevicesIds(m_device, 1).at(0), "Voltage");
    store().raiseAlarm(channel, zu::CAlarmTrigger{2, 0, 0.0f});
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, OneFailingCallbackLeavesTheOthersTheirAlarm)
{
    Alarm failing(m_device, "Voltage", AlarmType::Class1);
    Alarm healthy(m_device, "Voltage", AlarmType::Class1);
    std::atomic<bool> fail{false};
    failing.setUpdateCallback([&fail](const zu::CValue&) {
        if (fail) {
            throw std::runtime_error("refused");
        }
    });
    ValueLog log;
    healthy.setUpdateCallback(log.callback());
    fail = true;
    raise(1, 0);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));
    EXPECT_TRUE(failing.isExistingInCds());
}

TEST_F(CdsAlarmToOneDiscreteAccessorTest, SubscriptionsAreSharedAndReleasedExactlyOnce)
{
    const auto before = store().subscriptionCount();
    auto first = std::make_unique<Alarm>(m_device, "Voltage", AlarmType::Class1);
    // The channel's alarms and the device's settings.
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    auto second = std::make_unique<Alarm>("meter", "Voltage", AlarmType::Class4);
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    first.reset();
    EXPECT_EQ(store().subscriptionCount(), before + 2);
    second.reset();
    EXPECT_EQ(store().subscriptionCount(), before);
}

} // namespace
} // namespace orv::modbus::cds::test
