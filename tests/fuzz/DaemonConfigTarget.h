#pragma once
// Fuzz target of the daemon's configuration reader, DaemonConfig::load:
// arbitrary text is read as the configuration file, beside the shipped
// factory defaults. A refusal must be a std::runtime_error naming the file;
// an accepted configuration must serve something, every unit naming a loaded
// map by a unit id Modbus allows.

#include "FuzzFailure.h"

#include "DaemonConfig.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace orv::modbus::fuzz {

class DaemonConfigTarget {
public:
    enum class Outcome { Accepted, Refused };

    static Outcome run(const uint8_t* data, std::size_t size)
    {
        const auto& file = configFile();
        std::ofstream(file, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                      static_cast<std::streamsize>(size));
        modbusd::DaemonConfig config;
        try {
            config = modbusd::DaemonConfig::load(file, std::filesystem::path(ORV_FUZZ_DEFAULTS_FILE));
        } catch (const std::exception& error) {
            const std::string message = error.what();
            require(dynamic_cast<const std::runtime_error*>(&error) != nullptr,
                    "a configuration was refused with an exception that is no std::runtime_error: " + message);
            require(message.rfind(file.string() + ": ", 0) == 0, "the refusal does not name the file: " + message);
            return Outcome::Refused;
        }
        checkAccepted(config);
        return Outcome::Accepted;
    }

private:
    static constexpr unsigned g_highestUnitId = 247;

    // One file per process, removed at exit.
    static const std::filesystem::path& configFile()
    {
        static const struct File {
            File()
                : folder(std::filesystem::temp_directory_path() / ("orv-config-fuzz-" + std::to_string(::getpid())))
            {
                std::filesystem::create_directories(folder);
            }
            ~File() { std::filesystem::remove_all(folder); }
            std::filesystem::path folder;
            std::filesystem::path path = folder / "orv-gw-modbusd.json";
        } file;
        return file.path;
    }

    static void checkAccepted(const modbusd::DaemonConfig& config)
    {
        require(!config.tcpUnits.empty() || !config.rtuUnits.empty(), "an accepted configuration serves no unit");
        for (const auto* units : {&config.tcpUnits, &config.rtuUnits}) {
            for (const auto& unit : *units) {
                require(unit.unitId <= g_highestUnitId, "unit id " + std::to_string(unit.unitId) + " was accepted");
                require(std::any_of(config.maps.begin(), config.maps.end(),
                                    [&](const auto& map) { return map.id == unit.mapId; }),
                        "unit " + std::to_string(unit.unitId) + " names the unknown map " + unit.mapId);
            }
        }
        require(config.statisticsInterval.count() >= 1, "a statistics interval below one second was accepted");
    }
};

} // namespace orv::modbus::fuzz
