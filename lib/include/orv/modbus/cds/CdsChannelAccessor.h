#pragma once

#include <orv/modbus/cds/CdsChannelDetectionBase.h>
#include <orv/modbus/cds/DataType.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// Binds one property of one data-store channel (its value or one of its
// alarm settings, chosen by DataType) to the conversion accessors. The
// channel is named inside a device given by id, by canonical name, or by id
// plus a path of sub-device indices. The accessor finds the channel at
// construction and finds it again as devices and channels appear, change or
// vanish; every change reaches the one update callback.
//
// Threads: handlers run on the data-store client's notification thread;
// construction, destruction, reads and writes on the callers' threads. No
// lock is held while the data store is called. Detection, and destruction
// from any thread, as CdsDetectionBase describes.
class CdsChannelAccessor : public CdsChannelDetectionBase<CdsChannelAccessor> {
public:
    using SubscriberSets = std::map<std::uint64_t, std::set<CdsChannelAccessor*>>;
    using SubscriptionIds = std::map<std::uint64_t, std::uint64_t>;

    CdsChannelAccessor(std::uint64_t deviceId, const std::string& channelName, DataType type);
    CdsChannelAccessor(const std::string& deviceName, const std::string& channelName, DataType type);
    CdsChannelAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                       const std::string& channelName, DataType type);
    ~CdsChannelAccessor() override;

    void setCValue(const zu::CValue& value) override;
    zu::CValue getCValue() const override;

    // Calls the update callback with `value` when one is set.
    void callbackUpdateChannelValue(const zu::CValue& value);

    // Bookkeeping of the data-store subscriptions, per kind: who watches
    // which object, and the one subscription made for it. Unsubscribing is
    // always safe, also for ids never subscribed.
    static void subscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor);

    // Handlers of the data-store notifications, one per kind. Each works on
    // a copy of the object's watchers (std::out_of_range when there are
    // none).
    static void cdsChannelUpdate(std::uint64_t channelId);
    static void cdsChannelState(std::uint64_t channelId);
    static void cdsChannelSettings(std::uint64_t channelId);
    static void cdsDeviceSettings(std::uint64_t deviceId);

    // Read them only while no accessor is being built, destroyed or notified.
    static SubscriberSets m_mapChannelAccessorChannelUpdateSubscriber;
    static SubscriptionIds m_mapChannelAccessorChannelUpdateSubscriberId;
    static SubscriberSets m_mapChannelAccessorChannelStateSubscriber;
    static SubscriptionIds m_mapChannelAccessorChannelStateSubscriberId;
    static SubscriberSets m_mapChannelAccessorChannelSettingsSubscriber;
    static SubscriptionIds m_mapChannelAccessorChannelSettingsSubscriberId;
    static SubscriberSets m_mapChannelAccessorDeviceSettingsSubscriber;
    static SubscriptionIds m_mapChannelAccessorDeviceSettingsSubscriberId;
    static SubscriberSets m_mapChannelAccessorDeviceCreationSubscriber;
    static SubscriptionIds m_mapChannelAccessorDeviceCreationSubscriberId;

private:
    CdsChannelAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                       const std::vector<unsigned int>& subDevicePath, const std::string& channelName,
                       const std::string& deviceName, DataType type);

    // The channel's kind of watch by data type.
    void watchChannel(std::uint64_t newChannelId) override;
    void unwatchChannel() override;

    DataType m_dataType;
};

} // namespace orv::modbus::cds
