#include <orv/modbus/ModbusMapEntry.h>

#include <orv/logging/Logger.h>
#include <orv/modbus/ModbusHelpers.h>

#include <stdexcept>

namespace orv::modbus {

ModbusMapEntry::ModbusMapEntry(uint16_t address, bool writable, uint16_t size, const std::string& name,
                               const std::string& description)
    : m_address(address)
    , m_writable(writable)
    , m_size(size)
    , m_pMapping(nullptr)
    , m_mapped(false)
    , m_name(name)
    , m_description(description)
{
    if (m_size == 0) {
        throw std::runtime_error("Bad definition of modbus map entry at address " + toHex(address)
                                 + ": Size must be strictly positive.");
    }
}

ModbusMapEntry::~ModbusMapEntry() = default;

void ModbusMapEntry::setByteOrder(ByteOrder /*order*/)
{
}

void ModbusMapEntry::setMapping(modbus_mapping_t* mapping)
{
    if (mapping != nullptr) {
        auto logger = orv::logging::getLogger("ModbusServer");
        SPDLOG_LOGGER_DEBUG(logger, "m_pMapping ptr not null");
    }
    attachMapping(mapping);
}

bool ModbusMapEntry::isMapped() const
{
    return m_mapped;
}

bool ModbusMapEntry::isAvailable() const
{
    return true;
}

uint16_t ModbusMapEntry::getAddress() const
{
    return m_address;
}

bool ModbusMapEntry::isWritable() const
{
    return m_writable;
}

uint16_t ModbusMapEntry::getSize() const
{
    return m_size;
}

const std::string& ModbusMapEntry::getName() const
{
    return m_name;
}

const std::string& ModbusMapEntry::getDescription() const
{
    return m_description;
}

void ModbusMapEntry::lock()
{
    m_mutex.lock();
}

void ModbusMapEntry::unlock()
{
    m_mutex.unlock();
}

void ModbusMapEntry::attachMapping(modbus_mapping_t* mapping)
{
    m_pMapping = mapping;
    m_mapped = mapping != nullptr;
}

modbus_mapping_t* ModbusMapEntry::mappedTables() const
{
    return m_mapped ? m_pMapping.load() : nullptr;
}

} // namespace orv::modbus
