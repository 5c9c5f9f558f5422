#include <orv/modbus/Discretes.h>

#include "EntryAccessor.h"
#include "ModbusTable.h"

#include <utility>

namespace orv::modbus {

Discretes::Discretes(uint16_t address, DiscretesDataAccessor* accessor, bool writable, const std::string& name,
                     const std::string& description, const std::string& statusTo1Text,
                     const std::string& statusTo0Text)
    : Discretes(address, std::shared_ptr<DiscretesDataAccessor>(accessor), writable, name, description,
                statusTo1Text, statusTo0Text)
{
}

Discretes::Discretes(uint16_t address, std::shared_ptr<DiscretesDataAccessor> accessor, bool writable,
                     const std::string& name, const std::string& description, const std::string& statusTo1Text,
                     const std::string& statusTo0Text)
    : ModbusMapEntry(address, writable, accessorSize(accessor.get()), name, description)
    , m_statusTo1Text(statusTo1Text)
    , m_statusTo0Text(statusTo0Text)
    , m_pAccessor(std::move(accessor))
{
    requireAccessor(m_pAccessor.get());
    m_pAccessor->setCallback([this](const std::vector<uint8_t>& values) { updateDataFromAccessor(values); });
}

Discretes::~Discretes()
{
    cutAccessorCallback(*m_pAccessor);
}

int Discretes::getType() const
{
    return g_typeDiscretes;
}

std::string Discretes::getRepresentation() const
{
    return m_pAccessor->getDataRepresentation();
}

std::string Discretes::getStrValue() const
{
    return m_pAccessor->getStrValue();
}

void Discretes::setMapping(modbus_mapping_t* mapping)
{
    attachMapping(mapping);
    if (mapping != nullptr) {
        setValue(m_pAccessor->getData());
    }
}

bool Discretes::isAvailable() const
{
    return m_pAccessor->isDataAvailable();
}

void Discretes::updateDataInAccessor()
{
    if (!m_writable || !isMapped()) {
        return;
    }
    // No lock: setData may notify back on this thread, and a notification
    // may store into the tables meanwhile, bit by bit like this read.
    m_pAccessor->setData(getValue());
}

std::vector<uint8_t> Discretes::getValue() const
{
    // A client writes coils, so the coil table holds what was last written.
    return g_coils.read(mappedTables(), m_address, m_size);
}

void Discretes::setValue(const std::vector<uint8_t>& values)
{
    modbus_mapping_t* tables = mappedTables();
    g_discreteInputs.write(tables, m_address, m_size, values);
    g_coils.write(tables, m_address, m_size, values);
}

void Discretes::updateDataFromAccessor(const std::vector<uint8_t>& values)
{
    // Lock-free, and no virtual call: this may run on the notification
    // thread while the destructor is waiting to cut the callback.
    if (mappedTables() != nullptr) {
        setValue(values);
    }
}

} // namespace orv::modbus
