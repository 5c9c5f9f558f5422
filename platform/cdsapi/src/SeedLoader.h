#pragma once
// Reads a seed document (the JSON tree described in <cdsapi/DataStore.h>)
// into plain descriptions, checking its whole shape first. Every refusal is
// a std::runtime_error "<source>: <JSON pointer>: <reason>".
//
// What the loader cannot see alone (ids already used by the store) the store
// checks with refuse() before it creates anything.

#include <cdsapi/DataStore.h>
#include <cdsapi/Types.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CValue.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace cdsapi {

class SeedLoader {
public:
    struct Channel {
        std::string path;
        std::uint64_t id = 0; // 0 when the seed gives none
        std::string name;
        zu::CValue value;
        ChannelAlarmSettings alarm;
        std::vector<zu::CAlarmTrigger> activeAlarms;
    };

    struct Device {
        std::string path;
        std::uint64_t id = 0; // 0 when the seed gives none
        std::string name;
        std::map<DeviceAttribute, std::string> attributes;
        std::vector<Channel> channels;
        std::vector<Device> devices;
    };

    explicit SeedLoader(std::string sourceName);

    std::vector<Device> parse(const std::string& jsonText) const;

    [[noreturn]] void refuse(const std::string& path, const std::string& reason) const;

private:
    using Json = nlohmann::json;

    // What devices and channels begin with: no members but the given ones,
    // then the path, the id and the name.
    template <typename Node>
    Node readNode(const Json& json, const std::string& path, std::initializer_list<const char*> members,
                  std::set<std::uint64_t>& ids) const
    {
        expectObject(json, path, members);
        Node node;
        node.path = path;
        node.id = readId(json, path, ids);
        node.name = readName(json, path);
        return node;
    }
    std::vector<Device> readDevices(const Json& json, const std::string& path, std::set<std::uint64_t>& ids) const;
    Device readDevice(const Json& json, const std::string& path, std::set<std::uint64_t>& ids) const;
    Channel readChannel(const Json& json, const std::string& path, std::set<std::uint64_t>& ids) const;
    std::uint64_t readId(const Json& json, const std::string& path, std::set<std::uint64_t>& ids) const;
    std::string readName(const Json& json, const std::string& path) const;
    std::map<DeviceAttribute, std::string> readAttributes(const Json& json, const std::string& path) const;
    zu::CValue readValue(const Json& json, const std::string& path, const std::string& kind) const;
    ChannelAlarmSettings readAlarm(const Json& json, const std::string& path) const;
    std::vector<zu::CAlarmTrigger> readActiveAlarms(const Json& json, const std::string& path) const;
    zu::CAlarmTrigger readTrigger(const Json& json, const std::string& path) const;

    const Json& expectObject(const Json& json, const std::string& path,
                             std::initializer_list<const char*> members) const;
    const Json& expectArray(const Json& json, const std::string& path) const;
    bool readBool(const Json& json, const std::string& path) const;
    float readFloat(const Json& json, const std::string& path) const;
    std::int64_t readInteger(const Json& json, const std::string& path, std::int64_t min, std::int64_t max) const;

    std::string m_sourceName;
};

} // namespace cdsapi
