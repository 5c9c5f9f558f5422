#include "DaemonConfig.h"

#include "JsonNode.h"

#include <orv/modbus/ModbusDefaultSettings.h>

#include <climits>
#include <regex>
#include <set>
#include <stdexcept>

namespace orv::modbusd {
namespace {

constexpr std::int64_t g_maxUnitId = 247;
constexpr std::int64_t g_defaultTcpPort = 1502;

std::filesystem::path resolve(const std::filesystem::path& base, const std::string& path)
{
    const std::filesystem::path given(path);
    return given.is_absolute() ? given : base / given;
}

// What a factory-defaults file says about one serial setting.
struct FactorySetting {
    std::int32_t minimum;
    std::int32_t maximum;
    std::int32_t value;
};

// Where the settings the configuration leaves out come from, and the ranges
// that bound the ones it gives.
struct ServerDefaults {
    const std::filesystem::path& configFile;
    const std::optional<modbus::ModbusDefaultSettings>& factory;

    bool tcpEnabled(bool builtIn) const { return factory ? factory->tcpEnabled : builtIn; }
    bool rtuEnabled() const { return factory && factory->rtuEnabled; }
};

// A serial setting as configured, inside the factory range when there is
// one (the range is checked first, so that its message is the one a user
// sees), or else the factory default, or else the built-in one.
std::int64_t serialSetting(const std::optional<JsonNode>& rtu, const std::string& key, std::int64_t minimum,
                           std::int64_t maximum, std::int64_t builtIn, const ServerDefaults& defaults,
                           FactorySetting (*factorySetting)(const modbus::ModbusDefaultSettings&))
{
    if (!rtu || !rtu->has(key)) {
        return defaults.factory ? factorySetting(*defaults.factory).value : builtIn;
    }
    const JsonNode node = rtu->member(key);
    if (defaults.factory) {
        const FactorySetting allowed = factorySetting(*defaults.factory);
        const std::int64_t value = node.integer(INT32_MIN, INT32_MAX);
        if (value < allowed.minimum || value > allowed.maximum) {
            throw std::runtime_error(defaults.configFile.string() + ": server.rtu." + key + ": "
                                     + std::to_string(value) + " is outside " + std::to_string(allowed.minimum)
                                     + ".." + std::to_string(allowed.maximum) + " allowed by "
                                     + defaults.factory->filePath);
        }
    }
    return node.integer(minimum, maximum);
}

void readTcp(const std::optional<JsonNode>& tcp, modbus::ModbusServerSettings& server, const ServerDefaults& defaults)
{
    // Without a defaults file, a "tcp" object means TCP is wanted.
    server.tcpEnabled = defaults.tcpEnabled(tcp.has_value());
    server.tcpPort = g_defaultTcpPort;
    if (!tcp) {
        return;
    }
    tcp->expectOnlyKeys({"enabled", "port"});
    server.tcpEnabled = tcp->booleanOr("enabled", server.tcpEnabled);
    server.tcpPort = static_cast<std::uint32_t>(tcp->integerOr("port", 1, 65535, g_defaultTcpPort));
}

void readRtuDevice(const JsonNode& rtu, modbus::ModbusServerSettings& server)
{
    if (const auto device = rtu.optionalMember("device")) {
        server.rtuDevice = device->text();
        // Checked here, so that a missing line fails before the TCP port opens.
        if (server.rtuEnabled && !std::filesystem::exists(server.rtuDevice)) {
            device->fail("no serial device \"" + server.rtuDevice + "\"");
        }
    } else if (server.rtuEnabled) {
        rtu.member("device");
    }
}

void readRtu(const std::optional<JsonNode>& rtu, const JsonNode& serverNode, modbus::ModbusServerSettings& server,
             const ServerDefaults& defaults)
{
    server.rtuEnabled = defaults.rtuEnabled();
    if (rtu) {
        rtu->expectOnlyKeys({"enabled", "device", "baudRate", "parity", "dataBits", "stopBits"});
        server.rtuEnabled = rtu->booleanOr("enabled", server.rtuEnabled);
        readRtuDevice(*rtu, server);
        server.dataBits = static_cast<int>(rtu->integerOr("dataBits", 5, 8, 8));
    } else if (server.rtuEnabled) {
        serverNode.member("rtu");
    }
    using modbus::ModbusDefaultSettings;
    server.baudRate = static_cast<common::BaudRate>(
        serialSetting(rtu, "baudRate", 1, 8, 4, defaults, [](const ModbusDefaultSettings& factory) {
            return FactorySetting{factory.baudMin, factory.baudMax, factory.baud};
        }));
    server.parity = static_cast<common::Parity>(
        serialSetting(rtu, "parity", 0, 3, 0, defaults, [](const ModbusDefaultSettings& factory) {
            return FactorySetting{factory.parityMin, factory.parityMax, factory.parity};
        }));
    server.stopBits = static_cast<int>(
        serialSetting(rtu, "stopBits", 1, 2, 1, defaults, [](const ModbusDefaultSettings& factory) {
            return FactorySetting{factory.stopBitsMin, factory.stopBitsMax, factory.stopBits};
        }));
}

std::vector<MapPlugin> readMaps(const JsonNode& maps, const std::filesystem::path& base)
{
    std::vector<MapPlugin> result;
    std::set<std::string> ids;
    for (const JsonNode& map : maps.elements()) {
        map.expectOnlyKeys({"id", "plugin"});
        MapPlugin plugin{map.member("id").text(), resolve(base, map.member("plugin").text())};
        if (!ids.insert(plugin.id).second) {
            map.member("id").fail("map \"" + plugin.id + "\" is defined twice");
        }
        result.push_back(std::move(plugin));
    }
    return result;
}

std::vector<std::string> readPatterns(const JsonNode& patterns)
{
    std::vector<std::string> result;
    for (const JsonNode& pattern : patterns.elements()) {
        std::string text = pattern.text();
        try {
            std::regex compiled(text);
        } catch (const std::regex_error& error) {
            pattern.fail("bad regular expression \"" + text + "\": " + error.what());
        }
        result.push_back(std::move(text));
    }
    return result;
}

UnitAssignment readUnit(const JsonNode& unit, const std::set<std::string>& mapIds, bool withPatterns)
{
    unit.expectOnlyKeys({"unitId", "map", "oneBasedAddresses", "readOnly", "skipReadChecks", "allowedAddresses"});
    if (!withPatterns && unit.has("allowedAddresses")) {
        unit.member("allowedAddresses").fail("client address patterns apply to TCP units only");
    }
    UnitAssignment result;
    result.unitId = static_cast<unsigned>(unit.member("unitId").integer(0, g_maxUnitId));
    const JsonNode map = unit.member("map");
    result.mapId = map.text();
    if (!mapIds.contains(result.mapId)) {
        map.fail("no map \"" + result.mapId + "\" in \"maps\"");
    }
    result.oneBasedAddresses = unit.booleanOr("oneBasedAddresses", false);
    result.readOnly = unit.booleanOr("readOnly", false);
    result.skipReadChecks = unit.booleanOr("skipReadChecks", false);
    if (withPatterns) {
        result.allowedAddresses = readPatterns(unit.member("allowedAddresses"));
    }
    return result;
}

std::vector<UnitAssignment> readUnits(const std::optional<JsonNode>& units, const std::vector<MapPlugin>& maps,
                                      bool withPatterns)
{
    std::vector<UnitAssignment> result;
    if (!units) {
        return result;
    }
    std::set<std::string> mapIds;
    for (const MapPlugin& map : maps) {
        mapIds.insert(map.id);
    }
    std::set<unsigned> seen;
    for (const JsonNode& unit : units->elements()) {
        UnitAssignment assignment = readUnit(unit, mapIds, withPatterns);
        if (!seen.insert(assignment.unitId).second) {
            unit.member("unitId").fail("unit id " + std::to_string(assignment.unitId) + " is assigned twice");
        }
        result.push_back(std::move(assignment));
    }
    return result;
}

// A daemon that opens no front end, or one that answers no unit id, would run
// without ever serving a request: almost certainly a configuration mistake.
void checkSomethingIsServed(const JsonNode& root, const DaemonConfig& config)
{
    const JsonNode server = root.member("server");
    if (!config.server.tcpEnabled && !config.server.rtuEnabled) {
        server.fail("neither \"tcp\" nor \"rtu\" is enabled: nothing to serve");
    }
    if (config.server.tcpEnabled && config.tcpUnits.empty()) {
        server.fail("\"tcp\" is enabled but \"tcpUnits\" assigns no unit id");
    }
    if (config.server.rtuEnabled && config.rtuUnits.empty()) {
        server.fail("\"rtu\" is enabled but \"rtuUnits\" assigns no unit id");
    }
}

SimulatorSettings readSimulator(const JsonNode& simulator)
{
    simulator.expectOnlyKeys({"enabled", "periodMs", "channels", "powerDistribution"});
    SimulatorSettings result;
    result.enabled = simulator.booleanOr("enabled", false);
    result.period = std::chrono::milliseconds(simulator.integerOr("periodMs", 10, 3'600'000, 1000));
    if (const auto channels = simulator.optionalMember("channels")) {
        for (const JsonNode& channel : channels->elements()) {
            channel.expectOnlyKeys({"device", "channel", "min", "max"});
            result.channels.push_back({channel.member("device").text(), channel.member("channel").text(),
                                       static_cast<float>(channel.member("min").number()),
                                       static_cast<float>(channel.member("max").number())});
        }
    }
    if (const auto service = simulator.optionalMember("powerDistribution")) {
        service->expectOnlyKeys({"device", "inServiceAfterMs"});
        result.powerDistribution = SimulatedService{
            service->member("device").text(),
            std::chrono::milliseconds(service->integerOr("inServiceAfterMs", 0, 86'400'000, 20'000))};
    }
    return result;
}

// The option wins over the file's own "defaultsFile"; a file that cannot be
// used stops everything here, before any port is opened.
std::optional<modbus::ModbusDefaultSettings> readDefaults(const JsonNode& root, const std::filesystem::path& base,
                                                          std::optional<std::filesystem::path>& path)
{
    if (!path) {
        if (const auto named = root.optionalMember("defaultsFile")) {
            path = resolve(base, named->text());
        }
    }
    if (!path) {
        return std::nullopt;
    }
    return modbus::ModbusDefaultSettings(path->string());
}

} // namespace

DaemonConfig DaemonConfig::load(const std::filesystem::path& file,
                                const std::optional<std::filesystem::path>& defaultsFile)
{
    const nlohmann::json document = JsonNode::parseFile(file);
    const JsonNode root(document, file.string(), "");
    const std::filesystem::path base = file.parent_path();

    DaemonConfig config;
    config.server.name = "orv-gw-modbusd";
    config.server.tcpEnabled = false;
    config.server.rtuEnabled = false;
    root.expectOnlyKeys({"server", "pluginDirectory", "maps", "tcpUnits", "rtuUnits", "dataStore",
                         "statisticsIntervalSeconds", "defaultsFile"});
    config.defaultsFile = defaultsFile;
    const std::optional<modbus::ModbusDefaultSettings> factory = readDefaults(root, base, config.defaultsFile);
    const ServerDefaults defaults{file, factory};
    const JsonNode server = root.member("server");
    server.expectOnlyKeys({"tcp", "rtu"});
    readTcp(server.optionalMember("tcp"), config.server, defaults);
    readRtu(server.optionalMember("rtu"), server, config.server, defaults);
    const auto pluginDirectory = root.optionalMember("pluginDirectory");
    config.maps = readMaps(root.member("maps"), pluginDirectory ? resolve(base, pluginDirectory->text()) : base);
    config.tcpUnits = readUnits(root.optionalMember("tcpUnits"), config.maps, true);
    config.rtuUnits = readUnits(root.optionalMember("rtuUnits"), config.maps, false);
    checkSomethingIsServed(root, config);
    if (const auto dataStore = root.optionalMember("dataStore")) {
        dataStore->expectOnlyKeys({"seedFile", "simulator"});
        if (const auto seed = dataStore->optionalMember("seedFile")) {
            config.seedFile = resolve(base, seed->text());
        }
        if (const auto simulator = dataStore->optionalMember("simulator")) {
            config.simulator = readSimulator(*simulator);
        }
    }
    config.statisticsInterval = std::chrono::seconds(root.integerOr("statisticsIntervalSeconds", 1, 86400, 60));
    return config;
}

} // namespace orv::modbusd
