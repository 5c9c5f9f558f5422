#pragma once

#include <orv/modbus/ModbusMap.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace orv::modbus {

// The process-wide registry of maps. Each map comes from a plug-in library
// exporting
//     extern "C" orv::modbus::ModbusMap* createMap();
// which returns a new map whose ownership passes to the registry. A map is
// created once per identifier and kept for the life of the process. The
// registry sets up the data-store client when it is created, so that the
// client outlives the maps' data-store accessors at exit.
class SupportedMaps {
public:
    using CreateMapFunction = ModbusMap* (*)();

    static SupportedMaps& getInstance();

    // Loads `libraryPath` and registers the map its factory builds, unless
    // a map is registered under `mapId` already. Throws std::runtime_error
    // when the library or its "createMap" symbol cannot be loaded; an
    // exception of the factory passes through unchanged.
    void createMap(const std::string& mapId, const std::string& libraryPath);

    // Throws std::runtime_error "Map <mapId> not available" for an unknown
    // identifier. Not synchronised with createMap: maps are created before
    // they are served.
    std::shared_ptr<ModbusMap> getMap(const std::string& mapId) const;

    static std::shared_ptr<ModbusMap> getMapping(const std::string& mapId, const std::string& libraryPath);
    static void createMapping(const std::string& mapId, const std::string& libraryPath);

    SupportedMaps(const SupportedMaps&) = delete;
    SupportedMaps& operator=(const SupportedMaps&) = delete;

private:
    SupportedMaps();

    std::map<std::string, std::shared_ptr<ModbusMap>> m_maps;
    std::mutex m_mutex;
};

} // namespace orv::modbus
