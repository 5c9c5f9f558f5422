#pragma once
// The configuration's "dataStore" object: what the stand-in data store is
// seeded with and how the simulator moves it. On the gateway the platform's
// own services fill the store, and none of this is read.

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orv::common {
class JsonNode;
}

namespace orv::modbusd {

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

struct StandInSettings {
    std::optional<std::filesystem::path> seedFile;
    SimulatorSettings simulator;

    // Reads the "dataStore" object; relative seed paths are taken from
    // `base`. Throws as JsonNode does, naming file and key.
    static StandInSettings read(const common::JsonNode& dataStore, const std::filesystem::path& base);
};

} // namespace orv::modbusd
