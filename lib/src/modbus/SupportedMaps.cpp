#include <orv/modbus/SupportedMaps.h>

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "ServerLogger.h"

#include <stdexcept>

#include <dlfcn.h>
#include <fmt/format.h>

namespace orv::modbus {

namespace {

constexpr const char* g_factorySymbol = "createMap";

// Closes the plug-in handle however createMap leaves. The library stays
// mapped (RTLD_NODELETE), so the code of the maps it built stays valid.
struct LibraryHandle {
    void* m_pHandle;

    ~LibraryHandle()
    {
        dlclose(m_pHandle);
    }
};

std::string loaderError()
{
    const char* error = dlerror();
    return error != nullptr ? error : "";
}

SupportedMaps::CreateMapFunction findFactory(void* handle)
{
    dlerror();
    void* symbol = dlsym(handle, g_factorySymbol);
    if (const char* error = dlerror(); error != nullptr) {
        throw std::runtime_error(std::string("Couldn't get ") + g_factorySymbol + " symbol from library\n" + error);
    }
    return reinterpret_cast<SupportedMaps::CreateMapFunction>(symbol);
}

} // namespace

SupportedMaps::SupportedMaps()
{
    // The registered maps are destroyed at exit, after everything that was
    // set up after this instance. They log, and their data-store accessors
    // leave their subscriptions, so the logging library and the data-store
    // client must outlive this instance: setting them up first makes them be
    // torn down last.
    serverLogger();
    cds::CdsInBandAccessor::getInstance();
}

SupportedMaps& SupportedMaps::getInstance()
{
    static SupportedMaps instance;
    return instance;
}

void SupportedMaps::createMap(const std::string& mapId, const std::string& libraryPath)
{
    std::lock_guard lock(m_mutex);
    if (m_maps.contains(mapId)) {
        return;
    }
    void* handle = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
    if (handle == nullptr) {
        throw std::runtime_error("Couldn't dlopen library " + libraryPath + "\n" + loaderError());
    }
    const LibraryHandle library{handle};
    const CreateMapFunction factory = findFactory(library.m_pHandle);
    m_maps[mapId] = std::shared_ptr<ModbusMap>(factory());
}

std::shared_ptr<ModbusMap> SupportedMaps::getMap(const std::string& mapId) const
{
    const auto found = m_maps.find(mapId);
    if (found == m_maps.end()) {
        throw std::runtime_error(fmt::format("Map {} not available", mapId));
    }
    return found->second;
}

std::shared_ptr<ModbusMap> SupportedMaps::getMapping(const std::string& mapId, const std::string& libraryPath)
{
    getInstance().createMap(mapId, libraryPath);
    return getInstance().getMap(mapId);
}

void SupportedMaps::createMapping(const std::string& mapId, const std::string& libraryPath)
{
    getInstance().createMap(mapId, libraryPath);
}

} // namespace orv::modbus
