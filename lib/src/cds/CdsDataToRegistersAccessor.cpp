#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>

#include "ServerLogger.h"

#include <utility>

namespace orv::modbus::cds {

CdsDataToRegistersAccessor::CdsDataToRegistersAccessor(uint16_t size, const std::vector<CdsDataAccessor*>& accessors,
                                                       ToRegisters toRegisters, FromRegisters fromRegisters,
                                                       ToText toText, const std::string& representation,
                                                       MissingAccessorPolicy policy)
    : CdsCompositeAccessorBase(size, accessors, policy)
    , m_toRegisters(std::move(toRegisters))
    , m_fromRegisters(std::move(fromRegisters))
    , m_toText(std::move(toText))
    , m_representation(representation)
{
    listenToCds(this);
}

CdsDataToRegistersAccessor::~CdsDataToRegistersAccessor()
{
    stopListening();
}

void CdsDataToRegistersAccessor::setData(const std::vector<uint16_t>& data)
{
    if (!isDataAvailable() || !m_fromRegisters) {
        return;
    }
    const auto values = m_fromRegisters(data);
    for (std::size_t index = 0; index < values.size(); ++index) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Value set to CDS:{}", values[index].as_uint32());
        writeValue(index, values[index]);
    }
}

std::vector<uint16_t> CdsDataToRegistersAccessor::getData() const
{
    if (!isDataAvailable() || !m_toRegisters) {
        return {};
    }
    return m_toRegisters(updateCachedValues());
}

std::string CdsDataToRegistersAccessor::getDataRepresentation() const
{
    if (!m_representation.empty()) {
        return m_representation;
    }
    return getSize() == 1 ? "UInt16" : "See Description";
}

std::string CdsDataToRegistersAccessor::getStrValue() const
{
    if (!isDataAvailable()) {
        return {};
    }
    if (m_toText) {
        return m_toText(updateCachedValues());
    }
    return m_toRegisters ? registersText() : std::string();
}

void CdsDataToRegistersAccessor::callbackCdsEvent(const zu::CValue& value, unsigned int index)
{
    const auto cache = storeInCache(value, index);
    publish([&] { return m_toRegisters(cache); });
}

std::string CdsDataToRegistersAccessor::registersText() const
{
    const auto registers = getData();
    switch (registers.size()) {
    case 1:
        return std::to_string(registers[0]);
    case 2:
        // The second register twice: this is the text the export has
        // always shown for a two-register composite.
        return std::to_string(registers[1]) + std::to_string(registers[1]);
    default:
        return {};
    }
}

} // namespace orv::modbus::cds
