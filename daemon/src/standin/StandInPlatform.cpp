#include "StandInPlatform.h"

#include <cdsapi/DataStore.h>

#include <stdexcept>

namespace orv::modbusd {

StandInPlatform::StandInPlatform(StandInSettings settings, std::filesystem::path configFile)
    : m_settings(std::move(settings))
    , m_configFile(std::move(configFile))
{
    if (m_settings.seedFile) {
        cdsapi::DataStore::instance().loadSeedFile(m_settings.seedFile->string());
    }
}

void StandInPlatform::start()
{
    if (!m_settings.simulator.enabled || m_simulator) {
        return;
    }
    try {
        m_simulator.emplace(m_settings.simulator);
    } catch (const std::exception& error) {
        throw std::runtime_error(m_configFile.string() + ": /dataStore/simulator/channels: " + error.what());
    }
}

} // namespace orv::modbusd
