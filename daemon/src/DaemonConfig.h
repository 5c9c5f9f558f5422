#pragma once
// The daemon's configuration file, read once at start-up. Every check is made
// before anything is opened, so that a bad file costs nothing but an error
// message naming the file and the JSON path at fault.

#include <orv/modbus/ModbusServerSettings.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orv::modbusd {

struct MapPlugin {
    std::string id;
    std::filesystem::path library;
};

struct UnitAssignment {
    unsigned unitId = 0;
    std::string mapId;
    bool oneBasedAddresses = false;
    bool readOnly = false;
    bool skipReadChecks = false;
    // Address patterns as written; compiled (and checked) while loading.
    std::vector<std::string> allowedAddresses;
};

struct SimulatedChannel {
    std::string device;
    std::string channel;
    float minimum = 0.0f;
    float maximum = 0.0f;
};

struct SimulatorSettings {
    bool enabled = false;
    std::chrono::milliseconds period{1000};
    std::vector<SimulatedChannel> channels;
};

struct DaemonConfig {
    modbus::ModbusServerSettings server;
    std::vector<MapPlugin> maps;
    std::vector<UnitAssignment> tcpUnits;
    std::vector<UnitAssignment> rtuUnits;
    std::optional<std::filesystem::path> seedFile;
    SimulatorSettings simulator;
    std::chrono::seconds statisticsInterval{60};

    // Reads and checks the file; throws std::runtime_error whose message
    // names the file and the offending key.
    static DaemonConfig load(const std::filesystem::path& file);
};

} // namespace orv::modbusd
