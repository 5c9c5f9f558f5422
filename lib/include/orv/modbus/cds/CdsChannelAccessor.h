#pragma once

#include <orv/modbus/cds/CdsDataAccessor.h>
#include <orv/modbus/cds/DataType.h>
#include <orv/modbus/cds/SubscriberWalks.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
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
// lock is held while the data store is called.
//
// Destruction is safe from any thread, the notification thread included: an
// accessor may be destroyed by a callback, its own or another accessor's
// (a plug-in tearing down a group of entries, a map destroyed from a
// notification). Destroyed on another thread, it waits for a running handler
// to finish; destroyed inside a handler, it is skipped by the rest of that
// handler's walk. Either way it is never called again (see SubscriberWalks).
// One accessor whose detection or callback fails never keeps the others of
// the same object from theirs.
class CdsChannelAccessor : public CdsDataAccessor {
public:
    using SubscriberSets = std::map<std::uint64_t, std::set<CdsChannelAccessor*>>;
    using SubscriptionIds = std::map<std::uint64_t, std::uint64_t>;

    CdsChannelAccessor(std::uint64_t deviceId, const std::string& channelName, DataType type);
    CdsChannelAccessor(const std::string& deviceName, const std::string& channelName, DataType type);
    CdsChannelAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                       const std::string& channelName, DataType type);
    ~CdsChannelAccessor() override;

    CdsChannelAccessor(const CdsChannelAccessor&) = delete;
    CdsChannelAccessor& operator=(const CdsChannelAccessor&) = delete;

    void setCValue(const zu::CValue& value) override;
    zu::CValue getCValue() const override;
    bool isExistingInCds() const override;
    void setUpdateCallback(std::function<void(const zu::CValue&)> callback) override;

    // Calls the update callback with `value` when one is set.
    void callbackUpdateChannelValue(const zu::CValue& value);

    // The device and channel this accessor binds, for log lines.
    std::string describe() const;

    // Bookkeeping of the data-store subscriptions, per kind: who watches
    // which object, and the one subscription made for it. Unsubscribing is
    // always safe, also for ids never subscribed.
    static void subscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void subscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor);
    static void subscribeDeviceCreation(std::uint64_t deviceId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor);
    static void unsubscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor);
    static void unsubscribeDeviceCreation(std::uint64_t deviceId, CdsChannelAccessor* accessor);

    // Handlers of the data-store notifications, one per kind. Each works on
    // a copy of the object's watchers (std::out_of_range when there are
    // none).
    static void cdsChannelUpdate(std::uint64_t channelId);
    static void cdsChannelState(std::uint64_t channelId);
    static void cdsChannelSettings(std::uint64_t channelId);
    static void cdsDeviceSettings(std::uint64_t deviceId);
    static void cdsDeviceCreation(std::uint64_t deviceId);

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

    // Runs detectChannel(), or, when a detection of this accessor is already
    // running on another thread, makes that one run once more.
    void requestDetection();
    void detectChannel();
    // Steps of the detection: the device the channel lives in (following
    // the sub-device path), or nothing when it cannot be reached.
    std::optional<std::uint64_t> locateDevice();
    std::uint64_t lookUpChannel() const;
    void subscribeChannel(std::uint64_t newChannelId);
    void releaseChannelSubscription();
    void watchDeviceCreation();
    void stopWatchingDeviceCreation();

    using Walk = SubscriberWalks<CdsChannelAccessor>::Walk;

    // Runs after a detection, as the last use of this accessor: the callback
    // may destroy it.
    void reportDetection();
    std::function<void(const zu::CValue&)> updateCallback() const;

    static void redetect(Walk& walk);

    std::uint64_t m_deviceId;
    std::uint64_t m_resolvedDeviceId;
    std::vector<unsigned int> m_subDevicePath;
    std::string m_channelName;
    std::string m_deviceName;
    DataType m_dataType;
    std::atomic<bool> m_found{false};
    std::atomic<std::uint64_t> m_channelId{0};
    std::function<void(const zu::CValue&)> m_updateCallback;
    mutable std::mutex m_callbackMutex;
    // The id the device-creation watch was made under. It is released under
    // that id, even after the device id has changed (a device given by name
    // is watched under all ones until its id is known).
    std::optional<std::uint64_t> m_creationWatchId;
    // Detection requests not yet served; see requestDetection().
    std::atomic<unsigned> m_detectionRequests{0};
};

} // namespace orv::modbus::cds
