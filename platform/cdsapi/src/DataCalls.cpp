#include <cdsapi/DataCalls.h>

#include "DataStoreState.h"

#include <tuple>

namespace cdsapi {
namespace {

zu::CValue convertToKind(zu::CValue::Type kind, const zu::CValue& value)
{
    switch (kind) {
    case zu::CValue::Type::Bool:
        return zu::CValue(value.as_bool());
    case zu::CValue::Type::Int32:
        return zu::CValue(value.as_int32());
    case zu::CValue::Type::Uint32:
        return zu::CValue(value.as_uint32());
    case zu::CValue::Type::Float:
        return zu::CValue(value.as_float());
    case zu::CValue::Type::String:
        return zu::CValue(value.as_string());
    case zu::CValue::Type::Invalid:
        break;
    }
    return value;
}

std::size_t triggerIndex(TriggerId trigger)
{
    const auto index = static_cast<std::size_t>(trigger);
    if (index >= std::tuple_size_v<decltype(ChannelAlarmSettings::thresholds)>) {
        throw CdsError("no alarm trigger " + std::to_string(index));
    }
    return index;
}

} // namespace

DataCalls::DataCalls(DataStore& store)
    : m_dataStore(store)
{
}

DataStore& DataCalls::dataStore() const
{
    return m_dataStore;
}

zu::CDevice DataCalls::getDevice(std::uint64_t deviceId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    const auto& found = m_dataStore.m_pState->device(deviceId);
    return zu::CDevice{found.id, found.name, found.parentId};
}

std::vector<std::uint64_t> DataCalls::getSubDevicesIds(std::uint64_t deviceId, std::int32_t depth) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    std::vector<std::uint64_t> ids;
    m_dataStore.m_pState->collectSubDevices(m_dataStore.m_pState->device(deviceId), depth, ids);
    return ids;
}

std::uint64_t DataCalls::getChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channelIdByName(m_dataStore.m_pState->device(deviceId), channelName);
}

std::uint64_t DataCalls::getCatchedChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    const auto found = m_dataStore.m_pState->devices.find(deviceId);
    if (found == m_dataStore.m_pState->devices.end()) {
        return g_allOnes;
    }
    const std::uint64_t id = m_dataStore.m_pState->channelIdByName(found->second, channelName);
    return id != 0 ? id : g_allOnes;
}

zu::CValue DataCalls::getChannelCValue(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).value;
}

void DataCalls::setChannelCValue(std::uint64_t channelId, const zu::CValue& value)
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    auto& target = m_dataStore.m_pState->channel(channelId);
    target.value = convertToKind(target.value.type(), value);
    m_dataStore.m_pState->notifyChannel(zu::sub::channel_value_update, channelId, target.value);
}

bool DataCalls::getChannelAlarmEnabled(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).alarm.enabled;
}

void DataCalls::setChannelAlarmEnabled(std::uint64_t channelId, bool enabled)
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    m_dataStore.m_pState->setAlarmEnabled(m_dataStore.m_pState->channel(channelId), enabled);
}

float DataCalls::getChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).alarm.thresholds[triggerIndex(trigger)];
}

void DataCalls::setChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger, float threshold)
{
    m_dataStore.changeAlarmSettings(channelId,
                        [&](ChannelAlarmSettings& alarm) { alarm.thresholds[triggerIndex(trigger)] = threshold; });
}

bool DataCalls::getChannelAlarmTriggerThreshold(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).alarm.thresholdEnabled;
}

void DataCalls::setChannelAlarmTriggerThreshold(std::uint64_t channelId, bool thresholdEnabled)
{
    m_dataStore.changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.thresholdEnabled = thresholdEnabled; });
}

float DataCalls::getChannelAlarmHysteresis(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).alarm.hysteresis;
}

void DataCalls::setChannelAlarmHysteresis(std::uint64_t channelId, float hysteresis)
{
    m_dataStore.changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.hysteresis = hysteresis; });
}

LevelAlarm DataCalls::getChannelAlarmLevel(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    return m_dataStore.m_pState->channel(channelId).alarm.level;
}

void DataCalls::setChannelAlarmLevel(std::uint64_t channelId, LevelAlarm level)
{
    m_dataStore.changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.level = level; });
}

std::string DataCalls::getDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute) const
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    const auto& attributes = m_dataStore.m_pState->device(deviceId).attributes;
    const auto found = attributes.find(attribute);
    return found != attributes.end() ? found->second : std::string();
}

void DataCalls::setDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute, const std::string& text,
                                   bool onlyIfChanged)
{
    const std::lock_guard lock(m_dataStore.m_mutex);
    auto& attributes = m_dataStore.m_pState->device(deviceId).attributes;
    const auto found = attributes.find(attribute);
    const bool unchanged = found != attributes.end() ? found->second == text : text.empty();
    if (onlyIfChanged && unchanged) {
        return;
    }
    attributes[attribute] = text;
    m_dataStore.m_pState->notifyDevice(zu::sub::device_settings, deviceId);
}

} // namespace cdsapi
