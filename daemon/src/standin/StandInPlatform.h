#pragma once
// What stands in for the gateway's platform while the daemon runs off it:
// the stand-in data store, loaded from a seed file, and the simulator that
// moves its values as the gateway's drivers would. Everything else in the
// daemon is what runs against the real platform libraries; there, this
// component is left out and the store is the platform's own.

#include "Simulator.h"
#include "StandInSettings.h"

#include <filesystem>
#include <optional>

namespace orv::modbusd {

class StandInPlatform {
public:
    // Loads the seed into the stand-in store; a bad seed throws naming its
    // file and JSON pointer.
    StandInPlatform(StandInSettings settings, std::filesystem::path configFile);

    // Starts the simulator, when enabled, until this object goes away. Its
    // channels are looked up in the loaded store, so a channel the seed
    // lacks is only found here; it is reported against the configuration.
    void start();

private:
    StandInSettings m_settings;
    std::filesystem::path m_configFile;
    std::optional<Simulator> m_simulator;
};

} // namespace orv::modbusd
