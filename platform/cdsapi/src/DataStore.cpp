#include <cdsapi/DataStore.h>

#include "DataStoreState.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace cdsapi {

DataStore& DataStore::instance()
{
    static DataStore store;
    return store;
}

DataStore::DataStore()
    : DataCalls(*this)
    , m_pState(std::make_unique<State>())
{
}

DataStore::~DataStore() = default;

std::uint64_t DataStore::createDevice(const std::string& canonicalName, std::uint64_t parentId,
                                      const std::map<DeviceAttribute, std::string>& attributes, std::uint64_t id)
{
    const std::lock_guard lock(m_mutex);
    return m_pState->createDevice(canonicalName, parentId, attributes, id);
}

void DataStore::removeDevice(std::uint64_t deviceId)
{
    const std::lock_guard lock(m_mutex);
    m_pState->removeDevice(deviceId, true);
}

std::uint64_t DataStore::addChannel(std::uint64_t deviceId, const std::string& canonicalName,
                                    const zu::CValue& initialValue, const ChannelAlarmSettings& alarm,
                                    std::uint64_t id)
{
    const std::lock_guard lock(m_mutex);
    return m_pState->addChannel(deviceId, canonicalName, initialValue, alarm, id);
}

void DataStore::removeChannel(std::uint64_t channelId)
{
    const std::lock_guard lock(m_mutex);
    m_pState->removeChannel(channelId, true);
}

void DataStore::loadSeedFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw std::runtime_error(path + ": cannot be read");
    }
    loadSeed(text.str(), path);
}

void DataStore::loadSeed(const std::string& jsonText, const std::string& sourceName)
{
    const SeedLoader loader(sourceName);
    const auto seedDevices = loader.parse(jsonText);
    const std::lock_guard lock(m_mutex);
    // Every check that can fail is made before the first creation, so a
    // refused seed leaves the store as it was. The ids the seed asks for are
    // reserved meanwhile, so that no object of the seed without an id takes
    // one of them first.
    try {
        for (const auto& seed : seedDevices) {
            m_pState->reserveSeedIds(loader, seed);
        }
        for (const auto& seed : seedDevices) {
            m_pState->createSeedDevice(seed, 0);
        }
    } catch (...) {
        m_pState->reservedIds.clear();
        throw;
    }
    m_pState->reservedIds.clear();
}

void DataStore::clear()
{
    const std::lock_guard lock(m_mutex);
    m_pState->devices.clear();
    m_pState->channels.clear();
    m_pState->rootDevices.clear();
    m_pState->nextId = 1;
}

void DataStore::setChannelAlarmSettings(std::uint64_t channelId, const ChannelAlarmSettings& alarm)
{
    const std::lock_guard lock(m_mutex);
    auto& target = m_pState->channel(channelId);
    const bool enabledChanged = target.alarm.enabled != alarm.enabled;
    auto others = target.alarm;
    others.enabled = alarm.enabled;
    const bool othersChanged = others != alarm;
    target.alarm = alarm;
    if (enabledChanged) {
        m_pState->setAlarmEnabled(target, alarm.enabled);
    }
    if (othersChanged) {
        m_pState->notifyAlarmSettings(target);
    }
}

ChannelAlarmSettings DataStore::getChannelAlarmSettings(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm;
}

void DataStore::raiseAlarm(std::uint64_t channelId, const zu::CAlarmTrigger& trigger)
{
    const std::lock_guard lock(m_mutex);
    auto& alarms = m_pState->channel(channelId).activeAlarms;
    const auto same = std::find_if(alarms.begin(), alarms.end(),
                                   [&](const zu::CAlarmTrigger& active) { return active.code == trigger.code; });
    if (same != alarms.end()) {
        *same = trigger;
    } else {
        alarms.push_back(trigger);
    }
    m_pState->notifyAlarm(channelId, trigger, true);
}

void DataStore::clearAlarm(std::uint64_t channelId, const zu::CAlarmTrigger& trigger)
{
    const std::lock_guard lock(m_mutex);
    auto& alarms = m_pState->channel(channelId).activeAlarms;
    const auto same = std::find_if(alarms.begin(), alarms.end(),
                                   [&](const zu::CAlarmTrigger& active) { return active.code == trigger.code; });
    if (same == alarms.end()) {
        return;
    }
    const zu::CAlarmTrigger cleared = *same;
    alarms.erase(same);
    m_pState->notifyAlarm(channelId, cleared, false);
}

std::vector<zu::CAlarmTrigger> DataStore::getActiveAlarms(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).activeAlarms;
}

std::vector<std::uint64_t> DataStore::getRootDevicesIds() const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->rootDevices;
}

std::vector<std::uint64_t> DataStore::getChannelsIds(std::uint64_t deviceId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->device(deviceId).channels;
}

ChannelInfo DataStore::getChannel(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    const auto& found = m_pState->channel(channelId);
    return ChannelInfo{found.id, found.deviceId, found.name};
}

std::size_t DataStore::subscriptionCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->subscriptions.size();
}

std::uint64_t DataStore::getDeviceByName(const std::string& canonicalName) const
{
    const std::lock_guard lock(m_mutex);
    for (const auto& [id, device] : m_pState->devices) {
        if (device.name == canonicalName) {
            return id;
        }
    }
    throw CdsError("no device named \"" + canonicalName + "\"");
}

void DataStore::changeAlarmSettings(std::uint64_t channelId, const std::function<void(ChannelAlarmSettings&)>& change)
{
    const std::lock_guard lock(m_mutex);
    auto& target = m_pState->channel(channelId);
    change(target.alarm);
    m_pState->notifyAlarmSettings(target);
}

std::uint64_t DataStore::allocateSubscriptionId()
{
    return ++m_lastSubscriptionId;
}

void DataStore::addSubscription(ClientConnection& connection, std::uint64_t subscriptionId, Target target,
                                std::uint32_t type, std::uint64_t objectId, bool recursive)
{
    const std::lock_guard lock(m_mutex);
    // An unsubscribe that raced ahead of this registration wins.
    if (!connection.holds(subscriptionId)) {
        return;
    }
    const State::Key key{target, type, objectId};
    m_pState->subscriptions.emplace(key, State::Subscription{&connection, subscriptionId, recursive});
    m_pState->subscriptionKeys.emplace(subscriptionId, key);
}

void DataStore::removeSubscription(const ClientConnection& connection, std::uint64_t subscriptionId)
{
    const std::lock_guard lock(m_mutex);
    const auto key = m_pState->subscriptionKeys.find(subscriptionId);
    if (key == m_pState->subscriptionKeys.end()) {
        return;
    }
    const auto [first, last] = m_pState->subscriptions.equal_range(key->second);
    for (auto it = first; it != last; ++it) {
        if (it->second.id == subscriptionId && it->second.pConnection == &connection) {
            m_pState->subscriptions.erase(it);
            m_pState->subscriptionKeys.erase(key);
            return;
        }
    }
}

void DataStore::removeSubscriptions(const ClientConnection& connection)
{
    const std::lock_guard lock(m_mutex);
    for (auto it = m_pState->subscriptions.begin(); it != m_pState->subscriptions.end();) {
        if (it->second.pConnection == &connection) {
            m_pState->subscriptionKeys.erase(it->second.id);
            it = m_pState->subscriptions.erase(it);
        } else {
            ++it;
        }
    }
}

} // namespace cdsapi
