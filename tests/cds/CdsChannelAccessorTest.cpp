// The channel accessor against the in-process data store, with the shared
// client's notification thread delivering the changes.
#include "CdsStoreTest.h"
#include "LogCapture.h"
#include "NamedParameter.h"
#include "ValueLog.h"

#include <orv/modbus/cds/CdsChannelAccessor.h>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <limits>
#include <memory>

namespace orv::modbus::cds::test {
namespace {

constexpr std::uint64_t g_allOnesId = std::numeric_limits<std::uint64_t>::max();

class CdsChannelAccessorTest : public CdsStoreTest {
protected:
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        m_device = store().createDevice("ups");
        m_channel = store().addChannel(m_device, "Voltage", zu::CValue(230.0f));
    }

    std::uint64_t m_device = 0;
    std::uint64_t m_channel = 0;
};

TEST_F(CdsChannelAccessorTest, FindsAChannelOfADeviceGivenById)
{
    Accessor accessor(m_device, "Voltage", DataType::ChannelValue);
    EXPECT_TRUE(accessor.isExistingInCds());
    EXPECT_EQ(accessor.getCValue(), zu::CValue(230.0f));
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelUpdateSubscriber, m_channel, &accessor));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, m_device, &accessor));
    EXPECT_FALSE(watches(Accessor::m_mapChannelAccessorDeviceCreationSubscriber, m_device, &accessor));
}

TEST_F(CdsChannelAccessorTest, ValueKeepsTheChannelsKind)
{
    const auto counter = store().addChannel(m_device, "Counter", zu::CValue(std::uint32_t{7}));
    Accessor accessor(m_device, "Counter", DataType::ChannelValue);
    EXPECT_EQ(accessor.getCValue(), zu::CValue(std::uint32_t{7}));
    accessor.setCValue(zu::CValue(std::uint32_t{8}));
    EXPECT_EQ(store().getChannelCValue(counter), zu::CValue(std::uint32_t{8}));
}

TEST_F(CdsChannelAccessorTest, WritesComeBackAsNotifications)
{
    Accessor accessor(m_device, "Voltage", DataType::ChannelValue);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    accessor.setCValue(zu::CValue(231.5f));
    EXPECT_EQ(store().getChannelCValue(m_channel), zu::CValue(231.5f));
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(231.5f)); }));
    store().setChannelCValue(m_channel, zu::CValue(229.0f));
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(229.0f)); }));
}

class TwoAccessorsOnOneChannel : public CdsChannelAccessorTest, public ::testing::WithParamInterface<bool> {};

TEST_P(TwoAccessorsOnOneChannel, ShareOneValueSubscriptionWhicheverGoesFirst)
{
    const auto& subscribers = Accessor::m_mapChannelAccessorChannelUpdateSubscriber;
    const auto& subscriptions = Accessor::m_mapChannelAccessorChannelUpdateSubscriberId;
    auto first = std::make_unique<Accessor>(m_device, "Voltage", DataType::ChannelValue);
    flush();
    ASSERT_EQ(subscriptions.count(m_channel), 1u);
    const auto subscription = subscriptions.at(m_channel);
    // The second one only joins the first one's subscription.
    auto second = std::make_unique<Accessor>(m_device, "Voltage", DataType::ChannelValue);
    ValueLog firstLog;
    ValueLog secondLog;
    first->setUpdateCallback(firstLog.callback());
    second->setUpdateCallback(secondLog.callback());
    flush();

    ASSERT_EQ(subscribers.at(m_channel).size(), 2u);
    EXPECT_EQ(subscriptions.at(m_channel), subscription);
    // Only the value kind was subscribed for the channel.
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelStateSubscriber.contains(m_channel));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelSettingsSubscriber.contains(m_channel));

    // Both hear a change through the one subscription.
    store().setChannelCValue(m_channel, zu::CValue(1.0f));
    EXPECT_TRUE(waitUntil([&] { return firstLog.lastIs(zu::CValue(1.0f)) && secondLog.lastIs(zu::CValue(1.0f)); }));

    const bool firstGoesFirst = GetParam();
    auto& goesFirst = firstGoesFirst ? first : second;
    auto& staying = firstGoesFirst ? second : first;
    ValueLog& stayingLog = firstGoesFirst ? secondLog : firstLog;
    goesFirst.reset();
    EXPECT_EQ(subscribers.at(m_channel).size(), 1u);
    EXPECT_TRUE(watches(subscribers, m_channel, staying.get()));
    EXPECT_EQ(subscriptions.at(m_channel), subscription);

    // The subscription is still there for the one left.
    store().setChannelCValue(m_channel, zu::CValue(2.0f));
    EXPECT_TRUE(waitUntil([&] { return stayingLog.lastIs(zu::CValue(2.0f)); }));

    staying.reset();
    EXPECT_FALSE(subscribers.contains(m_channel));
    EXPECT_FALSE(subscriptions.contains(m_channel));
}

INSTANTIATE_TEST_SUITE_P(DestructionOrder, TwoAccessorsOnOneChannel, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "FirstGoesFirst" : "SecondGoesFirst"; });

TEST_F(CdsChannelAccessorTest, UnsubscribingWhatWasNeverSubscribedChangesNothing)
{
    Accessor accessor(m_device, "Voltage", DataType::AlarmHysteresis);
    Accessor stranger(m_device, "Missing", DataType::ChannelValue);
    flush();
    const auto settingsBefore = Accessor::m_mapChannelAccessorChannelSettingsSubscriber;
    const auto devicesBefore = Accessor::m_mapChannelAccessorDeviceSettingsSubscriber;
    const auto idsBefore = Accessor::m_mapChannelAccessorDeviceSettingsSubscriberId;

    for (const std::uint64_t id : {std::uint64_t{0}, g_allOnesId, std::uint64_t{987654}, m_channel, m_device}) {
        EXPECT_NO_THROW(Accessor::unsubscribeChannelUpdate(id, &stranger));
        EXPECT_NO_THROW(Accessor::unsubscribeChannelState(id, &stranger));
        EXPECT_NO_THROW(Accessor::unsubscribeChannelSettings(id, &stranger));
        EXPECT_NO_THROW(Accessor::unsubscribeDeviceCreation(id, &accessor));
    }
    EXPECT_NO_THROW(Accessor::unsubscribeDeviceSettings(987654, &accessor));
    EXPECT_EQ(Accessor::m_mapChannelAccessorChannelSettingsSubscriber, settingsBefore);
    EXPECT_EQ(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, devicesBefore);
    EXPECT_EQ(Accessor::m_mapChannelAccessorDeviceSettingsSubscriberId, idsBefore);
    EXPECT_TRUE(accessor.isExistingInCds());
}

TEST_F(CdsChannelAccessorTest, UpdateCallbackIsCalledAtOnceWithTheCurrentValue)
{
    Accessor found(m_device, "Voltage", DataType::ChannelValue);
    ValueLog foundLog;
    found.setUpdateCallback(foundLog.callback());
    ASSERT_EQ(foundLog.count(), 1u);
    EXPECT_EQ(foundLog.last(), zu::CValue(230.0f));

    Accessor missing(m_device, "Missing", DataType::ChannelValue);
    ValueLog missingLog;
    missing.setUpdateCallback(missingLog.callback());
    ASSERT_EQ(missingLog.count(), 1u);
    EXPECT_FALSE(missingLog.last().is_valid());
}

TEST_F(CdsChannelAccessorTest, EmptyUpdateCallbackReplacesTheOldOneAndCallsNothing)
{
    Accessor accessor(m_device, "Voltage", DataType::ChannelValue);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    accessor.setUpdateCallback({});
    EXPECT_EQ(log.count(), 1u);
    store().setChannelCValue(m_channel, zu::CValue(5.0f));
    flush();
    EXPECT_EQ(log.count(), 1u);
    EXPECT_NO_THROW(accessor.callbackUpdateChannelValue(zu::CValue(1.0f)));
}

TEST_F(CdsChannelAccessorTest, UnknownDataTypeReadsNothingAndWritesNothing)
{
    const cdsapi::ChannelAlarmSettings alarm{true, {1.0f, 2.0f, 3.0f, 4.0f}, true, 0.5f, cdsapi::LevelAlarm::Warning};
    store().setChannelAlarmSettings(m_channel, alarm);
    Accessor accessor(m_device, "Voltage", static_cast<DataType>(9));
    EXPECT_FALSE(accessor.getCValue().is_valid());
    accessor.setCValue(zu::CValue(7.0f));
    EXPECT_EQ(store().getChannelCValue(m_channel), zu::CValue(230.0f));
    EXPECT_EQ(store().getChannelAlarmSettings(m_channel), alarm);
}

TEST_F(CdsChannelAccessorTest, DeviceGivenByNameIsWatchedUntilItAppears)
{
    Accessor accessor("late", "Temperature", DataType::ChannelValue);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    EXPECT_FALSE(accessor.isExistingInCds());
    EXPECT_FALSE(accessor.getCValue().is_valid());
    EXPECT_NO_THROW(accessor.setCValue(zu::CValue(1.0f)));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceCreationSubscriber, g_allOnesId, &accessor));
    EXPECT_TRUE(Accessor::m_mapChannelAccessorDeviceCreationSubscriberId.contains(g_allOnesId));

    // The device appears first without the channel: the creation watch goes,
    // the device's settings are watched for the channel.
    const auto late = store().createDevice("late");
    flush();
    EXPECT_FALSE(accessor.isExistingInCds());
    EXPECT_FALSE(Accessor::m_mapChannelAccessorDeviceCreationSubscriber.contains(g_allOnesId));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorDeviceCreationSubscriberId.contains(g_allOnesId));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, late, &accessor));

    const auto channel = store().addChannel(late, "Temperature", zu::CValue(21.5f));
    EXPECT_TRUE(waitUntil([&] { return accessor.isExistingInCds(); }));
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(21.5f)); }));
    EXPECT_EQ(accessor.getCValue(), zu::CValue(21.5f));
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelUpdateSubscriber, channel, &accessor));
}

TEST_F(CdsChannelAccessorTest, AccessorFoundByNameIsNeverCalledAfterItsDestruction)
{
    ValueLog log;
    auto accessor = std::make_unique<Accessor>("late", "Temperature", DataType::ChannelValue);
    accessor->setUpdateCallback(log.callback());
    const auto late = store().createDevice("late");
    store().addChannel(late, "Temperature", zu::CValue(21.5f));
    ASSERT_TRUE(waitUntil([&] { return accessor->isExistingInCds(); }));
    flush();
    // The watch made under all ones is released under all ones, although the
    // device id is known by now.
    EXPECT_FALSE(isKnownUnder(*accessor, g_allOnesId));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorDeviceCreationSubscriber.contains(g_allOnesId));

    const auto* destroyed = accessor.get();
    accessor.reset();
    EXPECT_FALSE(isKnown(destroyed));
    const auto callsBefore = log.count();

    // Creations anywhere must not reach the destroyed accessor (the sanitizer
    // build would report the use after free).
    for (int i = 0; i < 5; ++i) {
        store().createDevice(fmt::format("other{}", i));
    }
    store().createDevice("late");
    flush();
    EXPECT_EQ(log.count(), callsBefore);
}

TEST_F(CdsChannelAccessorTest, SubDevicePathPastTheListIsNotFound)
{
    const auto first = store().createDevice("first", m_device);
    const auto second = store().createDevice("second", m_device);
    store().addChannel(second, "Temperature", zu::CValue(std::int32_t{40}));

    Accessor beyond(m_device, {2}, "Temperature", DataType::ChannelValue);
    Accessor farBeyond(m_device, {7}, "Temperature", DataType::ChannelValue);
    Accessor tooDeep(m_device, {0, 0}, "Temperature", DataType::ChannelValue);
    Accessor inFirst(m_device, {0}, "Temperature", DataType::ChannelValue);
    Accessor inSecond(m_device, {1}, "Temperature", DataType::ChannelValue);

    EXPECT_FALSE(beyond.isExistingInCds());
    EXPECT_FALSE(farBeyond.isExistingInCds());
    EXPECT_FALSE(tooDeep.isExistingInCds());
    EXPECT_FALSE(inFirst.isExistingInCds());
    EXPECT_TRUE(inSecond.isExistingInCds());
    EXPECT_EQ(inSecond.getCValue(), zu::CValue(std::int32_t{40}));
    flush();
    // Not reachable: watched for the creation of the configured device.
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceCreationSubscriber, m_device, &beyond));
    EXPECT_FALSE(isKnownUnder(beyond, first));
    // Reachable device without the channel: its settings are watched.
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, first, &inFirst));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, second, &inSecond));
}

TEST_F(CdsChannelAccessorTest, DeletedChannelMakesEveryAccessorOnItNotFound)
{
    Accessor first(m_device, "Voltage", DataType::ChannelValue);
    Accessor second(m_device, "Voltage", DataType::ChannelValue);
    ValueLog firstLog;
    ValueLog secondLog;
    first.setUpdateCallback(firstLog.callback());
    second.setUpdateCallback(secondLog.callback());

    store().removeChannel(m_channel);
    ASSERT_TRUE(waitUntil([&] { return !first.isExistingInCds() && !second.isExistingInCds(); }));
    ASSERT_TRUE(waitUntil([&] { return firstLog.count() >= 2 && secondLog.count() >= 2; }));
    flush();
    EXPECT_FALSE(firstLog.last().is_valid());
    EXPECT_FALSE(secondLog.last().is_valid());
    EXPECT_FALSE(first.getCValue().is_valid());
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelUpdateSubscriber.contains(m_channel));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelUpdateSubscriberId.contains(m_channel));
    // The device is still there: its settings stay watched for the channel.
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, m_device, &first));
}

TEST_F(CdsChannelAccessorTest, ChannelDeletedAndCreatedAgainIsFoundAgain)
{
    Accessor accessor(m_device, "Voltage", DataType::ChannelValue);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    store().removeChannel(m_channel);
    ASSERT_TRUE(waitUntil([&] { return !accessor.isExistingInCds(); }));

    const auto again = store().addChannel(m_device, "Voltage", zu::CValue(12.5f));
    ASSERT_NE(again, m_channel);
    ASSERT_TRUE(waitUntil([&] { return accessor.isExistingInCds(); }));
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(12.5f)); }));
    store().setChannelCValue(again, zu::CValue(13.0f));
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(13.0f)); }));
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelUpdateSubscriber, again, &accessor));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelUpdateSubscriber.contains(m_channel));
}

TEST_F(CdsChannelAccessorTest, AlarmEnabledWatchFollowsTheChannelIdOfThePreviousDetection)
{
    Accessor accessor(m_device, "Voltage", DataType::AlarmEnabled);
    EXPECT_TRUE(accessor.isExistingInCds());
    flush();
    // First detection: the state watch goes to channel id 0.
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelStateSubscriber, 0, &accessor));
    EXPECT_FALSE(watches(Accessor::m_mapChannelAccessorChannelStateSubscriber, m_channel, &accessor));

    // The next detection uses the id found by the first one.
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Location, "hall");
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelStateSubscriber, m_channel, &accessor));
}

TEST_F(CdsChannelAccessorTest, DeletedChannelFailsTheStateNotification)
{
    Accessor accessor(m_device, "Voltage", DataType::AlarmEnabled);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Location, "hall");
    flush();
    ASSERT_TRUE(isKnownUnder(accessor, m_channel));

    store().setChannelAlarmEnabled(m_channel, true);
    EXPECT_TRUE(waitUntil([&] { return log.lastIs(zu::CValue(true)); }));

    store().removeChannel(m_channel);
    ASSERT_TRUE(waitUntil([&] { return !accessor.isExistingInCds(); }));
    EXPECT_TRUE(waitUntil([&] { return !log.last().is_valid(); }));
    flush();
    EXPECT_FALSE(Accessor::m_mapChannelAccessorChannelStateSubscriber.contains(m_channel));
}

TEST_F(CdsChannelAccessorTest, RemovedDeviceIsFoundAgainWhenCreatedWithItsId)
{
    Accessor accessor(m_device, "Voltage", DataType::ChannelValue);
    store().removeDevice(m_device);
    ASSERT_TRUE(waitUntil([&] { return !accessor.isExistingInCds(); }));
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceCreationSubscriber, m_device, &accessor));
    EXPECT_FALSE(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber.contains(m_device));

    store().createDevice("ups", 0, {}, m_device);
    store().addChannel(m_device, "Voltage", zu::CValue(100.0f));
    ASSERT_TRUE(waitUntil([&] { return accessor.isExistingInCds(); }));
    EXPECT_EQ(accessor.getCValue(), zu::CValue(100.0f));
    flush();
    EXPECT_FALSE(Accessor::m_mapChannelAccessorDeviceCreationSubscriber.contains(m_device));
}

TEST_F(CdsChannelAccessorTest, DestructionReleasesWatchesOfEarlierDevicesToo)
{
    const auto first = store().createDevice("first", m_device);
    const auto second = store().createDevice("second", m_device);
    store().addChannel(first, "Temperature", zu::CValue(1.0f));
    store().addChannel(second, "Temperature", zu::CValue(2.0f));
    auto accessor = std::make_unique<Accessor>(m_device, std::vector<unsigned int>{0}, "Temperature",
                                               DataType::ChannelValue);
    EXPECT_EQ(accessor->getCValue(), zu::CValue(1.0f));

    // With the first sub-device gone, index 0 is the second one. The watch
    // of the earlier device stays until the accessor goes.
    store().removeDevice(first);
    flush();
    ASSERT_TRUE(accessor->isExistingInCds());
    EXPECT_EQ(accessor->getCValue(), zu::CValue(2.0f));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, second, accessor.get()));
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorDeviceSettingsSubscriber, first, accessor.get()));

    const auto* destroyed = accessor.get();
    accessor.reset();
    EXPECT_FALSE(isKnown(destroyed));
}

struct AlarmCase {
    const char* name;
    DataType type;
    zu::CValue initial;
    zu::CValue written;
    cdsapi::ChannelAlarmSettings expected;
};

const cdsapi::ChannelAlarmSettings g_initialAlarm{false, {1.0f, 2.0f, 3.0f, 4.0f}, false, 0.5f,
                                                  cdsapi::LevelAlarm::Warning};

cdsapi::ChannelAlarmSettings changed(const std::function<void(cdsapi::ChannelAlarmSettings&)>& change)
{
    auto settings = g_initialAlarm;
    change(settings);
    return settings;
}

using orv::test::PrintTo;

class AlarmSettingsByDataType : public CdsChannelAccessorTest, public ::testing::WithParamInterface<AlarmCase> {};

TEST_P(AlarmSettingsByDataType, AreReadAndWritten)
{
    const auto& [name, type, initial, written, expected] = GetParam();
    store().setChannelAlarmSettings(m_channel, g_initialAlarm);
    Accessor accessor(m_device, "Voltage", type);
    ValueLog log;
    accessor.setUpdateCallback(log.callback());
    EXPECT_EQ(accessor.getCValue(), initial);
    EXPECT_EQ(log.last(), initial);

    accessor.setCValue(written);
    EXPECT_EQ(store().getChannelAlarmSettings(m_channel), expected);
    EXPECT_EQ(accessor.getCValue(), written);
    if (type != DataType::AlarmEnabled) {
        // The settings notification brings the new value back; the enabled
        // flag's watch only follows the channel from the second detection on.
        EXPECT_TRUE(waitUntil([&] { return log.lastIs(written); }));
    }
}

INSTANTIATE_TEST_SUITE_P(
    EachType, AlarmSettingsByDataType,
    ::testing::Values(
        AlarmCase{"AlarmEnabled", DataType::AlarmEnabled, zu::CValue(false), zu::CValue(true),
                  changed([](auto& s) { s.enabled = true; })},
        AlarmCase{"AlarmTriggerThreshold0", DataType::AlarmTriggerThreshold0, zu::CValue(1.0f), zu::CValue(10.0f),
                  changed([](auto& s) { s.thresholds[0] = 10.0f; })},
        AlarmCase{"AlarmTriggerThreshold1", DataType::AlarmTriggerThreshold1, zu::CValue(2.0f), zu::CValue(11.0f),
                  changed([](auto& s) { s.thresholds[1] = 11.0f; })},
        AlarmCase{"AlarmTriggerThreshold2", DataType::AlarmTriggerThreshold2, zu::CValue(3.0f), zu::CValue(12.0f),
                  changed([](auto& s) { s.thresholds[2] = 12.0f; })},
        AlarmCase{"AlarmTriggerThreshold3", DataType::AlarmTriggerThreshold3, zu::CValue(4.0f), zu::CValue(13.0f),
                  changed([](auto& s) { s.thresholds[3] = 13.0f; })},
        AlarmCase{"AlarmTriggerThresholdEnabled", DataType::AlarmTriggerThresholdEnabled, zu::CValue(false), zu::CValue(true),
                  changed([](auto& s) { s.thresholdEnabled = true; })},
        AlarmCase{"AlarmHysteresis", DataType::AlarmHysteresis, zu::CValue(0.5f), zu::CValue(1.5f),
                  changed([](auto& s) { s.hysteresis = 1.5f; })},
        AlarmCase{"AlarmLevel", DataType::AlarmLevel, zu::CValue(std::int32_t{2}), zu::CValue(std::int32_t{4}),
                  changed([](auto& s) { s.level = cdsapi::LevelAlarm::Critical; })}),
    orv::test::g_byName);

TEST_F(CdsChannelAccessorTest, WritesConvertTheValueToTheSettingsKind)
{
    Accessor level(m_device, "Voltage", DataType::AlarmLevel);
    Accessor hysteresis(m_device, "Voltage", DataType::AlarmHysteresis);
    level.setCValue(zu::CValue(3.7f));
    hysteresis.setCValue(zu::CValue(std::int32_t{2}));
    const auto settings = store().getChannelAlarmSettings(m_channel);
    EXPECT_EQ(settings.level, cdsapi::LevelAlarm::Alarm);
    EXPECT_EQ(settings.hysteresis, 2.0f);
}

TEST_F(CdsChannelAccessorTest, SettingsSubscriptionsAreLogged)
{
    orv::test::LogCapture logs;
    auto accessor = std::make_unique<Accessor>(m_device, "Voltage", DataType::AlarmHysteresis);
    store().setDeviceAttribute(m_device, cdsapi::DeviceAttribute::Location, "hall");
    store().setChannelAlarmHysteresis(m_channel, 2.0f);
    flush();
    accessor.reset();

    const std::string file = "CdsChannelAccessor";
    EXPECT_TRUE(logs.containsFrom("subscribeDeviceSettings with the cannonical name Voltage", file));
    EXPECT_TRUE(logs.containsFrom(fmt::format("subscribeDeviceSettings create subscribe for the deviceId {}", m_device),
                                  file));
    EXPECT_TRUE(logs.containsFrom("subscribeChannelSettings with the cannonical name Voltage", file));
    EXPECT_TRUE(logs.containsFrom(fmt::format("subscribeChannelSettings create subscribe on the channel Id={}", m_channel),
                                  file));
    EXPECT_TRUE(logs.containsFrom(fmt::format("Device settings callback with the device id {}", m_device), file));
    EXPECT_TRUE(logs.containsFrom("cannonical name  Voltage", file));
    EXPECT_TRUE(logs.containsFrom(fmt::format("Channel settings with the channel id {}", m_channel), file));
    EXPECT_TRUE(logs.containsFrom("unsubscribeChannelSettings with the cannonical name Voltage", file));
    EXPECT_TRUE(logs.containsFrom("unsubscribeDeviceSettings with the cannonical name Voltage", file));
    EXPECT_TRUE(logs.containsFrom(fmt::format("unsubscribeDeviceSettings remove subscribe for the deviceId {}", m_device),
                                  file));
}

} // namespace
} // namespace orv::modbus::cds::test
