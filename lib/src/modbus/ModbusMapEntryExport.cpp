// What every entry kind exports, apart from the request path: cxxtools'
// headers still need C++17.

#include <orv/modbus/ModbusMapEntry.h>

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

std::string ModbusMapEntry::makeHexAddress(uint16_t address)
{
    return fmt::format("0x{:X}", address);
}

void operator<<=(cxxtools::SerializationInfo& si, const ModbusMapEntry* entry)
{
    entry->fillSerializationInfo(si);
}

} // namespace orv::modbus
