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

// A service the simulator brings into service some time after start, by
// setting its operating-status channel to Running.
struct SimulatedService {
    std::string device;
    std::chrono::milliseconds inServiceAfter{20000};
};

struct SimulatorSettings {
    bool enabled = false;
    std::chrono::milliseconds period{1000};
    std::vector<SimulatedChannel> channels;
    std::optional<SimulatedService> powerDistribution;
};

struct DaemonConfig {
    modbus::ModbusServerSettings server;
    std::vector<MapPlugin> maps;
    std::vector<UnitAssignment> tcpUnits;
    std::vector<UnitAssignment> rtuUnits;
    std::optional<std::filesystem::path> seedFile;
    SimulatorSettings simulator;
    std::chrono::seconds statisticsInterval{60};
    // The factory-defaults file, when one is named: it fills the server
    // settings the file leaves out and bounds the serial settings it gives.
    std::optional<std::filesystem::path> defaultsFile;

    // Reads and checks the file; throws std::runtime_error whose message
    // names the file and the offending key. `defaultsFile`, when given,
    // replaces the file's own "defaultsFile".
    static DaemonConfig load(const std::filesystem::path& file,
                             const std::optional<std::filesystem::path>& defaultsFile = std::nullopt);
};

} // namespace orv::modbusd
