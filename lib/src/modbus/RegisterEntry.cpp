#include <orv/modbus/RegisterEntry.h>

#include "EntryAccessor.h"
#include "RegisterTables.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/Registers.h>

#include <utility>

namespace orv::modbus {

template <class Tables>
RegisterEntry<Tables>::RegisterEntry(uint16_t address, RegistersDataAccessor* accessor, bool writable,
                                     const std::string& name, const std::string& description,
                                     const std::string& unit)
    : RegisterEntry(address, std::shared_ptr<RegistersDataAccessor>(accessor), writable, name, description, unit)
{
}

template <class Tables>
RegisterEntry<Tables>::RegisterEntry(uint16_t address, std::shared_ptr<RegistersDataAccessor> accessor,
                                     bool writable, const std::string& name, const std::string& description,
                                     const std::string& unit)
    : ModbusMapEntry(address, writable, accessorSize(accessor.get()), name, description)
    , m_unit(unit)
    , m_pAccessor(std::move(accessor))
{
    requireAccessor(m_pAccessor.get());
    m_pAccessor->setCallback([this](const std::vector<uint16_t>& values) { updateDataFromAccessor(values); });
}

template <class Tables>
RegisterEntry<Tables>::~RegisterEntry()
{
    cutAccessorCallback(*m_pAccessor);
}

template <class Tables>
int RegisterEntry<Tables>::getType() const
{
    return Tables::g_type;
}

template <class Tables>
std::string RegisterEntry<Tables>::getRepresentation() const
{
    return m_pAccessor->getDataRepresentation();
}

template <class Tables>
std::string RegisterEntry<Tables>::getStrValue() const
{
    return m_pAccessor->getStrValue();
}

template <class Tables>
void RegisterEntry<Tables>::setByteOrder(ByteOrder order)
{
    m_pAccessor->setByteOrder(order);
}

template <class Tables>
void RegisterEntry<Tables>::setMapping(modbus_mapping_t* mapping)
{
    attachMapping(mapping);
    if (mapping != nullptr) {
        setValue(m_pAccessor->getData());
    }
}

template <class Tables>
bool RegisterEntry<Tables>::isAvailable() const
{
    return m_pAccessor->isDataAvailable();
}

template <class Tables>
void RegisterEntry<Tables>::updateDataInAccessor()
{
    if (!m_writable || !isMapped()) {
        return;
    }
    // No lock: setData may notify back on this thread, and a notification
    // may store into the tables meanwhile, word by word like this read.
    const auto words = getValue();
    m_pAccessor->setData(words);
    if constexpr (Tables::g_mirrorAfterClientWrite) {
        setValue(words);
    }
}

template <class Tables>
std::vector<uint16_t> RegisterEntry<Tables>::getValue() const
{
    return Tables::g_readTable.read(mappedTables(), m_address, m_size);
}

template <class Tables>
void RegisterEntry<Tables>::setValue(const std::vector<uint16_t>& values)
{
    modbus_mapping_t* tables = mappedTables();
    for (const auto& table : Tables::g_writeTables) {
        table.write(tables, m_address, m_size, values);
    }
}

template <class Tables>
void RegisterEntry<Tables>::updateDataFromAccessor(const std::vector<uint16_t>& values)
{
    // Lock-free, and no virtual call: this may run on the notification
    // thread while the destructor is waiting to cut the callback.
    if (mappedTables() != nullptr) {
        setValue(values);
    }
}

template <class Tables>
std::string RegisterEntry<Tables>::getUnit() const
{
    return m_unit;
}

template class RegisterEntry<InputRegisterTables>;
template class RegisterEntry<HoldingRegisterTables>;
template class RegisterEntry<LegacyRegisterTables>;

} // namespace orv::modbus
