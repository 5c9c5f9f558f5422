#include "SeedLoader.h"

#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace cdsapi {
namespace {

const std::map<std::string, DeviceAttribute> g_attributeNames = {
    {"Name", DeviceAttribute::Name},
    {"Description", DeviceAttribute::Description},
    {"Manufacturer", DeviceAttribute::Manufacturer},
    {"Model", DeviceAttribute::Model},
    {"SerialNumber", DeviceAttribute::SerialNumber},
    {"FirmwareVersion", DeviceAttribute::FirmwareVersion},
    {"HardwareVersion", DeviceAttribute::HardwareVersion},
    {"Location", DeviceAttribute::Location},
    {"SubDeviceCount", DeviceAttribute::SubDeviceCount},
};

std::string inQuotes(const std::string& text)
{
    return "\"" + text + "\"";
}

// An attribute key: a DeviceAttribute name or a decimal number.
std::optional<DeviceAttribute> parseAttributeKey(const std::string& key)
{
    const auto named = g_attributeNames.find(key);
    if (named != g_attributeNames.end()) {
        return named->second;
    }
    if (key.empty() || key.size() > 10 || key.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const auto number = std::stoull(key);
    if (number > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<DeviceAttribute>(number);
}

template <typename Integer>
Integer readRanged(const orv::common::JsonNode& json)
{
    return static_cast<Integer>(
        json.integer(std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()));
}

} // namespace

SeedLoader::SeedLoader(std::string sourceName)
    : m_sourceName(std::move(sourceName))
{
}

void SeedLoader::refuse(const std::string& path, const std::string& reason) const
{
    JsonNode::failAt(m_sourceName, path, reason);
}

std::vector<SeedLoader::Device> SeedLoader::parse(const std::string& jsonText) const
{
    const auto document = JsonNode::parseText(jsonText, m_sourceName);
    const JsonNode root(document, m_sourceName, "");
    root.expectOnlyKeys({"devices"});
    std::set<std::uint64_t> ids;
    return readDevices(root.member("devices"), ids);
}

std::vector<SeedLoader::Device> SeedLoader::readDevices(const JsonNode& json, std::set<std::uint64_t>& ids)
{
    std::vector<Device> result;
    for (const auto& device : json.elements()) {
        result.push_back(readDevice(device, ids));
    }
    return result;
}

SeedLoader::Device SeedLoader::readDevice(const JsonNode& json, std::set<std::uint64_t>& ids)
{
    Device device = readNode<Device>(json, {"id", "name", "attributes", "channels", "devices"}, ids);
    if (const auto attributes = json.optionalMember("attributes")) {
        device.attributes = readAttributes(*attributes);
    }
    if (const auto channels = json.optionalMember("channels")) {
        device.channels = readChannels(*channels, ids);
    }
    if (const auto devices = json.optionalMember("devices")) {
        device.devices = readDevices(*devices, ids);
    }
    return device;
}

std::vector<SeedLoader::Channel> SeedLoader::readChannels(const JsonNode& json, std::set<std::uint64_t>& ids)
{
    std::vector<Channel> channels;
    std::set<std::string> names;
    for (const auto& channel : json.elements()) {
        channels.push_back(readChannel(channel, ids));
        if (!names.insert(channels.back().name).second) {
            channel.member("name").fail("duplicate channel name " + inQuotes(channels.back().name));
        }
    }
    return channels;
}

SeedLoader::Channel SeedLoader::readChannel(const JsonNode& json, std::set<std::uint64_t>& ids)
{
    Channel channel = readNode<Channel>(json, {"id", "name", "kind", "value", "alarm"}, ids);
    channel.value = readValue(json.optionalMember("value"), json.member("kind"));
    if (const auto alarm = json.optionalMember("alarm")) {
        channel.alarm = readAlarm(*alarm);
        if (const auto active = alarm->optionalMember("active")) {
            channel.activeAlarms = readActiveAlarms(*active);
        }
    }
    return channel;
}

std::uint64_t SeedLoader::readId(const JsonNode& json, std::set<std::uint64_t>& ids)
{
    const auto id = json.optionalMember("id");
    if (!id) {
        return 0;
    }
    const auto value = id->unsignedInteger();
    if (value == 0 || value == ~std::uint64_t{0}) {
        id->fail("id " + std::to_string(value) + " is reserved");
    }
    if (!ids.insert(value).second) {
        id->fail("duplicate id " + std::to_string(value));
    }
    return value;
}

std::string SeedLoader::readName(const JsonNode& json)
{
    const auto name = json.member("name");
    const auto text = name.text();
    if (text.empty()) {
        name.fail("expected a non-empty string");
    }
    return text;
}

std::map<DeviceAttribute, std::string> SeedLoader::readAttributes(const JsonNode& json)
{
    std::map<DeviceAttribute, std::string> attributes;
    for (const auto& key : json.keys()) {
        const auto text = json.member(key);
        const auto attribute = parseAttributeKey(key);
        if (!attribute) {
            text.fail("unknown attribute " + inQuotes(key));
        }
        if (!attributes.emplace(*attribute, text.text()).second) {
            text.fail("attribute given twice");
        }
    }
    return attributes;
}

// The value of a channel of that kind; a missing value is the kind's zero.
zu::CValue SeedLoader::readValue(const std::optional<JsonNode>& json, const JsonNode& kindNode)
{
    const std::string kind = kindNode.text();
    if (kind == "bool") {
        return zu::CValue(json ? json->boolean() : false);
    }
    if (kind == "int32") {
        return zu::CValue(json ? readRanged<std::int32_t>(*json) : 0);
    }
    if (kind == "uint32") {
        return zu::CValue(json ? readRanged<std::uint32_t>(*json) : 0U);
    }
    if (kind == "float") {
        return zu::CValue(json ? readFloat(*json) : 0.0f);
    }
    if (kind == "string") {
        return zu::CValue(json ? json->text() : std::string());
    }
    kindNode.fail("unknown kind " + inQuotes(kind));
}

ChannelAlarmSettings SeedLoader::readAlarm(const JsonNode& json)
{
    json.expectOnlyKeys({"enabled", "thresholds", "thresholdEnabled", "hysteresis", "level", "active"});
    ChannelAlarmSettings alarm;
    alarm.enabled = json.booleanOr("enabled", alarm.enabled);
    if (const auto thresholds = json.optionalMember("thresholds")) {
        const auto numbers = thresholds->elements();
        if (numbers.size() != alarm.thresholds.size()) {
            thresholds->fail("expected exactly 4 numbers");
        }
        for (std::size_t i = 0; i < alarm.thresholds.size(); ++i) {
            alarm.thresholds[i] = readFloat(numbers[i]);
        }
    }
    alarm.thresholdEnabled = json.booleanOr("thresholdEnabled", alarm.thresholdEnabled);
    if (const auto hysteresis = json.optionalMember("hysteresis")) {
        alarm.hysteresis = readFloat(*hysteresis);
    }
    if (const auto level = json.optionalMember("level")) {
        alarm.level = static_cast<LevelAlarm>(readRanged<std::int32_t>(*level));
    }
    return alarm;
}

std::vector<zu::CAlarmTrigger> SeedLoader::readActiveAlarms(const JsonNode& json)
{
    std::vector<zu::CAlarmTrigger> triggers;
    std::set<std::uint32_t> codes;
    for (const auto& active : json.elements()) {
        triggers.push_back(readTrigger(active));
        if (!codes.insert(triggers.back().code).second) {
            active.member("code").fail("duplicate alarm code " + std::to_string(triggers.back().code));
        }
    }
    return triggers;
}

zu::CAlarmTrigger SeedLoader::readTrigger(const JsonNode& json)
{
    json.expectOnlyKeys({"code", "flag", "threshold"});
    zu::CAlarmTrigger trigger;
    trigger.code = readRanged<std::uint32_t>(json.member("code"));
    if (const auto flag = json.optionalMember("flag")) {
        trigger.flag = readRanged<std::uint8_t>(*flag);
    }
    if (const auto threshold = json.optionalMember("threshold")) {
        trigger.threshold = readFloat(*threshold);
    }
    return trigger;
}

float SeedLoader::readFloat(const JsonNode& json)
{
    const auto value = json.number();
    if (std::fabs(value) > std::numeric_limits<float>::max()) {
        json.fail("number out of range for a float");
    }
    return static_cast<float>(value);
}

} // namespace cdsapi
