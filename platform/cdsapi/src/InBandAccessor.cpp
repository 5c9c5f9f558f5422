#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include "ClientConnection.h"

#include <utility>

namespace cdsapi {

InBandAccessor::InBandAccessor(const std::string& clientName)
    // The store is reached first so that it outlives every client, the
    // process-wide ones included.
    : m_store(DataStore::instance())
    , m_clientName(clientName)
    , m_pConnection(std::make_unique<ClientConnection>(m_store, clientName))
{
}

InBandAccessor::~InBandAccessor() = default;

const std::string& InBandAccessor::getClientName() const
{
    return m_clientName;
}

DataStore& InBandAccessor::store() const
{
    return m_store;
}

zu::CDevice InBandAccessor::getDevice(std::uint64_t deviceId) const
{
    return m_store.getDevice(deviceId);
}

std::vector<std::uint64_t> InBandAccessor::getSubDevicesIds(std::uint64_t deviceId, std::int32_t depth) const
{
    return m_store.getSubDevicesIds(deviceId, depth);
}

std::uint64_t InBandAccessor::getChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    return m_store.getChannelId(deviceId, channelName);
}

std::uint64_t InBandAccessor::getCatchedChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    return m_store.getCatchedChannelId(deviceId, channelName);
}

zu::CValue InBandAccessor::getChannelCValue(std::uint64_t channelId) const
{
    return m_store.getChannelCValue(channelId);
}

void InBandAccessor::setChannelCValue(std::uint64_t channelId, const zu::CValue& value)
{
    m_store.setChannelCValue(channelId, value);
}

bool InBandAccessor::getChannelAlarmEnabled(std::uint64_t channelId) const
{
    return m_store.getChannelAlarmEnabled(channelId);
}

void InBandAccessor::setChannelAlarmEnabled(std::uint64_t channelId, bool enabled)
{
    m_store.setChannelAlarmEnabled(channelId, enabled);
}

float InBandAccessor::getChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger) const
{
    return m_store.getChannelAlarmTriggerThreshold(channelId, trigger);
}

void InBandAccessor::setChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger, float threshold)
{
    m_store.setChannelAlarmTriggerThreshold(channelId, trigger, threshold);
}

bool InBandAccessor::getChannelAlarmTriggerThreshold(std::uint64_t channelId) const
{
    return m_store.getChannelAlarmTriggerThreshold(channelId);
}

void InBandAccessor::setChannelAlarmTriggerThreshold(std::uint64_t channelId, bool thresholdEnabled)
{
    m_store.setChannelAlarmTriggerThreshold(channelId, thresholdEnabled);
}

float InBandAccessor::getChannelAlarmHysteresis(std::uint64_t channelId) const
{
    return m_store.getChannelAlarmHysteresis(channelId);
}

void InBandAccessor::setChannelAlarmHysteresis(std::uint64_t channelId, float hysteresis)
{
    m_store.setChannelAlarmHysteresis(channelId, hysteresis);
}

LevelAlarm InBandAccessor::getChannelAlarmLevel(std::uint64_t channelId) const
{
    return m_store.getChannelAlarmLevel(channelId);
}

void InBandAccessor::setChannelAlarmLevel(std::uint64_t channelId, LevelAlarm level)
{
    m_store.setChannelAlarmLevel(channelId, level);
}

std::string InBandAccessor::getDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute) const
{
    return m_store.getDeviceAttribute(deviceId, attribute);
}

void InBandAccessor::setDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute, const std::string& text,
                                        bool onlyIfChanged)
{
    m_store.setDeviceAttribute(deviceId, attribute, text, onlyIfChanged);
}

void InBandAccessor::subscribeChannel(std::uint64_t channelId, ChannelCallback fn, zu::sub::subscription_type type,
                                      std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Channel, type, channelId, false,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId, event.value); },
        subscriptionId);
}

void InBandAccessor::subscribeDevice(std::uint64_t deviceId, DeviceCallback fn, zu::sub::subscription_type type,
                                     bool recursive, std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Device, type, deviceId, recursive,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId); }, subscriptionId);
}

void InBandAccessor::subscribeDeviceAlarms(std::uint64_t channelId, AlarmCallback fn, std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Alarms, 0, channelId, false,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId, event.alarm); },
        subscriptionId);
}

void InBandAccessor::unsubscribe(std::uint64_t subscriptionId)
{
    m_pConnection->unsubscribe(subscriptionId);
}

} // namespace cdsapi
