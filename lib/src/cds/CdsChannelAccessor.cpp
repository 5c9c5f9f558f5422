#include <orv/modbus/cds/CdsChannelAccessor.h>

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"
#include "DataStoreSubscriptions.h"
#include "DeviceCreationBook.h"
#include "ServerLogger.h"
#include "SubscriptionBook.h"

#include <limits>

namespace orv::modbus::cds {

CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriberId;

namespace {

using Book = SubscriptionBook<CdsChannelAccessor>;
constexpr std::uint64_t g_allOnes = std::numeric_limits<std::uint64_t>::max();

Book g_channelUpdateBook{CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriber,
                         CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriberId};
Book g_channelStateBook{CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriber,
                        CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriberId};
Book g_channelSettingsBook{CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriber,
                           CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriberId};
Book g_deviceSettingsBook{CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriber,
                          CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriberId};
Book g_deviceCreationBook{CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriber,
                          CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriberId};

cdsapi::InBandAccessor& inBand()
{
    return CdsInBandAccessor::getInstance();
}

cdsapi::TriggerId triggerOf(DataType type)
{
    return static_cast<cdsapi::TriggerId>(static_cast<std::uint32_t>(type) -
                                          static_cast<std::uint32_t>(DataType::AlarmTriggerThreshold0));
}

} // namespace

template <>
SubscriptionBook<CdsChannelAccessor>& deviceCreationBook<CdsChannelAccessor>()
{
    return g_deviceCreationBook;
}

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, const std::string& channelName, DataType type)
    : CdsChannelAccessor(deviceId, 0, {}, channelName, "", type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(const std::string& deviceName, const std::string& channelName,
                                       DataType type)
    : CdsChannelAccessor(g_allOnes, g_allOnes, {}, channelName, deviceName, type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                                       const std::string& channelName, DataType type)
    : CdsChannelAccessor(deviceId, g_allOnes, subDevicePath, channelName, "", type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                       const std::vector<unsigned int>& subDevicePath,
                                       const std::string& channelName, const std::string& deviceName,
                                       DataType type)
    : CdsChannelDetectionBase(deviceId, resolvedDeviceId, subDevicePath, channelName, deviceName)
    , m_dataType(type)
{
}

CdsChannelAccessor::~CdsChannelAccessor()
{
    try {
        // Out of the walks first: until then a handler on the notification
        // thread may still be detecting this accessor again.
        const auto unused = leaveBookkeeping(m_walks,
                                             {&g_channelUpdateBook, &g_channelStateBook, &g_channelSettingsBook,
                                              &g_deviceCreationBook, &g_deviceSettingsBook},
                                             this);
        if (m_channelId != 0 && m_dataType > DataType::AlarmEnabled) {
            SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeChannelSettings with the cannonical name {}", m_channelName);
        }
        if (m_resolvedDeviceId != 0) {
            SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings with the cannonical name {}", m_channelName);
        }
        for (const auto& [deviceId, subscriptionId] : unused.back()) {
            SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings remove subscribe for the deviceId {}",
                                deviceId);
        }
        releaseUnused<CdsChannelAccessor>(unused);
    } catch (...) {
        // Nothing may leave a destructor.
        CaughtFailures::log("Leaving the subscriptions of a channel accessor", ORV_SOURCE_HERE);
    }
}

void CdsChannelAccessor::setCValue(const zu::CValue& value)
{
    if (!m_found) {
        return;
    }
    const auto channelId = m_channelId.load();
    auto& cds = inBand();
    switch (m_dataType) {
    case DataType::ChannelValue:
        cds.setChannelCValue(channelId, value);
        break;
    case DataType::AlarmEnabled:
        cds.setChannelAlarmEnabled(channelId, value.as_bool());
        break;
    case DataType::AlarmTriggerThreshold0:
    case DataType::AlarmTriggerThreshold1:
    case DataType::AlarmTriggerThreshold2:
    case DataType::AlarmTriggerThreshold3:
        cds.setChannelAlarmTriggerThreshold(channelId, triggerOf(m_dataType), value.as_float());
        break;
    case DataType::AlarmTriggerThresholdEnabled:
        cds.setChannelAlarmTriggerThreshold(channelId, value.as_bool());
        break;
    case DataType::AlarmHysteresis:
        cds.setChannelAlarmHysteresis(channelId, value.as_float());
        break;
    case DataType::AlarmLevel:
        cds.setChannelAlarmLevel(channelId, static_cast<cdsapi::LevelAlarm>(value.as_int32()));
        break;
    }
}

zu::CValue CdsChannelAccessor::getCValue() const
{
    if (!m_found) {
        return {};
    }
    const auto channelId = m_channelId.load();
    const auto& cds = inBand();
    switch (m_dataType) {
    case DataType::ChannelValue:
        return cds.getChannelCValue(channelId);
    case DataType::AlarmEnabled:
        return zu::CValue(cds.getChannelAlarmEnabled(channelId));
    case DataType::AlarmTriggerThreshold0:
    case DataType::AlarmTriggerThreshold1:
    case DataType::AlarmTriggerThreshold2:
    case DataType::AlarmTriggerThreshold3:
        return zu::CValue(cds.getChannelAlarmTriggerThreshold(channelId, triggerOf(m_dataType)));
    case DataType::AlarmTriggerThresholdEnabled:
        return zu::CValue(cds.getChannelAlarmTriggerThreshold(channelId));
    case DataType::AlarmHysteresis:
        return zu::CValue(cds.getChannelAlarmHysteresis(channelId));
    case DataType::AlarmLevel:
        return zu::CValue(static_cast<std::int32_t>(cds.getChannelAlarmLevel(channelId)));
    }
    return {};
}

void CdsChannelAccessor::callbackUpdateChannelValue(const zu::CValue& value)
{
    callUpdateCallback(value);
}

void CdsChannelAccessor::watchChannel(std::uint64_t newChannelId)
{
    switch (m_dataType) {
    case DataType::ChannelValue:
        subscribeChannelUpdate(newChannelId, this);
        break;
    case DataType::AlarmEnabled:
        // The state watch follows the channel id stored by the previous
        // detection (0 on the first one), not the one just found.
        subscribeChannelState(m_channelId, this);
        break;
    default:
        subscribeChannelSettings(newChannelId, this);
        break;
    }
}

void CdsChannelAccessor::unwatchChannel()
{
    const auto channelId = m_channelId.load();
    if (channelId == 0) {
        return;
    }
    switch (m_dataType) {
    case DataType::ChannelValue:
        unsubscribeChannelUpdate(channelId, this);
        break;
    case DataType::AlarmEnabled:
        unsubscribeChannelState(channelId, this);
        break;
    default:
        unsubscribeChannelSettings(channelId, this);
        break;
    }
}

void CdsChannelAccessor::subscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelUpdateBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_value_update, &CdsChannelAccessor::cdsChannelUpdate);
    });
}

void CdsChannelAccessor::subscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelStateBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_state, &CdsChannelAccessor::cdsChannelState);
    });
}

void CdsChannelAccessor::subscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeChannelSettings with the cannonical name {}", accessor->m_channelName);
    const bool created = g_channelSettingsBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_settings, &CdsChannelAccessor::cdsChannelSettings);
    });
    if (created) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeChannelSettings create subscribe on the channel Id={}", channelId);
    }
}

void CdsChannelAccessor::subscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceSettings with the cannonical name {}", accessor->m_channelName);
    const bool created = g_deviceSettingsBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_settings, &CdsChannelAccessor::cdsDeviceSettings);
    });
    if (created) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceSettings create subscribe for the deviceId {}", deviceId);
    }
}

void CdsChannelAccessor::unsubscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelUpdateBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelStateBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeChannelSettings with the cannonical name {}", accessor->m_channelName);
    g_channelSettingsBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings with the cannonical name {}", accessor->m_channelName);
    if (g_deviceSettingsBook.remove(deviceId, accessor)) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings remove subscribe for the deviceId {}", deviceId);
    }
}

void CdsChannelAccessor::cdsChannelUpdate(std::uint64_t channelId)
{
    Walk walk(m_walks, g_channelUpdateBook, channelId);
    try {
        const auto value = inBand().getChannelCValue(channelId);
        walk.forEach([&value](CdsChannelAccessor* accessor) { accessor->callbackUpdateChannelValue(value); });
    } catch (...) {
        redetectVanished(walk);
    }
}

void CdsChannelAccessor::cdsChannelState(std::uint64_t channelId)
{
    Walk walk(m_walks, g_channelStateBook, channelId);
    try {
        // Read only to learn that the channel still exists.
        inBand().getChannelCValue(channelId);
        const zu::CValue enabled(inBand().getChannelAlarmEnabled(channelId));
        walk.forEach([&enabled](CdsChannelAccessor* accessor) { accessor->callbackUpdateChannelValue(enabled); });
    } catch (...) {
        redetectVanished(walk);
    }
}

void CdsChannelAccessor::cdsChannelSettings(std::uint64_t channelId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Channel settings with the channel id {}", channelId);
    Walk walk(m_walks, g_channelSettingsBook, channelId);
    try {
        inBand().getChannelCValue(channelId);
    } catch (...) {
        redetectVanished(walk);
        return;
    }
    walk.forEachIsolated("Settings update", [](CdsChannelAccessor* accessor) {
        accessor->callbackUpdateChannelValue(accessor->getCValue());
    });
}

void CdsChannelAccessor::cdsDeviceSettings(std::uint64_t deviceId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Device settings callback with the device id {}", deviceId);
    Walk walk(m_walks, g_deviceSettingsBook, deviceId);
    walk.forEachIsolated("Detection", [](CdsChannelAccessor* accessor) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "cannonical name  {}", accessor->m_channelName);
        accessor->requestDetection();
    });
}

} // namespace orv::modbus::cds
