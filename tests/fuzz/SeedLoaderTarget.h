#pragma once
// Fuzz target of cdsapi::DataStore::loadSeed: arbitrary text is loaded as a
// seed on top of a store holding a known tree. A seed may be accepted or
// refused, but a refusal must be a std::runtime_error naming the source, and
// must leave the store exactly as it was: same devices, channels, values,
// alarms and attributes, and the same next free id.

#include "FuzzFailure.h"

#include <cdsapi/DataStore.h>
#include <cdsapi/Types.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CDevice.h>
#include <zu/CValue.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::fuzz {

class SeedLoaderTarget {
public:
    enum class Outcome { Accepted, Refused };

    static Outcome run(const uint8_t* data, std::size_t size)
    {
        const std::string text(reinterpret_cast<const char*>(data), size);
        const uint64_t nextId = nextIdAfterBase();
        auto& store = cdsapi::DataStore::instance();
        loadBase(store);
        const auto baseRoots = store.getRootDevicesIds();
        const auto before = snapshot(store, baseRoots);
        try {
            store.loadSeed(text, g_sourceName);
        } catch (const std::exception& error) {
            checkRefusal(store, error, before, nextId);
            return Outcome::Refused;
        }
        require(snapshot(store, baseRoots) == before, "an accepted seed changed what the store held before");
        return Outcome::Accepted;
    }

private:
    static constexpr const char* g_sourceName = "fuzz";

    static constexpr const char* g_baseSeed = R"({"devices": [
        {"id": 10, "name": "ups", "attributes": {"Model": "X", "42": "text"},
         "channels": [{"id": 11, "name": "Voltage", "kind": "float", "value": 230.5,
                       "alarm": {"enabled": true, "thresholds": [1, 2, 3, 4], "hysteresis": 0.5,
                                 "level": 2, "active": [{"code": 7, "flag": 1, "threshold": 3}]}},
                      {"name": "Name", "kind": "string", "value": "main"}],
         "devices": [{"name": "battery", "channels": [{"name": "Count", "kind": "uint32", "value": 4}]}]},
        {"name": "meter", "channels": [{"name": "Relay", "kind": "bool", "value": true}]}]})";

    struct ChannelState {
        cdsapi::ChannelInfo info;
        zu::CValue value;
        cdsapi::ChannelAlarmSettings alarm;
        std::vector<zu::CAlarmTrigger> activeAlarms;

        friend bool operator==(const ChannelState&, const ChannelState&) = default;
    };

    struct DeviceState {
        zu::CDevice device;
        std::vector<std::string> attributes;
        std::vector<ChannelState> channels;

        friend bool operator==(const DeviceState&, const DeviceState&) = default;
    };

    using Snapshot = std::vector<DeviceState>;

    // The attributes compared: every named one and the numbered one the
    // base seed sets.
    static constexpr std::array<uint32_t, 10> g_attributes{0, 1, 2, 3, 4, 5, 6, 7, 16, 42};

    static void loadBase(cdsapi::DataStore& store)
    {
        store.clear();
        store.loadSeed(g_baseSeed, "base");
    }

    // The id the next device gets in a store holding the base tree only.
    static uint64_t nextIdAfterBase()
    {
        static const uint64_t nextId = [] {
            auto& store = cdsapi::DataStore::instance();
            loadBase(store);
            const uint64_t id = store.createDevice("probe");
            store.clear();
            return id;
        }();
        return nextId;
    }

    static void checkRefusal(cdsapi::DataStore& store, const std::exception& error, const Snapshot& before,
                             uint64_t nextId)
    {
        const std::string message = error.what();
        require(dynamic_cast<const std::runtime_error*>(&error) != nullptr,
                "a seed was refused with an exception that is no std::runtime_error: " + message);
        require(message.rfind(std::string(g_sourceName) + ": ", 0) == 0,
                "the refusal does not name the seed: " + message);
        require(snapshot(store, store.getRootDevicesIds()) == before,
                "a refused seed changed the store: " + message);
        require(store.createDevice("probe") == nextId, "a refused seed moved the next free id: " + message);
    }

    static Snapshot snapshot(const cdsapi::DataStore& store, const std::vector<uint64_t>& roots)
    {
        Snapshot devices;
        for (const auto root : roots) {
            addDevice(store, root, devices);
            for (const auto id : store.getSubDevicesIds(root, g_maxDepth)) {
                addDevice(store, id, devices);
            }
        }
        return devices;
    }

    static constexpr int32_t g_maxDepth = 1 << 20;

    static void addDevice(const cdsapi::DataStore& store, uint64_t id, Snapshot& devices)
    {
        DeviceState state{store.getDevice(id), {}, {}};
        for (const auto attribute : g_attributes) {
            state.attributes.push_back(store.getDeviceAttribute(id, cdsapi::DeviceAttribute{attribute}));
        }
        for (const auto channel : store.getChannelsIds(id)) {
            state.channels.push_back({store.getChannel(channel), store.getChannelCValue(channel),
                                      store.getChannelAlarmSettings(channel), store.getActiveAlarms(channel)});
        }
        devices.push_back(std::move(state));
    }
};

} // namespace orv::modbus::fuzz
