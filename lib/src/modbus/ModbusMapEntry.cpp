#include <orv/modbus/ModbusMapEntry.h>

#include <orv/logging/Logger.h>
#include <orv/modbus/ModbusHelpers.h>

#include <stdexcept>

#include <cxxtools/serializationinfo.h>
#include <fmt/format.h>

namespace orv::modbus {

bool ModbusMapEntry::g_serializationAddressShift = false;

namespace {

const char* typeText(int type)
{
    switch (type) {
    case ModbusMapEntry::g_typeDiscretes:
        return "Discrete";
    case ModbusMapEntry::g_typeHoldingRegisters:
        return "Holding Register";
    default:
        return "Register";
    }
}

} // namespace

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

void ModbusMapEntry::fillSerializationInfo(cxxtools::SerializationInfo& si) const
{
    const bool oneBased = g_serializationAddressShift;
    const unsigned shownAddress = m_address + (oneBased ? 1U : 0U);
    const bool discrete = getType() == g_typeDiscretes;
    // The hexadecimal text is of a 16-bit address: 1-based, the last address
    // shows as 0x0, while the decimal member counts on to 65536.
    si.addMember(oneBased ? "address (hex, 1-based)" : "address (hex, 0-based)")
        <<= makeHexAddress(static_cast<uint16_t>(shownAddress));
    si.addMember(oneBased ? "address (dec, 1-based)" : "address (dec, 0-based)") <<= shownAddress;
    si.addMember("type") <<= typeText(getType());
    si.addMember("size in bytes") <<= discrete ? unsigned{m_size} : m_size * 2U;
    si.addMember("number of modbus registers") <<= m_size;
    si.addMember("writable") <<= m_writable;
    si.addMember("representation") <<= getRepresentation();
    si.addMember("name") <<= m_name;
    si.addMember("description") <<= m_description;
    si.addMember("available") <<= isAvailable();
    si.addMember("value") <<= getStrValue();
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

std::string ModbusMapEntry::makeHexAddress(uint16_t address)
{
    return fmt::format("0x{:X}", address);
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

void operator<<=(cxxtools::SerializationInfo& si, const ModbusMapEntry* entry)
{
    entry->fillSerializationInfo(si);
}

} // namespace orv::modbus
