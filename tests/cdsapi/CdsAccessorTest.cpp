#include "LogCapture.h"
#include "OneChannelFixture.h"

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

namespace cdsapi::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zu::sub::channel_value_update;
using zu::sub::device_creation;
using zu::sub::device_settings;

class CdsAccessorTest : public OneChannelFixture {
protected:
    CdsAccessorTest()
        : OneChannelFixture("meter", "Counter", zu::CValue(std::uint32_t{0}))
    {
    }
};

// A gate a callback can wait at, with a deadline so that a failing test
// never hangs.
class Gate {
public:
    void open()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_open = true;
        }
        m_changed.notify_all();
    }

    bool waitOpen(std::chrono::milliseconds timeout = 5s)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

TEST_F(CdsAccessorTest, CallbackRunsOnTheNotificationThreadNotOnTheCaller)
{
    watchChannel(channel, channel_value_update);
    client->setChannelCValue(channel, zu::CValue(std::uint32_t{1}));
    store.setChannelCValue(channel, zu::CValue(std::uint32_t{2}));

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_NE(entries[0].thread, std::this_thread::get_id());
    EXPECT_EQ(entries[0].thread, entries[1].thread);
}

TEST_F(CdsAccessorTest, EveryCallbackOfAClientRunsOnItsOneThread)
{
    watchChannel(channel, channel_value_update);
    watchDevice(device, device_settings);
    watchDevice(g_allOnes, device_creation);
    client->setChannelCValue(channel, zu::CValue(std::uint32_t{1}));
    store.setDeviceAttribute(device, DeviceAttribute::Model, "x");
    store.createDevice("other");

    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 3u);
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.thread, entries[0].thread);
    }
}

TEST_F(CdsAccessorTest, EveryChangeArrivesInOrderWhileTheSubscriberKeepsUp)
{
    watchChannel(channel, channel_value_update);
    watchDevice(device, device_settings);
    constexpr std::uint32_t changes = 2000;
    // Far fewer queued at a time than the backlog a client keeps exactly.
    constexpr std::uint32_t burst = 20;
    std::vector<std::string> expected;
    std::vector<std::string> seen;
    for (std::uint32_t i = 1; i <= changes; ++i) {
        if (i % 10 == 0) {
            store.setDeviceAttribute(device, DeviceAttribute::Description, std::to_string(i));
            expected.push_back(text(3, device));
        } else if (i % 2 == 0) {
            client->setChannelCValue(channel, zu::CValue(i));
            expected.push_back(text(15, channel) + "=" + std::to_string(i));
        } else {
            store.setChannelCValue(channel, zu::CValue(i));
            expected.push_back(text(15, channel) + "=" + std::to_string(i));
        }
        if (i % burst == 0) {
            for (const auto& entry : settleEntries()) {
                seen.push_back(entry.value.is_valid() ? entry.text + "=" + entry.value.as_string() : entry.text);
            }
        }
    }
    EXPECT_EQ(seen, expected);
}

// A subscriber far behind the writers: the queue keeps at most one value
// notification per channel subscription beyond its exact backlog, delivers
// in the order of the changes, drops no device notification and ends with
// the last value of every channel.
TEST_F(CdsAccessorTest, BacklogSupersedesQueuedValuesInOrderAndKeepsTheLastOne)
{
    std::vector<std::uint64_t> channels{channel};
    for (int i = 1; i < 4; ++i) {
        channels.push_back(store.addChannel(device, "extra" + std::to_string(i), zu::CValue(std::uint32_t{0})));
    }
    Gate entered;
    Gate release;
    std::uint64_t blockerId = 0;
    const auto blocker = store.addChannel(device, "blocker", zu::CValue(false));
    client->subscribeChannel(
        blocker,
        [&](std::uint64_t, const zu::CValue&) {
            entered.open();
            release.waitOpen();
        },
        channel_value_update, &blockerId);
    for (const auto id : channels) {
        watchChannel(id, channel_value_update);
    }
    watchDevice(device, device_settings);
    store.setChannelCValue(blocker, zu::CValue(true));
    ASSERT_TRUE(entered.waitOpen());

    constexpr std::uint32_t changes = 100'000;
    std::vector<std::string> expected;
    for (std::uint32_t i = 1; i <= changes; ++i) {
        if (i % 1000 == 0) {
            store.setDeviceAttribute(device, DeviceAttribute::Description, std::to_string(i));
            expected.push_back(text(3, device));
        } else {
            const auto id = channels[i % channels.size()];
            store.setChannelCValue(id, zu::CValue(i));
            expected.push_back(text(15, id) + "=" + std::to_string(i));
        }
    }
    release.open();
    std::vector<std::string> seen;
    for (const auto& entry : settleEntries()) {
        seen.push_back(entry.value.is_valid() ? entry.text + "=" + entry.value.as_string() : entry.text);
    }

    const std::size_t deviceChanges = changes / 1000;
    EXPECT_LE(seen.size(), DataStore::g_exactBacklog + channels.size() + deviceChanges);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), text(3, device)), static_cast<long>(deviceChanges));
    // In the order of the changes: a subsequence of them.
    auto next = expected.begin();
    for (const auto& notification : seen) {
        next = std::find(next, expected.end(), notification);
        ASSERT_NE(next, expected.end()) << notification << " out of order or never made";
        ++next;
    }
    const auto lastOf = [](const std::vector<std::string>& notifications, std::uint64_t id) {
        const std::string prefix = text(15, id) + "=";
        const auto last = std::find_if(notifications.rbegin(), notifications.rend(),
                                       [&](const std::string& notification) { return notification.rfind(prefix, 0) == 0; });
        return last == notifications.rend() ? std::string() : *last;
    };
    for (const auto id : channels) {
        EXPECT_EQ(lastOf(seen, id), lastOf(expected, id));
    }
}

TEST_F(CdsAccessorTest, NoCallbackRunsAfterUnsubscribeReturnsEvenWithASlowCallbackRunning)
{
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
    Gate entered;
    Gate release;
    std::uint64_t subscriptionId = 0;
    client->subscribeChannel(
        channel,
        [&](std::uint64_t, const zu::CValue&) {
            ++calls;
            inside = true;
            entered.open();
            release.waitOpen();
            inside = false;
        },
        channel_value_update, &subscriptionId);

    store.setChannelCValue(channel, zu::CValue(std::uint32_t{1}));
    ASSERT_TRUE(entered.waitOpen());
    // Queued behind the running callback; must never be delivered.
    for (std::uint32_t i = 2; i < 10; ++i) {
        store.setChannelCValue(channel, zu::CValue(i));
    }

    std::atomic<bool> returned{false};
    std::atomic<bool> insideAtReturn{true};
    std::thread unsubscriber([&] {
        client->unsubscribe(subscriptionId);
        insideAtReturn = inside.load();
        returned = true;
    });
    // unsubscribe must still be waiting for the running callback.
    EXPECT_FALSE(waitUntil([&] { return returned.load(); }, 100ms));
    release.open();
    unsubscriber.join();

    EXPECT_FALSE(insideAtReturn);
    for (std::uint32_t i = 10; i < 20; ++i) {
        store.setChannelCValue(channel, zu::CValue(i));
    }
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(CdsAccessorTest, ThrowingCallbackIsLoggedAtDebugLevelAndOthersAreStillNotified)
{
    orv::test::LogCapture log;
    std::uint64_t failing = 0;
    client->subscribeChannel(
        channel, [](std::uint64_t, const zu::CValue&) { throw std::runtime_error("subscriber broke"); },
        channel_value_update, &failing);
    watchChannel(channel, channel_value_update);

    store.setChannelCValue(channel, zu::CValue(std::uint32_t{7}));
    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].value, zu::CValue(std::uint32_t{7}));
    EXPECT_TRUE(log.containsAt(spdlog::level::debug,
                               "Notification of subscription " + std::to_string(failing) + " failed: subscriber broke"));
}

TEST_F(CdsAccessorTest, CallbackUnsubscribingItselfDoesNotDeadlock)
{
    std::atomic<int> calls{0};
    std::uint64_t subscriptionId = 0;
    client->subscribeChannel(
        channel,
        [&](std::uint64_t, const zu::CValue&) {
            ++calls;
            client->unsubscribe(subscriptionId);
        },
        channel_value_update, &subscriptionId);

    for (std::uint32_t i = 1; i <= 5; ++i) {
        store.setChannelCValue(channel, zu::CValue(i));
    }
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(CdsAccessorTest, CallbackMaySubscribeANewSubscription)
{
    const auto other = store.addChannel(device, "Other", zu::CValue(0.0f));
    std::atomic<bool> subscribing{false};
    std::atomic<bool> subscribed{false};
    std::uint64_t first = 0;
    client->subscribeChannel(
        channel,
        [&](std::uint64_t, const zu::CValue&) {
            if (!subscribing.exchange(true)) {
                watchChannel(other, channel_value_update);
                // Only now may the test change the other channel: a change
                // made before the subscription is not notified.
                subscribed = true;
            }
        },
        channel_value_update, &first);

    store.setChannelCValue(channel, zu::CValue(std::uint32_t{1}));
    ASSERT_TRUE(waitUntil([&] { return subscribed.load(); }));
    store.setChannelCValue(other, zu::CValue(2.5f));
    const auto entries = settleEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].text, text(15, other));
    EXPECT_EQ(entries[0].value, zu::CValue(2.5f));
}

TEST_F(CdsAccessorTest, SubscribingNeverDependsOnExistence)
{
    watchChannel(0, channel_value_update);
    watchChannel(g_allOnes, channel_value_update);
    watchDevice(0, device_settings);
    watchAlarms(g_allOnes);
    watchChannel(500, channel_value_update);

    const auto later = store.addChannel(device, "Later", zu::CValue(std::int32_t{0}), {}, 500);
    client->setChannelCValue(later, zu::CValue(std::int32_t{9}));
    EXPECT_THAT(settle(), ElementsAre(text(15, 500)));
}

TEST_F(CdsAccessorTest, UnsubscribingAnUnknownIdDoesNothing)
{
    const auto subscriptionId = watchChannel(channel, channel_value_update);
    EXPECT_NO_THROW(client->unsubscribe(0));
    EXPECT_NO_THROW(client->unsubscribe(g_allOnes));
    EXPECT_NO_THROW(client->unsubscribe(subscriptionId + 1000));
    // Another client cannot remove this client's subscription.
    CdsAccessor other("other", true);
    other.unsubscribe(subscriptionId);

    store.setChannelCValue(channel, zu::CValue(std::uint32_t{3}));
    EXPECT_THAT(settle(), ElementsAre(text(15, channel)));

    client->unsubscribe(subscriptionId);
    client->unsubscribe(subscriptionId);
    store.setChannelCValue(channel, zu::CValue(std::uint32_t{4}));
    EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(CdsAccessorTest, SubscriptionIdsAreDistinctAndNeverZero)
{
    const auto a = watchChannel(channel, channel_value_update);
    const auto b = watchChannel(channel, channel_value_update);
    const auto c = watchDevice(device, device_settings);
    EXPECT_NE(a, 0u);
    EXPECT_NE(a, b);
    EXPECT_NE(b, c);
    EXPECT_NE(a, c);
}

TEST_F(CdsAccessorTest, SubscriptionCountFollowsEverySubscribeAndUnsubscribeOfEveryClient)
{
    const auto before = store.subscriptionCount();
    const auto onChannel = watchChannel(channel, channel_value_update);
    const auto onDevice = watchDevice(device, device_settings);
    const auto onAlarms = watchAlarms(channel);
    EXPECT_EQ(store.subscriptionCount(), before + 3);

    client->unsubscribe(onChannel);
    EXPECT_EQ(store.subscriptionCount(), before + 2);
    // Released once: a second unsubscribe and an unknown id change nothing.
    client->unsubscribe(onChannel);
    client->unsubscribe(onAlarms + 1000);
    EXPECT_EQ(store.subscriptionCount(), before + 2);

    {
        CdsAccessor other("other", true);
        std::uint64_t otherId = 0;
        other.subscribeDevice(g_allOnes, [](std::uint64_t) {}, device_creation, false, &otherId);
        EXPECT_EQ(store.subscriptionCount(), before + 3);
    }
    // A client that goes takes its subscriptions along.
    EXPECT_EQ(store.subscriptionCount(), before + 2);

    client->unsubscribe(onDevice);
    client->unsubscribe(onAlarms);
    EXPECT_EQ(store.subscriptionCount(), before);
}

TEST_F(CdsAccessorTest, DataCallsOnAbsentObjectsThrowCdsError)
{
    constexpr std::uint64_t absent = 777;
    const std::map<std::string, std::function<void()>> calls = {
        {"getDevice", [&] { client->getDevice(absent); }},
        {"getSubDevicesIds", [&] { client->getSubDevicesIds(absent, 1); }},
        {"getChannelId", [&] { client->getChannelId(absent, "Counter"); }},
        {"getChannelCValue", [&] { client->getChannelCValue(absent); }},
        {"setChannelCValue", [&] { client->setChannelCValue(absent, zu::CValue(1.0f)); }},
        {"getChannelAlarmEnabled", [&] { client->getChannelAlarmEnabled(absent); }},
        {"setChannelAlarmEnabled", [&] { client->setChannelAlarmEnabled(absent, true); }},
        {"getThreshold", [&] { client->getChannelAlarmTriggerThreshold(absent, TriggerId::Trigger0); }},
        {"setThreshold", [&] { client->setChannelAlarmTriggerThreshold(absent, TriggerId::Trigger0, 1.0f); }},
        {"getThresholdFlag", [&] { client->getChannelAlarmTriggerThreshold(absent); }},
        {"setThresholdFlag", [&] { client->setChannelAlarmTriggerThreshold(absent, true); }},
        {"getHysteresis", [&] { client->getChannelAlarmHysteresis(absent); }},
        {"setHysteresis", [&] { client->setChannelAlarmHysteresis(absent, 1.0f); }},
        {"getLevel", [&] { client->getChannelAlarmLevel(absent); }},
        {"setLevel", [&] { client->setChannelAlarmLevel(absent, LevelAlarm::Warning); }},
        {"getDeviceAttribute", [&] { client->getDeviceAttribute(absent, DeviceAttribute::Model); }},
        {"setDeviceAttribute", [&] { client->setDeviceAttribute(absent, DeviceAttribute::Model, "x", false); }},
        {"getDeviceByName", [&] { client->getDeviceByName("absent"); }},
        // A device id is not a channel id, nor the other way round.
        {"channel call on a device", [&] { client->getChannelCValue(device); }},
        {"device call on a channel", [&] { client->getDevice(channel); }},
    };
    for (const auto& [name, call] : calls) {
        EXPECT_THROW(call(), CdsError) << name;
    }
}

TEST_F(CdsAccessorTest, IdLookupsAnswerZeroOrAllOnesInsteadOfThrowing)
{
    EXPECT_EQ(client->getChannelId(device, "Counter"), channel);
    EXPECT_EQ(client->getChannelId(device, "Missing"), 0u);
    EXPECT_EQ(client->getCatchedChannelId(device, "Counter"), channel);
    EXPECT_EQ(client->getCatchedChannelId(device, "Missing"), g_allOnes);
    EXPECT_EQ(client->getCatchedChannelId(777, "Counter"), g_allOnes);
    EXPECT_EQ(client->getCatchedChannelId(g_allOnes, "Counter"), g_allOnes);
}

TEST_F(CdsAccessorTest, GetDeviceByNameAndGetDevice)
{
    const auto child = store.createDevice("inverter", device);
    EXPECT_EQ(client->getDeviceByName("meter"), device);
    EXPECT_EQ(client->getDeviceByName("inverter"), child);
    EXPECT_EQ(client->getDevice(child), (zu::CDevice{child, "inverter", device}));
    EXPECT_EQ(client->getDevice(device), (zu::CDevice{device, "meter", 0}));
    store.createDevice("meter");
    EXPECT_EQ(client->getDeviceByName("meter"), device); // the lowest id of the namesakes
    EXPECT_THROW(client->getDeviceByName("Meter"), CdsError);
}

TEST_F(CdsAccessorTest, SubDeviceIdsFollowDepthInPreOrder)
{
    const auto a = store.createDevice("a", device);
    const auto a1 = store.createDevice("a1", a);
    const auto a11 = store.createDevice("a11", a1);
    const auto a2 = store.createDevice("a2", a);
    const auto b = store.createDevice("b", device);

    EXPECT_THAT(client->getSubDevicesIds(device, 1), ElementsAre(a, b));
    EXPECT_THAT(client->getSubDevicesIds(device, 2), ElementsAre(a, a1, a2, b));
    EXPECT_THAT(client->getSubDevicesIds(device, INT_MAX), ElementsAre(a, a1, a11, a2, b));
    EXPECT_THAT(client->getSubDevicesIds(device, 0), IsEmpty());
    EXPECT_THAT(client->getSubDevicesIds(device, -1), IsEmpty());
    EXPECT_THAT(client->getSubDevicesIds(b, INT_MAX), IsEmpty());
    EXPECT_THAT(client->getSubDevicesIds(a, 1), ElementsAre(a1, a2));
}

TEST_F(CdsAccessorTest, AlarmSettingsRoundTrip)
{
    EXPECT_FALSE(client->getChannelAlarmEnabled(channel));
    client->setChannelAlarmEnabled(channel, true);
    EXPECT_TRUE(client->getChannelAlarmEnabled(channel));

    const TriggerId triggers[] = {TriggerId::Trigger0, TriggerId::Trigger1, TriggerId::Trigger2, TriggerId::Trigger3};
    for (std::size_t i = 0; i < 4; ++i) {
        client->setChannelAlarmTriggerThreshold(channel, triggers[i], 10.5f + static_cast<float>(i));
    }
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(client->getChannelAlarmTriggerThreshold(channel, triggers[i]), 10.5f + static_cast<float>(i));
    }
    EXPECT_THROW(client->getChannelAlarmTriggerThreshold(channel, TriggerId(4)), CdsError);
    EXPECT_THROW(client->setChannelAlarmTriggerThreshold(channel, TriggerId(4), 1.0f), CdsError);

    EXPECT_FALSE(client->getChannelAlarmTriggerThreshold(channel));
    client->setChannelAlarmTriggerThreshold(channel, true);
    EXPECT_TRUE(client->getChannelAlarmTriggerThreshold(channel));

    client->setChannelAlarmHysteresis(channel, 0.25f);
    EXPECT_EQ(client->getChannelAlarmHysteresis(channel), 0.25f);

    client->setChannelAlarmLevel(channel, LevelAlarm(-12));
    EXPECT_EQ(client->getChannelAlarmLevel(channel), LevelAlarm(-12));
    client->setChannelAlarmLevel(channel, LevelAlarm::Critical);
    EXPECT_EQ(client->getChannelAlarmLevel(channel), LevelAlarm::Critical);

    const auto settings = store.getChannelAlarmSettings(channel);
    EXPECT_TRUE(settings.enabled);
    EXPECT_EQ(settings.thresholds[3], 13.5f);
    EXPECT_TRUE(settings.thresholdEnabled);
}

TEST_F(CdsAccessorTest, DeviceAttributesAreTextsAndUnsetReadsEmpty)
{
    EXPECT_EQ(client->getDeviceAttribute(device, DeviceAttribute::Model), "");
    client->setDeviceAttribute(device, DeviceAttribute::Model, "PX-1", false);
    client->setDeviceAttribute(device, DeviceAttribute(1234), "custom", false);
    EXPECT_EQ(client->getDeviceAttribute(device, DeviceAttribute::Model), "PX-1");
    EXPECT_EQ(client->getDeviceAttribute(device, DeviceAttribute(1234)), "custom");
    EXPECT_EQ(client->getClientName(), "test");
}

TEST_F(CdsAccessorTest, DestroyingAClientWithPendingNotificationsIsClean)
{
    struct Shared {
        std::atomic<int> calls{0};
        std::atomic<bool> finished{false};
        Gate entered;
        Gate release;
    };
    auto shared = std::make_shared<Shared>();
    auto doomed = std::make_unique<CdsAccessor>("doomed", true);
    std::uint64_t subscriptionId = 0;
    doomed->subscribeChannel(
        channel,
        [shared](std::uint64_t, const zu::CValue&) {
            if (++shared->calls == 1) {
                shared->entered.open();
                shared->release.waitOpen(200ms);
            }
            shared->finished = true;
        },
        channel_value_update, &subscriptionId);

    constexpr std::uint32_t writes = 500;
    for (std::uint32_t i = 1; i <= writes; ++i) {
        store.setChannelCValue(channel, zu::CValue(i));
    }
    ASSERT_TRUE(shared->entered.waitOpen());
    doomed.reset(); // waits for the running callback, drops the rest
    EXPECT_TRUE(shared->finished);
    const int callsAtDestruction = shared->calls;
    EXPECT_LT(callsAtDestruction, static_cast<int>(writes));

    for (std::uint32_t i = 1; i <= 10; ++i) {
        store.setChannelCValue(channel, zu::CValue(i));
    }
    settle();
    EXPECT_EQ(shared->calls, callsAtDestruction);
}

TEST_F(CdsAccessorTest, ConcurrentWritersAndSubscribersStayConsistent)
{
    constexpr int writerCount = 4;
    constexpr std::uint32_t writesPerWriter = 300;
    std::vector<std::uint64_t> channels;
    for (int w = 0; w < writerCount; ++w) {
        channels.push_back(store.addChannel(device, "c" + std::to_string(w), zu::CValue(std::uint32_t{0})));
    }

    // Each subscriber client checks that the values of every channel only grow.
    struct Watcher {
        std::mutex mutex;
        std::map<std::uint64_t, std::uint32_t> last;
        std::atomic<int> disorders{0};
        std::unique_ptr<CdsAccessor> client; // last: stopped before what its callbacks use goes
    };
    std::vector<std::unique_ptr<Watcher>> watchers;
    for (int s = 0; s < 2; ++s) {
        auto watcher = std::make_unique<Watcher>();
        watcher->client = std::make_unique<CdsAccessor>("watcher" + std::to_string(s), true);
        for (const auto id : channels) {
            std::uint64_t subscriptionId = 0;
            Watcher* pWatcher = watcher.get();
            watcher->client->subscribeChannel(
                id,
                [pWatcher](std::uint64_t channelId, const zu::CValue& value) {
                    // Reading back from a callback must not deadlock.
                    pWatcher->client->getChannelAlarmEnabled(channelId);
                    const std::lock_guard lock(pWatcher->mutex);
                    if (value.as_uint32() < pWatcher->last[channelId]) {
                        ++pWatcher->disorders;
                    }
                    pWatcher->last[channelId] = value.as_uint32();
                },
                channel_value_update, &subscriptionId);
        }
        watchers.push_back(std::move(watcher));
    }

    std::atomic<bool> stopChurn{false};
    std::thread churn([&] {
        for (int i = 0; i < 2000 && !stopChurn; ++i) {
            const auto id = watchChannel(channels[static_cast<std::size_t>(i) % channels.size()], channel_value_update);
            client->unsubscribe(id);
        }
    });
    std::vector<std::thread> writers;
    for (int w = 0; w < writerCount; ++w) {
        writers.emplace_back([&, w] {
            CdsAccessor writer("writer" + std::to_string(w), true);
            const auto id = channels[static_cast<std::size_t>(w)];
            for (std::uint32_t i = 1; i <= writesPerWriter; ++i) {
                if (i % 2 == 0) {
                    writer.setChannelCValue(id, zu::CValue(i));
                } else {
                    store.setChannelCValue(id, zu::CValue(i));
                }
                store.setChannelAlarmHysteresis(id, static_cast<float>(i));
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    stopChurn = true;
    churn.join();

    for (auto& watcher : watchers) {
        EXPECT_TRUE(waitUntil([&] {
            const std::lock_guard lock(watcher->mutex);
            for (const auto id : channels) {
                if (watcher->last[id] != writesPerWriter) {
                    return false;
                }
            }
            return true;
        }));
        EXPECT_EQ(watcher->disorders, 0);
    }
    for (const auto id : channels) {
        EXPECT_EQ(client->getChannelCValue(id), zu::CValue(writesPerWriter));
    }
    watchers.clear();
}

} // namespace
} // namespace cdsapi::test
