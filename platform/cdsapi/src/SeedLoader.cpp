#include "SeedLoader.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <stdexcept>
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

// A member name as one step of a JSON pointer ("~" and "/" escaped).
std::string pointerStep(const std::string& name)
{
    std::string step;
    for (const char c : name) {
        if (c == '~') {
            step += "~0";
        } else if (c == '/') {
            step += "~1";
        } else {
            step += c;
        }
    }
    return "/" + step;
}

std::string indexStep(std::size_t index)
{
    return "/" + std::to_string(index);
}

// An attribute key: a DeviceAttribute name or a decimal number.
bool parseAttributeKey(const std::string& key, DeviceAttribute& attribute)
{
    const auto named = g_attributeNames.find(key);
    if (named != g_attributeNames.end()) {
        attribute = named->second;
        return true;
    }
    if (key.empty() || key.size() > 10 || key.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const auto number = std::stoull(key);
    if (number > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    attribute = static_cast<DeviceAttribute>(number);
    return true;
}

} // namespace

SeedLoader::SeedLoader(std::string sourceName)
    : m_sourceName(std::move(sourceName))
{
}

void SeedLoader::refuse(const std::string& path, const std::string& reason) const
{
    throw std::runtime_error(m_sourceName + ": " + (path.empty() ? "/" : path) + ": " + reason);
}

std::vector<SeedLoader::Device> SeedLoader::parse(const std::string& jsonText) const
{
    Json document;
    try {
        document = Json::parse(jsonText);
    } catch (const Json::exception& error) {
        // Not only syntax errors: a number beyond a double's range is an
        // out_of_range error of the parser.
        refuse("", std::string("not valid JSON (") + error.what() + ")");
    }
    const Json& root = expectObject(document, "", {"devices"});
    if (!root.contains("devices")) {
        refuse("", "missing member \"devices\"");
    }
    std::set<std::uint64_t> ids;
    return readDevices(root["devices"], "/devices", ids);
}

std::vector<SeedLoader::Device> SeedLoader::readDevices(const Json& json, const std::string& path,
                                                        std::set<std::uint64_t>& ids) const
{
    const Json& devices = expectArray(json, path);
    std::vector<Device> result;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        result.push_back(readDevice(devices[i], path + indexStep(i), ids));
    }
    return result;
}

SeedLoader::Device SeedLoader::readDevice(const Json& json, const std::string& path,
                                          std::set<std::uint64_t>& ids) const
{
    Device device = readNode<Device>(json, path, {"id", "name", "attributes", "channels", "devices"}, ids);
    if (json.contains("attributes")) {
        device.attributes = readAttributes(json["attributes"], path + "/attributes");
    }
    if (json.contains("channels")) {
        const Json& channels = expectArray(json["channels"], path + "/channels");
        std::set<std::string> names;
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const std::string channelPath = path + "/channels" + indexStep(i);
            device.channels.push_back(readChannel(channels[i], channelPath, ids));
            if (!names.insert(device.channels.back().name).second) {
                refuse(channelPath + "/name", "duplicate channel name " + inQuotes(device.channels.back().name));
            }
        }
    }
    if (json.contains("devices")) {
        device.devices = readDevices(json["devices"], path + "/devices", ids);
    }
    return device;
}

SeedLoader::Channel SeedLoader::readChannel(const Json& json, const std::string& path,
                                            std::set<std::uint64_t>& ids) const
{
    Channel channel = readNode<Channel>(json, path, {"id", "name", "kind", "value", "alarm"}, ids);
    if (!json.contains("kind")) {
        refuse(path, "missing member \"kind\"");
    }
    if (!json["kind"].is_string()) {
        refuse(path + "/kind", "expected a string");
    }
    const std::string kind = json["kind"].get<std::string>();
    channel.value = readValue(json.contains("value") ? json["value"] : Json(), path + "/value", kind);
    if (!channel.value.is_valid()) {
        refuse(path + "/kind", "unknown kind " + inQuotes(kind));
    }
    if (json.contains("alarm")) {
        channel.alarm = readAlarm(json["alarm"], path + "/alarm");
        if (json["alarm"].contains("active")) {
            channel.activeAlarms = readActiveAlarms(json["alarm"]["active"], path + "/alarm/active");
        }
    }
    return channel;
}

std::uint64_t SeedLoader::readId(const Json& json, const std::string& path, std::set<std::uint64_t>& ids) const
{
    if (!json.contains("id")) {
        return 0;
    }
    const Json& id = json["id"];
    if (!id.is_number_unsigned()) {
        refuse(path + "/id", "expected a positive integer");
    }
    const auto value = id.get<std::uint64_t>();
    if (value == 0 || value == ~std::uint64_t{0}) {
        refuse(path + "/id", "id " + std::to_string(value) + " is reserved");
    }
    if (!ids.insert(value).second) {
        refuse(path + "/id", "duplicate id " + std::to_string(value));
    }
    return value;
}

std::string SeedLoader::readName(const Json& json, const std::string& path) const
{
    if (!json.contains("name")) {
        refuse(path, "missing member \"name\"");
    }
    if (!json["name"].is_string() || json["name"].get<std::string>().empty()) {
        refuse(path + "/name", "expected a non-empty string");
    }
    return json["name"].get<std::string>();
}

std::map<DeviceAttribute, std::string> SeedLoader::readAttributes(const Json& json, const std::string& path) const
{
    if (!json.is_object()) {
        refuse(path, "expected an object");
    }
    std::map<DeviceAttribute, std::string> attributes;
    for (const auto& [key, text] : json.items()) {
        DeviceAttribute attribute{};
        if (!parseAttributeKey(key, attribute)) {
            refuse(path + pointerStep(key), "unknown attribute " + inQuotes(key));
        }
        if (!text.is_string()) {
            refuse(path + pointerStep(key), "expected a string");
        }
        if (!attributes.emplace(attribute, text.get<std::string>()).second) {
            refuse(path + pointerStep(key), "attribute given twice");
        }
    }
    return attributes;
}

// The value of a channel of that kind; an empty value for an unknown kind.
// A missing value (null) is the kind's zero.
zu::CValue SeedLoader::readValue(const Json& json, const std::string& path, const std::string& kind) const
{
    const bool absent = json.is_null();
    if (kind == "bool") {
        return zu::CValue(absent ? false : readBool(json, path));
    }
    if (kind == "int32") {
        return zu::CValue(static_cast<std::int32_t>(absent ? 0
                                                           : readInteger(json, path,
                                                                         std::numeric_limits<std::int32_t>::min(),
                                                                         std::numeric_limits<std::int32_t>::max())));
    }
    if (kind == "uint32") {
        return zu::CValue(static_cast<std::uint32_t>(
            absent ? 0 : readInteger(json, path, 0, std::numeric_limits<std::uint32_t>::max())));
    }
    if (kind == "float") {
        return zu::CValue(absent ? 0.0f : readFloat(json, path));
    }
    if (kind == "string") {
        if (!absent && !json.is_string()) {
            refuse(path, "expected a string");
        }
        return zu::CValue(absent ? std::string() : json.get<std::string>());
    }
    return {};
}

ChannelAlarmSettings SeedLoader::readAlarm(const Json& json, const std::string& path) const
{
    expectObject(json, path, {"enabled", "thresholds", "thresholdEnabled", "hysteresis", "level", "active"});
    ChannelAlarmSettings alarm;
    if (json.contains("enabled")) {
        alarm.enabled = readBool(json["enabled"], path + "/enabled");
    }
    if (json.contains("thresholds")) {
        const Json& thresholds = expectArray(json["thresholds"], path + "/thresholds");
        if (thresholds.size() != alarm.thresholds.size()) {
            refuse(path + "/thresholds", "expected exactly 4 numbers");
        }
        for (std::size_t i = 0; i < alarm.thresholds.size(); ++i) {
            alarm.thresholds[i] = readFloat(thresholds[i], path + "/thresholds" + indexStep(i));
        }
    }
    if (json.contains("thresholdEnabled")) {
        alarm.thresholdEnabled = readBool(json["thresholdEnabled"], path + "/thresholdEnabled");
    }
    if (json.contains("hysteresis")) {
        alarm.hysteresis = readFloat(json["hysteresis"], path + "/hysteresis");
    }
    if (json.contains("level")) {
        alarm.level = static_cast<LevelAlarm>(readInteger(json["level"], path + "/level",
                                                          std::numeric_limits<std::int32_t>::min(),
                                                          std::numeric_limits<std::int32_t>::max()));
    }
    return alarm;
}

std::vector<zu::CAlarmTrigger> SeedLoader::readActiveAlarms(const Json& json, const std::string& path) const
{
    const Json& active = expectArray(json, path);
    std::vector<zu::CAlarmTrigger> triggers;
    std::set<std::uint32_t> codes;
    for (std::size_t i = 0; i < active.size(); ++i) {
        triggers.push_back(readTrigger(active[i], path + indexStep(i)));
        if (!codes.insert(triggers.back().code).second) {
            refuse(path + indexStep(i) + "/code", "duplicate alarm code " + std::to_string(triggers.back().code));
        }
    }
    return triggers;
}

zu::CAlarmTrigger SeedLoader::readTrigger(const Json& json, const std::string& path) const
{
    expectObject(json, path, {"code", "flag", "threshold"});
    if (!json.contains("code")) {
        refuse(path, "missing member \"code\"");
    }
    zu::CAlarmTrigger trigger;
    trigger.code = static_cast<std::uint32_t>(
        readInteger(json["code"], path + "/code", 0, std::numeric_limits<std::uint32_t>::max()));
    if (json.contains("flag")) {
        trigger.flag = static_cast<std::uint8_t>(
            readInteger(json["flag"], path + "/flag", 0, std::numeric_limits<std::uint8_t>::max()));
    }
    if (json.contains("threshold")) {
        trigger.threshold = readFloat(json["threshold"], path + "/threshold");
    }
    return trigger;
}

const SeedLoader::Json& SeedLoader::expectObject(const Json& json, const std::string& path,
                                                 std::initializer_list<const char*> members) const
{
    if (!json.is_object()) {
        refuse(path, "expected an object");
    }
    for (const auto& item : json.items()) {
        bool known = false;
        for (const char* member : members) {
            known = known || item.key() == member;
        }
        if (!known) {
            refuse(path + pointerStep(item.key()), "unknown member " + inQuotes(item.key()));
        }
    }
    return json;
}

const SeedLoader::Json& SeedLoader::expectArray(const Json& json, const std::string& path) const
{
    if (!json.is_array()) {
        refuse(path, "expected an array");
    }
    return json;
}

bool SeedLoader::readBool(const Json& json, const std::string& path) const
{
    if (!json.is_boolean()) {
        refuse(path, "expected true or false");
    }
    return json.get<bool>();
}

float SeedLoader::readFloat(const Json& json, const std::string& path) const
{
    if (!json.is_number()) {
        refuse(path, "expected a number");
    }
    const auto value = json.get<double>();
    if (std::fabs(value) > std::numeric_limits<float>::max()) {
        refuse(path, "number out of range for a float");
    }
    return static_cast<float>(value);
}

std::int64_t SeedLoader::readInteger(const Json& json, const std::string& path, std::int64_t min,
                                     std::int64_t max) const
{
    const std::string range = "expected an integer from " + std::to_string(min) + " to " + std::to_string(max);
    if (json.is_number_unsigned()) {
        const auto value = json.get<std::uint64_t>();
        if (value > static_cast<std::uint64_t>(max)) {
            refuse(path, range);
        }
        return static_cast<std::int64_t>(value);
    }
    if (!json.is_number_integer() || json.get<std::int64_t>() < min || json.get<std::int64_t>() > max) {
        refuse(path, range);
    }
    return json.get<std::int64_t>();
}

} // namespace cdsapi
