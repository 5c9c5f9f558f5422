#pragma once
// Fixture for tests against the real in-process data store and the shared
// data-store client with its notification thread.
//
// Each test starts with an empty store plus one "fence" channel watched
// through the shared client: flush() writes to it and waits until that
// write's notification has been delivered, so that every notification queued
// before has been handled too (one thread delivers them in order). Each test
// must leave the bookkeeping of the channel, device and alarm accessors empty,
// and the store with the subscriptions it had at the start.

#include "WaitUntil.h"

#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <cdsapi/DataStore.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace orv::modbus::cds::test {

using orv::test::waitUntil;

class CdsStoreTest : public ::testing::Test {
protected:
    using Accessor = CdsChannelAccessor;

    void SetUp() override
    {
        store().clear();
        const auto fenceDevice = store().createDevice("fence");
        m_fenceChannel = store().addChannel(fenceDevice, "fence", zu::CValue(std::uint32_t{0}));
        CdsInBandAccessor::getInstance().subscribeChannel(
            m_fenceChannel,
            [this](std::uint64_t, const zu::CValue& value) { m_fenceSeen = value.as_uint32(); },
            zu::sub::channel_value_update, &m_fenceSubscription);
        m_subscriptionsAtStart = store().subscriptionCount();
    }

    void TearDown() override
    {
        flush();
        EXPECT_EQ(store().subscriptionCount(), m_subscriptionsAtStart) << "a data-store subscription was left";
        CdsInBandAccessor::getInstance().unsubscribe(m_fenceSubscription);
        EXPECT_TRUE(bookkeepingIsEmpty()) << "an accessor was left in the subscription bookkeeping";
        store().clear();
    }

    static cdsapi::DataStore& store()
    {
        return cdsapi::DataStore::instance();
    }

    // Waits until every notification queued so far has been delivered.
    void flush()
    {
        const auto mark = ++m_fenceWritten;
        store().setChannelCValue(m_fenceChannel, zu::CValue(mark));
        ASSERT_TRUE(waitUntil([&] { return m_fenceSeen.load() == mark; }));
    }

    static bool watches(const Accessor::SubscriberSets& sets, std::uint64_t objectId, const Accessor* accessor)
    {
        const auto set = sets.find(objectId);
        return set != sets.end() && set->second.contains(const_cast<Accessor*>(accessor));
    }

    // Whether the accessor appears anywhere in the bookkeeping.
    static bool isKnown(const Accessor* accessor)
    {
        for (const auto* sets : allSubscriberSets()) {
            for (const auto& [objectId, accessors] : *sets) {
                if (accessors.contains(const_cast<Accessor*>(accessor))) {
                    return true;
                }
            }
        }
        return false;
    }

    // Whether the accessor watches `objectId` for any kind of change.
    static bool isKnownUnder(const Accessor& accessor, std::uint64_t objectId)
    {
        for (const auto* sets : allSubscriberSets()) {
            if (watches(*sets, objectId, &accessor)) {
                return true;
            }
        }
        return false;
    }

    static bool bookkeepingIsEmpty()
    {
        for (const auto* sets : allSubscriberSets()) {
            if (!sets->empty()) {
                return false;
            }
        }
        using Alarm = CdsAlarmToOneDiscreteAccessor;
        using Device = CdsDeviceAccessor;
        return allEmpty(Accessor::m_mapChannelAccessorChannelUpdateSubscriberId,
                        Accessor::m_mapChannelAccessorChannelStateSubscriberId,
                        Accessor::m_mapChannelAccessorChannelSettingsSubscriberId,
                        Accessor::m_mapChannelAccessorDeviceSettingsSubscriberId,
                        Accessor::m_mapChannelAccessorDeviceCreationSubscriberId,
                        Device::m_mapDeviceAccessorDeviceSubscriber, Device::m_mapDeviceAccessorDeviceSubscriberId,
                        Device::m_mapDeviceAccessorDeviceSettingsSubscriber,
                        Device::m_mapDeviceAccessorDeviceSettingsSubscriberId,
                        Device::m_mapDeviceAccessorDeviceCreationSubscriber,
                        Device::m_mapDeviceAccessorDeviceCreationSubscriberId,
                        Alarm::m_mapChannelAccessorChannelAlarmSubscriber,
                        Alarm::m_mapChannelAccessorChannelAlarmSubscriberId,
                        Alarm::m_mapChannelAccessorDeviceSettingsSubscriber,
                        Alarm::m_mapChannelAccessorDeviceSettingsSubscriberId,
                        Alarm::m_mapChannelAccessorDeviceCreationSubscriber,
                        Alarm::m_mapChannelAccessorDeviceCreationSubscriberId);
    }

    static bool allEmpty(const auto&... maps)
    {
        return (maps.empty() && ...);
    }

    static std::array<const Accessor::SubscriberSets*, 5> allSubscriberSets()
    {
        return {&Accessor::m_mapChannelAccessorChannelUpdateSubscriber,
                &Accessor::m_mapChannelAccessorChannelStateSubscriber,
                &Accessor::m_mapChannelAccessorChannelSettingsSubscriber,
                &Accessor::m_mapChannelAccessorDeviceSettingsSubscriber,
                &Accessor::m_mapChannelAccessorDeviceCreationSubscriber};
    }

private:
    std::uint64_t m_fenceChannel = 0;
    std::uint64_t m_fenceSubscription = 0;
    std::uint32_t m_fenceWritten = 0;
    std::size_t m_subscriptionsAtStart = 0;
    std::atomic<std::uint32_t> m_fenceSeen{0};
};

} // namespace orv::modbus::cds::test
