// The map's export as a serialisation tree and as CSV, apart from the
// request path: cxxtools' headers still need C++17.

#include <orv/modbus/ModbusMap.h>

#include <initializer_list>
#include <ostream>
#include <sstream>
#include <vector>

#include <cxxtools/csvformatter.h>
#include <cxxtools/decomposer.h>
#include <cxxtools/serializationinfo.h>

namespace orv::modbus {

void ModbusMap::fillSerializationInfo(cxxtools::SerializationInfo& si, bool oneBased) const
{
    if (!isMapAvailable()) {
        return;
    }
    ModbusMapEntry::g_serializationAddressShift = oneBased;
    std::vector<const ModbusMapEntry*> entries;
    entries.reserve(m_legacyRegisters.size() + m_inputRegisters.size() + m_holdingRegisters.size()
                    + m_discretes.size());
    for (const EntryIndex* index : {&m_legacyRegisters, &m_inputRegisters, &m_holdingRegisters, &m_discretes}) {
        for (const auto& [address, entry] : *index) {
            // A multi-register entry holds several consecutive keys.
            if (entries.empty() || entries.back() != entry.get()) {
                entries.push_back(entry.get());
            }
        }
    }
    si <<= entries;
}

void ModbusMap::serializeIntoCsv(std::ostream& os, bool oneBased) const
{
    if (!isMapAvailable()) {
        os << notAvailableUserMessage() << '\n';
        return;
    }
    cxxtools::SerializationInfo si;
    fillSerializationInfo(si, oneBased);
    cxxtools::CsvFormatter formatter(os);
    for (const char* column : {oneBased ? "address (hex, 1-based)" : "address (hex, 0-based)",
                               oneBased ? "address (dec, 1-based)" : "address (dec, 0-based)", "type",
                               "size in bytes", "number of modbus registers", "writable", "representation", "name",
                               "description", "unit", "status to 0", "status to 1", "available", "value"}) {
        formatter.selectColumn(column);
    }
    formatter.delimiter(cxxtools::String(";"));
    cxxtools::IDecomposer::formatEach(si, formatter);
    formatter.finish();
}

std::string ModbusMap::getCsv(bool oneBased) const
{
    std::ostringstream stream;
    stream << "SEP=" << ";" << '\n';
    serializeIntoCsv(stream, oneBased);
    return stream.str();
}

} // namespace orv::modbus
