#pragma once
// What the store holds (devices, channels, their alarms) and who listens,
// behind the store's lock. Shared by the store's own calls and the data
// calls (DataCalls) that clients and the service side make alike.

#include <cdsapi/DataStore.h>

#include "ClientConnection.h"
#include "SeedLoader.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <unordered_map>

namespace cdsapi {

inline constexpr std::uint64_t g_allOnes = ~std::uint64_t{0};

struct DataStore::State {
    // A device or channel needs a canonical name.
    static void requireName(const std::string& canonicalName)
    {
        if (canonicalName.empty()) {
            throw std::invalid_argument("a canonical name must not be empty");
        }
    }

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

} // namespace cdsapi
