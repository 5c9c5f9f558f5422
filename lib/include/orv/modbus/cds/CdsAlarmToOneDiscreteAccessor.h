#pragma once

#include <orv/modbus/cds/AlarmType.h>
#include <orv/modbus/cds/CdsChannelDetectionBase.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// The alarm state of one data-store channel as one yes/no value, for a
// discrete of a Modbus map: whether the channel's alarm is of the kind the
// AlarmType chooses. Read-only. The channel is found exactly as
// CdsChannelAccessor finds it (device by id, by canonical name, or by id
// plus a sub-device path) and followed through the channel's alarm
// notifications.
//
// getCValue() is always a bool: false while the channel is not found or its
// alarm is disabled. The update callback hears an empty value when a
// detection finds nothing, as every data-store accessor's does.
//
// Threads and destruction as CdsDetectionBase describes.
class CdsAlarmToOneDiscreteAccessor : public CdsChannelDetectionBase<CdsAlarmToOneDiscreteAccessor> {
public:
    using SubscriberSets = std::map<std::uint64_t, std::set<CdsAlarmToOneDiscreteAccessor*>>;
    using SubscriptionIds = std::map<std::uint64_t, std::uint64_t>;

    CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, const std::string& channelName, AlarmType type);
    CdsAlarmToOneDiscreteAccessor(const std::string& deviceName, const std::string& channelName, AlarmType type);
    CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                                  const std::string& channelName, AlarmType type);
    ~CdsAlarmToOneDiscreteAccessor() override;

    // Alarms are not written through this accessor: the value is ignored.
    void setCValue(const zu::CValue& value) override;
    zu::CValue getCValue() const override;

    // Calls the update callback with `value` when one is set.
    void callbackUpdateChannelValue(const zu::CValue& value);

    // Bookkeeping of the data-store subscriptions, per kind (see
    // CdsChannelAccessor). Unsubscribing is always safe.
    static void subscribeChannelAlarm(std::uint64_t channelId, CdsAlarmToOneDiscreteAccessor* accessor);
    static void subscribeDeviceSettings(std::uint64_t deviceId, CdsAlarmToOneDiscreteAccessor* accessor);
    static void unsubscribeChannelAlarm(std::uint64_t channelId, CdsAlarmToOneDiscreteAccessor* accessor);
    static void unsubscribeDeviceSettings(std::uint64_t deviceId, CdsAlarmToOneDiscreteAccessor* accessor);

    // Handlers of the data-store notifications, one per kind, each on a copy
    // of the object's watchers (std::out_of_range when there are none).
    static void cdsChannelAlarm(std::uint64_t channelId);
    static void cdsDeviceSettings(std::uint64_t deviceId);

    // The names carry "ChannelAccessor", as map tools know them. Read them
    // only while no accessor is being built, destroyed or notified.
    static SubscriberSets m_mapChannelAccessorChannelAlarmSubscriber;
    static SubscriptionIds m_mapChannelAccessorChannelAlarmSubscriberId;
    static SubscriberSets m_mapChannelAccessorDeviceSettingsSubscriber;
    static SubscriptionIds m_mapChannelAccessorDeviceSettingsSubscriberId;
    static SubscriberSets m_mapChannelAccessorDeviceCreationSubscriber;
    static SubscriptionIds m_mapChannelAccessorDeviceCreationSubscriberId;

private:
    CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                  const std::vector<unsigned int>& subDevicePath, const std::string& channelName,
                                  const std::string& deviceName, AlarmType type);

    // Whatever the alarm type, a found channel's alarms are watched.
    void watchChannel(std::uint64_t newChannelId) override;
    void unwatchChannel() override;

    bool matchesMostCriticalAlarm() const;

    AlarmType m_alarmType;
};

} // namespace orv::modbus::cds
