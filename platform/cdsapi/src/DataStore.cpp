#include <cdsapi/DataStore.h>

#include "ClientConnection.h"
#include "SeedLoader.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <unordered_map>

namespace cdsapi {
namespace {

constexpr std::uint64_t g_allOnes = ~std::uint64_t{0};

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

void requireName(const std::string& canonicalName)
{
    if (canonicalName.empty()) {
        throw std::invalid_argument("a canonical name must not be empty");
    }
}

} // namespace

struct DataStore::State {
    struct Device {
        std::uint64_t id = 0;
        std::uint64_t parentId = 0;
        std::string name;
        std::map<DeviceAttribute, std::string> attributes;
        std::vector<std::uint64_t> devices;
        std::vector<std::uint64_t> channels;
        // The same channels by name: a map of thousands of entries looks
        // each of them up.
        std::unordered_map<std::string, std::uint64_t> channelsByName;
    };

    struct Channel {
        std::uint64_t id = 0;
        std::uint64_t deviceId = 0;
        std::string name;
        zu::CValue value;
        ChannelAlarmSettings alarm;
        std::vector<zu::CAlarmTrigger> activeAlarms;
    };

    struct Subscription {
        ClientConnection* pConnection = nullptr;
        std::uint64_t id = 0;
        bool recursive = false;
    };

    using Key = std::tuple<Target, std::uint32_t, std::uint64_t>;
    using Event = ClientConnection::Event;

    std::map<std::uint64_t, Device> devices;
    // Looked up by every read and write: hashed.
    std::unordered_map<std::uint64_t, Channel> channels;
    std::vector<std::uint64_t> rootDevices;
    std::uint64_t nextId = 1;
    // Ids a seed being loaded asks for, kept away from allocation.
    std::set<std::uint64_t> reservedIds;
    std::multimap<Key, Subscription> subscriptions;
    std::map<std::uint64_t, Key> subscriptionKeys;

    // Lookups.

    template <typename Objects>
    static auto& lookUp(Objects& objects, std::uint64_t id, const char* what)
    {
        const auto found = objects.find(id);
        if (found == objects.end()) {
            throw CdsError(std::string("no ") + what + " with id " + std::to_string(id));
        }
        return found->second;
    }

    Device& device(std::uint64_t id) { return lookUp(devices, id, "device"); }

    const Device& device(std::uint64_t id) const { return const_cast<State*>(this)->device(id); }

    Channel& channel(std::uint64_t id) { return lookUp(channels, id, "channel"); }

    const Channel& channel(std::uint64_t id) const { return const_cast<State*>(this)->channel(id); }

    bool isUsed(std::uint64_t id) const { return devices.count(id) != 0 || channels.count(id) != 0; }

    std::uint64_t channelIdByName(const Device& owner, const std::string& name) const
    {
        const auto found = owner.channelsByName.find(name);
        return found != owner.channelsByName.end() ? found->second : 0;
    }

    void collectSubDevices(const Device& parent, std::int32_t depth, std::vector<std::uint64_t>& ids) const
    {
        if (depth <= 0) {
            return;
        }
        for (const auto id : parent.devices) {
            ids.push_back(id);
            collectSubDevices(devices.at(id), depth - 1, ids);
        }
    }

    // Ids.

    void checkFreeId(std::uint64_t id) const
    {
        if (id == 0 || id == g_allOnes) {
            throw std::invalid_argument("id " + std::to_string(id) + " is reserved");
        }
        if (isUsed(id)) {
            throw std::invalid_argument("id " + std::to_string(id) + " is already in use");
        }
    }

    std::uint64_t takeId(std::uint64_t requested)
    {
        if (requested != 0) {
            checkFreeId(requested);
            return requested;
        }
        while (isUsed(nextId) || reservedIds.count(nextId) != 0) {
            ++nextId;
        }
        return nextId++;
    }

    // Notifications, queued in the order of the changes.

    void post(Target target, std::uint32_t type, std::uint64_t objectId, const Event& event, bool onlyRecursive)
    {
        const auto [first, last] = subscriptions.equal_range(Key{target, type, objectId});
        for (auto it = first; it != last; ++it) {
            if (!onlyRecursive || it->second.recursive) {
                it->second.pConnection->post(it->second.id, event, target == Target::Channel);
            }
        }
    }

    void notifyChannel(zu::sub::subscription_type type, std::uint64_t channelId, const zu::CValue& value)
    {
        post(Target::Channel, type, channelId, Event{channelId, value, {}}, false);
    }

    void notifyAlarm(std::uint64_t channelId, const zu::CAlarmTrigger& trigger, bool active)
    {
        post(Target::Alarms, 0, channelId, Event{channelId, {}, zu::CAlarmUpdate{channelId, trigger, active}}, false);
    }

    // A device change reaches the device's own subscriptions and the
    // recursive ones of its ancestors.
    void notifyDevice(zu::sub::subscription_type type, std::uint64_t deviceId)
    {
        const Event event{deviceId, {}, {}};
        post(Target::Device, type, deviceId, event, false);
        for (auto found = devices.find(deviceId); found != devices.end() && found->second.parentId != 0;
             found = devices.find(found->second.parentId)) {
            post(Target::Device, type, found->second.parentId, event, true);
        }
    }

    // Changes.

    std::uint64_t createDevice(const std::string& name, std::uint64_t parentId,
                               const std::map<DeviceAttribute, std::string>& attributes, std::uint64_t requestedId)
    {
        requireName(name);
        if (parentId != 0) {
            device(parentId);
        }
        const std::uint64_t id = takeId(requestedId);
        devices.emplace(id, Device{id, parentId, name, attributes, {}, {}, {}});
        (parentId != 0 ? devices.at(parentId).devices : rootDevices).push_back(id);
        notifyDevice(zu::sub::device_creation, id);
        post(Target::Device, zu::sub::device_creation, g_allOnes, Event{id, {}, {}}, false);
        if (parentId != 0) {
            notifyDevice(zu::sub::device_settings, parentId);
        }
        return id;
    }

    std::uint64_t addChannel(std::uint64_t deviceId, const std::string& name, const zu::CValue& initialValue,
                             const ChannelAlarmSettings& alarm, std::uint64_t requestedId)
    {
        requireName(name);
        if (!initialValue.is_valid()) {
            throw std::invalid_argument("a channel needs an initial value of its kind");
        }
        Device& owner = device(deviceId);
        if (channelIdByName(owner, name) != 0) {
            throw std::invalid_argument("device " + std::to_string(deviceId) + " already has a channel named \"" +
                                        name + "\"");
        }
        const std::uint64_t id = takeId(requestedId);
        channels.emplace(id, Channel{id, deviceId, name, initialValue, alarm, {}});
        owner.channels.push_back(id);
        owner.channelsByName.emplace(name, id);
        notifyDevice(zu::sub::device_settings, deviceId);
        return id;
    }

    void removeChannel(std::uint64_t channelId, bool notifyOwner)
    {
        const std::uint64_t deviceId = channel(channelId).deviceId;
        auto& owner = devices.at(deviceId);
        owner.channels.erase(std::find(owner.channels.begin(), owner.channels.end(), channelId));
        owner.channelsByName.erase(channel(channelId).name);
        channels.erase(channelId);
        notifyChannel(zu::sub::channel_value_update, channelId, {});
        notifyChannel(zu::sub::channel_state, channelId, {});
        if (notifyOwner) {
            notifyDevice(zu::sub::device_settings, deviceId);
        }
    }

    void removeDevice(std::uint64_t deviceId, bool notifyParent)
    {
        const Device& removed = device(deviceId);
        for (const auto subDeviceId : std::vector<std::uint64_t>(removed.devices)) {
            removeDevice(subDeviceId, false);
        }
        for (const auto channelId : std::vector<std::uint64_t>(removed.channels)) {
            removeChannel(channelId, false);
        }
        // Notified while still in the tree, so that recursive subscriptions
        // of its ancestors see it.
        notifyDevice(zu::sub::device_settings, deviceId);
        const std::uint64_t parentId = removed.parentId;
        auto& siblings = parentId != 0 ? devices.at(parentId).devices : rootDevices;
        siblings.erase(std::find(siblings.begin(), siblings.end(), deviceId));
        devices.erase(deviceId);
        if (notifyParent && parentId != 0) {
            notifyDevice(zu::sub::device_settings, parentId);
        }
    }

    void setAlarmEnabled(Channel& target, bool enabled)
    {
        target.alarm.enabled = enabled;
        notifyChannel(zu::sub::channel_state, target.id, target.value);
        notifyAlarm(target.id, {}, enabled);
    }

    void notifyAlarmSettings(const Channel& target)
    {
        notifyChannel(zu::sub::channel_settings, target.id, target.value);
    }

    void createSeedDevice(const SeedLoader::Device& seed, std::uint64_t parentId)
    {
        const std::uint64_t id = createDevice(seed.name, parentId, seed.attributes, seed.id);
        for (const auto& seedChannel : seed.channels) {
            const std::uint64_t channelId =
                addChannel(id, seedChannel.name, seedChannel.value, seedChannel.alarm, seedChannel.id);
            channels.at(channelId).activeAlarms = seedChannel.activeAlarms;
        }
        for (const auto& subDevice : seed.devices) {
            createSeedDevice(subDevice, id);
        }
    }

    void reserveSeedId(const SeedLoader& loader, const std::string& path, std::uint64_t id)
    {
        if (id == 0) {
            return;
        }
        if (isUsed(id)) {
            loader.refuse(path + "/id", "id " + std::to_string(id) + " is already in use");
        }
        reservedIds.insert(id);
    }

    void reserveSeedIds(const SeedLoader& loader, const SeedLoader::Device& seed)
    {
        reserveSeedId(loader, seed.path, seed.id);
        for (const auto& seedChannel : seed.channels) {
            reserveSeedId(loader, seedChannel.path, seedChannel.id);
        }
        for (const auto& subDevice : seed.devices) {
            reserveSeedIds(loader, subDevice);
        }
    }
};

DataStore& DataStore::instance()
{
    static DataStore store;
    return store;
}

DataStore::DataStore()
    : m_pState(std::make_unique<State>())
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

zu::CDevice DataStore::getDevice(std::uint64_t deviceId) const
{
    const std::lock_guard lock(m_mutex);
    const auto& found = m_pState->device(deviceId);
    return zu::CDevice{found.id, found.name, found.parentId};
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

std::vector<std::uint64_t> DataStore::getSubDevicesIds(std::uint64_t deviceId, std::int32_t depth) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::uint64_t> ids;
    m_pState->collectSubDevices(m_pState->device(deviceId), depth, ids);
    return ids;
}

std::uint64_t DataStore::getChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channelIdByName(m_pState->device(deviceId), channelName);
}

std::uint64_t DataStore::getCatchedChannelId(std::uint64_t deviceId, const std::string& channelName) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_pState->devices.find(deviceId);
    if (found == m_pState->devices.end()) {
        return g_allOnes;
    }
    const std::uint64_t id = m_pState->channelIdByName(found->second, channelName);
    return id != 0 ? id : g_allOnes;
}

zu::CValue DataStore::getChannelCValue(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).value;
}

void DataStore::setChannelCValue(std::uint64_t channelId, const zu::CValue& value)
{
    const std::lock_guard lock(m_mutex);
    auto& target = m_pState->channel(channelId);
    target.value = convertToKind(target.value.type(), value);
    m_pState->notifyChannel(zu::sub::channel_value_update, channelId, target.value);
}

bool DataStore::getChannelAlarmEnabled(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm.enabled;
}

void DataStore::setChannelAlarmEnabled(std::uint64_t channelId, bool enabled)
{
    const std::lock_guard lock(m_mutex);
    m_pState->setAlarmEnabled(m_pState->channel(channelId), enabled);
}

float DataStore::getChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm.thresholds[triggerIndex(trigger)];
}

void DataStore::setChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger, float threshold)
{
    changeAlarmSettings(channelId,
                        [&](ChannelAlarmSettings& alarm) { alarm.thresholds[triggerIndex(trigger)] = threshold; });
}

bool DataStore::getChannelAlarmTriggerThreshold(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm.thresholdEnabled;
}

void DataStore::setChannelAlarmTriggerThreshold(std::uint64_t channelId, bool thresholdEnabled)
{
    changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.thresholdEnabled = thresholdEnabled; });
}

float DataStore::getChannelAlarmHysteresis(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm.hysteresis;
}

void DataStore::setChannelAlarmHysteresis(std::uint64_t channelId, float hysteresis)
{
    changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.hysteresis = hysteresis; });
}

LevelAlarm DataStore::getChannelAlarmLevel(std::uint64_t channelId) const
{
    const std::lock_guard lock(m_mutex);
    return m_pState->channel(channelId).alarm.level;
}

void DataStore::setChannelAlarmLevel(std::uint64_t channelId, LevelAlarm level)
{
    changeAlarmSettings(channelId, [&](ChannelAlarmSettings& alarm) { alarm.level = level; });
}

void DataStore::changeAlarmSettings(std::uint64_t channelId, const std::function<void(ChannelAlarmSettings&)>& change)
{
    const std::lock_guard lock(m_mutex);
    auto& target = m_pState->channel(channelId);
    change(target.alarm);
    m_pState->notifyAlarmSettings(target);
}

std::string DataStore::getDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute) const
{
    const std::lock_guard lock(m_mutex);
    const auto& attributes = m_pState->device(deviceId).attributes;
    const auto found = attributes.find(attribute);
    return found != attributes.end() ? found->second : std::string();
}

void DataStore::setDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute, const std::string& text,
                                   bool onlyIfChanged)
{
    const std::lock_guard lock(m_mutex);
    auto& attributes = m_pState->device(deviceId).attributes;
    const auto found = attributes.find(attribute);
    const bool unchanged = found != attributes.end() ? found->second == text : text.empty();
    if (onlyIfChanged && unchanged) {
        return;
    }
    attributes[attribute] = text;
    m_pState->notifyDevice(zu::sub::device_settings, deviceId);
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
