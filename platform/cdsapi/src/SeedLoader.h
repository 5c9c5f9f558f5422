#pragma once
// Reads a seed document (the JSON tree described in <cdsapi/DataStore.h>)
// into plain descriptions, checking its whole shape first. Every refusal is
// a std::runtime_error "<source>: <JSON pointer>: <reason>".
//
// What the loader cannot see alone (ids already used by the store) the store
// checks with refuse() before it creates anything.

#include <cdsapi/DataStore.h>
#include <cdsapi/Types.h>

#include <orv/common/json/JsonNode.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CValue.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <string_view>
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
    using JsonNode = orv::common::JsonNode;

    // What devices and channels begin with: no members but the given ones,
    // then the path, the id and the name.
    template <typename Node>
    static Node readNode(const JsonNode& json, std::initializer_list<std::string_view> members,
                         std::set<std::uint64_t>& ids)
    {
        json.expectOnlyKeys(members);
        Node node;
        node.path = json.path();
        node.id = readId(json, ids);
        node.name = readName(json);
        return node;
    }
    static std::vector<Device> readDevices(const JsonNode& json, std::set<std::uint64_t>& ids);
    static Device readDevice(const JsonNode& json, std::set<std::uint64_t>& ids);
    static std::vector<Channel> readChannels(const JsonNode& json, std::set<std::uint64_t>& ids);
    static Channel readChannel(const JsonNode& json, std::set<std::uint64_t>& ids);
    static std::uint64_t readId(const JsonNode& json, std::set<std::uint64_t>& ids);
    static std::string readName(const JsonNode& json);
    static std::map<DeviceAttribute, std::string> readAttributes(const JsonNode& json);
    static zu::CValue readValue(const std::optional<JsonNode>& json, const JsonNode& kindNode);
    static ChannelAlarmSettings readAlarm(const JsonNode& json);
    static std::vector<zu::CAlarmTrigger> readActiveAlarms(const JsonNode& json);
    static zu::CAlarmTrigger readTrigger(const JsonNode& json);
    static float readFloat(const JsonNode& json);

    std::string m_sourceName;
};

} // namespace cdsapi
