#include "OneChannelFixture.h"

#include <cdsapi/DataStore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace cdsapi::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zu::sub::channel_settings;
using zu::sub::channel_state;
using zu::sub::channel_value_update;
using zu::sub::device_creation;
using zu::sub::device_settings;

class DataStoreTest : public OneChannelFixture {
protected:
    DataStoreTest()
        : OneChannelFixture("meter", "Voltage", zu::CValue(230.0f))
    {
    }

    // Watches every kind of change of the test channel and its device.
    void watchAll()
    {
        watchChannel(channel, channel_value_update);
        watchChannel(channel, channel_state);
        watchChannel(channel, channel_settings);
        watchAlarms(channel);
        watchDevice(device, device_settings);
        watchDevice(device, device_creation);
    }
};

TEST_F(DataStoreTest, ChannelValueSetNotifiesValueUpdateOfTheChannel)
{
    watchAll();
    store.setChannelCValue(channel, zu::CValue(231.5f));
    client->setChannelCValue(channel, zu::CValue(232.5f));

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].text, text(15, channel));
    EXPECT_EQ(entries[0].value, zu::CValue(231.5f));
    EXPECT_EQ(entries[1].text, text(15, channel));
    EXPECT_EQ(entries[1].value, zu::CValue(232.5f));
}

TEST_F(DataStoreTest, AlarmEnabledOrDisabledNotifiesStateAndDeviceAlarms)
{
    watchAll();
    client->setChannelAlarmEnabled(channel, true);
    store.setChannelAlarmEnabled(channel, false);

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].text, text(5, channel));
    EXPECT_EQ(entries[1].text, alarmText(channel));
    EXPECT_TRUE(entries[1].alarm.active);
    EXPECT_EQ(entries[1].alarm.channelId, channel);
    EXPECT_EQ(entries[2].text, text(5, channel));
    EXPECT_EQ(entries[3].text, alarmText(channel));
    EXPECT_FALSE(entries[3].alarm.active);
}

TEST_F(DataStoreTest, OtherAlarmSettingsNotifyChannelSettings)
{
    watchAll();
    client->setChannelAlarmTriggerThreshold(channel, TriggerId::Trigger2, 12.5f);
    client->setChannelAlarmTriggerThreshold(channel, true);
    client->setChannelAlarmHysteresis(channel, 0.5f);
    client->setChannelAlarmLevel(channel, LevelAlarm::Critical);

    const std::string settings = text(2, channel);
    EXPECT_THAT(settle(), ElementsAre(settings, settings, settings, settings));
}

TEST_F(DataStoreTest, BulkAlarmSettingsNotifyOnlyWhatChanged)
{
    watchAll();
    ChannelAlarmSettings alarm;
    alarm.hysteresis = 2.0f;
    store.setChannelAlarmSettings(channel, alarm);
    EXPECT_THAT(settle(), ElementsAre(text(2, channel)));

    alarm.enabled = true;
    store.setChannelAlarmSettings(channel, alarm);
    EXPECT_THAT(settle(), ElementsAre(text(5, channel), alarmText(channel)));

    store.setChannelAlarmSettings(channel, alarm);
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(store.getChannelAlarmSettings(channel), alarm);
}

TEST_F(DataStoreTest, AlarmRaisedOrClearedNotifiesDeviceAlarmsOfTheChannel)
{
    watchAll();
    const zu::CAlarmTrigger trigger{7, 1, 3.5f};
    store.raiseAlarm(channel, trigger);
    store.clearAlarm(channel, zu::CAlarmTrigger{7, 0, 0.0f});
    store.clearAlarm(channel, zu::CAlarmTrigger{7, 0, 0.0f}); // not raised any more: no change

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].text, alarmText(channel));
    EXPECT_EQ(entries[0].alarm, (zu::CAlarmUpdate{channel, trigger, true}));
    EXPECT_EQ(entries[1].text, alarmText(channel));
    EXPECT_EQ(entries[1].alarm, (zu::CAlarmUpdate{channel, trigger, false}));
}

TEST_F(DataStoreTest, DeviceAttributeSetNotifiesDeviceSettings)
{
    watchAll();
    store.setDeviceAttribute(device, DeviceAttribute::Model, "M1");
    client->setDeviceAttribute(device, DeviceAttribute::Location, "hall", false);
    EXPECT_THAT(settle(), ElementsAre(text(3, device), text(3, device)));
}

TEST_F(DataStoreTest, ChannelOrSubDeviceAddedOrRemovedNotifiesDeviceSettings)
{
    watchAll();
    const auto added = store.addChannel(device, "Current", zu::CValue(1.0f));
    EXPECT_THAT(settle(), ElementsAre(text(3, device)));

    const auto subDevice = store.createDevice("phase1", device);
    EXPECT_THAT(settle(), ElementsAre(text(3, device)));

    store.removeDevice(subDevice);
    EXPECT_THAT(settle(), ElementsAre(text(3, device)));

    store.removeChannel(added);
    EXPECT_THAT(settle(), ElementsAre(text(3, device)));
}

TEST_F(DataStoreTest, ChannelRemovedNotifiesValueAndStateThenItsDevice)
{
    watchAll();
    std::vector<std::string> readFailures;
    std::mutex readMutex;
    std::uint64_t subscriptionId = 0;
    client->subscribeChannel(
        channel,
        [&](std::uint64_t id, const zu::CValue&) {
            try {
                client->getChannelCValue(id);
            } catch (const CdsError& error) {
                const std::lock_guard lock(readMutex);
                readFailures.push_back(error.what());
            }
        },
        channel_value_update, &subscriptionId);

    store.removeChannel(channel);

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].text, text(15, channel));
    EXPECT_FALSE(entries[0].value.is_valid());
    EXPECT_EQ(entries[1].text, text(5, channel));
    EXPECT_FALSE(entries[1].value.is_valid());
    EXPECT_EQ(entries[2].text, text(3, device));
    const std::lock_guard lock(readMutex);
    EXPECT_EQ(readFailures.size(), 1u);
}

TEST_F(DataStoreTest, DeviceCreatedNotifiesCreationOnItsIdAndOnAllOnes)
{
    watchDevice(g_allOnes, device_creation);
    watchDevice(50, device_creation);
    watchDevice(50, device_settings);

    const auto created = store.createDevice("ups", 0, {}, 50);
    ASSERT_EQ(created, 50u);
    // The all-ones watch learns which device appeared.
    EXPECT_THAT(settle(), ElementsAre(text(13, 50), text(13, 50)));
}

TEST_F(DataStoreTest, DeviceRemovedNotifiesItAndItsParent)
{
    const auto child = store.createDevice("child", device);
    watchDevice(child, device_settings);
    watchDevice(device, device_settings);
    store.removeDevice(child);
    EXPECT_THAT(settle(), ElementsAre(text(3, child), text(3, device)));
    EXPECT_THROW(store.getDevice(child), CdsError);
}

TEST_F(DataStoreTest, DeviceRemovedTakesItsChannelsAndSubDevicesAlong)
{
    const auto child = store.createDevice("child", device);
    const auto childChannel = store.addChannel(child, "Power", zu::CValue(std::int32_t{5}));
    watchChannel(childChannel, channel_value_update);
    watchChannel(channel, channel_value_update);
    watchDevice(child, device_settings);
    watchDevice(device, device_settings);

    store.removeDevice(device);

    EXPECT_THAT(settle(), ElementsAre(text(15, childChannel), text(3, child), text(15, channel), text(3, device)));
    EXPECT_THROW(store.getChannelCValue(childChannel), CdsError);
    EXPECT_THROW(store.getChannelCValue(channel), CdsError);
    EXPECT_THROW(store.getDevice(child), CdsError);
}

TEST_F(DataStoreTest, RecursiveDeviceSubscriptionSeesDescendants)
{
    const auto child = store.createDevice("child", device);
    const auto grandChild = store.createDevice("grandchild", child);
    watchDevice(device, device_settings, true);

    store.setDeviceAttribute(grandChild, DeviceAttribute::Model, "G");
    store.setDeviceAttribute(device, DeviceAttribute::Model, "D");
    EXPECT_THAT(settle(), ElementsAre(text(3, grandChild), text(3, device)));
}

TEST_F(DataStoreTest, NonRecursiveDeviceSubscriptionIgnoresDescendants)
{
    const auto child = store.createDevice("child", device);
    watchDevice(device, device_settings, false);
    store.setDeviceAttribute(child, DeviceAttribute::Model, "C");
    EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(DataStoreTest, ClientWriteOfTheSameValueStillNotifies)
{
    watchChannel(channel, channel_value_update);
    client->setChannelCValue(channel, zu::CValue(230.0f));
    client->setChannelCValue(channel, zu::CValue(230.0f));
    EXPECT_THAT(settle(), ElementsAre(text(15, channel), text(15, channel)));
}

TEST_F(DataStoreTest, AttributeWrittenOnlyIfChangedIsNotEchoed)
{
    watchDevice(device, device_settings);
    client->setDeviceAttribute(device, DeviceAttribute::Model, "", true);
    client->setDeviceAttribute(device, DeviceAttribute::Model, "A", true);
    client->setDeviceAttribute(device, DeviceAttribute::Model, "A", true);
    client->setDeviceAttribute(device, DeviceAttribute::Model, "A", false);
    EXPECT_THAT(settle(), ElementsAre(text(3, device), text(3, device)));
    EXPECT_EQ(client->getDeviceAttribute(device, DeviceAttribute::Model), "A");
}

TEST_F(DataStoreTest, WriteOfAnotherKindIsConvertedToTheChannelsKind)
{
    const auto counter = store.addChannel(device, "Counter", zu::CValue(std::uint32_t{0}));
    const auto label = store.addChannel(device, "Label", zu::CValue("x"));
    const auto flag = store.addChannel(device, "Flag", zu::CValue(false));

    client->setChannelCValue(counter, zu::CValue("42"));
    client->setChannelCValue(label, zu::CValue(1.5f));
    client->setChannelCValue(flag, zu::CValue(std::int32_t{3}));
    client->setChannelCValue(channel, zu::CValue(std::int32_t{-7}));

    EXPECT_EQ(client->getChannelCValue(counter), zu::CValue(std::uint32_t{42}));
    EXPECT_EQ(client->getChannelCValue(label), zu::CValue("1.5"));
    EXPECT_EQ(client->getChannelCValue(flag), zu::CValue(true));
    EXPECT_EQ(client->getChannelCValue(channel), zu::CValue(-7.0f));
}

TEST_F(DataStoreTest, IdsAreAllocatedFromOneUpwardAndClearRestarts)
{
    store.clear();
    EXPECT_EQ(store.createDevice("a"), 1u);
    EXPECT_EQ(store.addChannel(1, "c", zu::CValue(true)), 2u);
    EXPECT_EQ(store.createDevice("b", 0, {}, 3), 3u);
    EXPECT_EQ(store.createDevice("c"), 4u);
    store.clear();
    EXPECT_THAT(store.getRootDevicesIds(), IsEmpty());
    EXPECT_EQ(store.createDevice("d"), 1u);
}

TEST_F(DataStoreTest, ReservedOrUsedIdsAndBadArgumentsAreRefused)
{
    EXPECT_THROW(store.createDevice("x", 0, {}, 0 + g_allOnes), std::invalid_argument);
    EXPECT_THROW(store.createDevice("x", 0, {}, device), std::invalid_argument);
    EXPECT_THROW(store.addChannel(device, "x", zu::CValue(1.0f), {}, channel), std::invalid_argument);
    EXPECT_THROW(store.createDevice(""), std::invalid_argument);
    EXPECT_THROW(store.addChannel(device, "Voltage", zu::CValue(1.0f)), std::invalid_argument);
    EXPECT_THROW(store.addChannel(device, "NoKind", zu::CValue()), std::invalid_argument);
    EXPECT_THROW(store.createDevice("orphan", 999), CdsError);
    EXPECT_THROW(store.addChannel(999, "x", zu::CValue(1.0f)), CdsError);
}

TEST_F(DataStoreTest, EnumerationOfTheTree)
{
    const auto second = store.addChannel(device, "Current", zu::CValue(1.0f));
    EXPECT_THAT(store.getChannelsIds(device), ElementsAre(channel, second));
    EXPECT_EQ(store.getChannel(second), (ChannelInfo{second, device, "Current"}));
    const auto roots = store.getRootDevicesIds();
    ASSERT_EQ(roots.size(), 2u); // the fixture's marker device, then ours
    EXPECT_EQ(roots[1], device);
    EXPECT_THROW(store.getChannel(device), CdsError);
}

} // namespace
} // namespace cdsapi::test
