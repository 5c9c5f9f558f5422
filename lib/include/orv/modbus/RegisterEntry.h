#pragma once

#include <orv/modbus/ModbusMapEntry.h>
#include <orv/modbus/RegistersDataAccessor.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orv::modbus {

// What the register kinds have in common: a unit text and a
// RegistersDataAccessor whose words live in the register tables. `Tables`
// says which libmodbus tables the kind writes and reads (and with that its
// kind code); the library instantiates it for Registers, HoldingRegisters
// and LegacyRegisters.
template <class Tables>
class RegisterEntry : public ModbusMapEntry {
public:
    // Both throw std::runtime_error when the accessor's size is 0 (which a
    // null accessor also gives), then std::invalid_argument for a null
    // accessor. The raw pointer is owned from the start.
    RegisterEntry(uint16_t address, RegistersDataAccessor* accessor, bool writable, const std::string& name,
                  const std::string& description, const std::string& unit);
    RegisterEntry(uint16_t address, std::shared_ptr<RegistersDataAccessor> accessor, bool writable,
                  const std::string& name, const std::string& description, const std::string& unit);
    // Cuts the accessor's callback before anything of the entry goes, and
    // waits for a call of it running on another thread.
    ~RegisterEntry() override;

    int getType() const override;
    std::string getRepresentation() const override;
    std::string getStrValue() const override;
    void setByteOrder(ByteOrder order) override;
    void setMapping(modbus_mapping_t* mapping) override;
    bool isAvailable() const override;
    void updateDataInAccessor() override;
    void fillSerializationInfo(cxxtools::SerializationInfo& si) const override;

    // The entry's words as the tables hold them now.
    std::vector<uint16_t> getValue() const;
    // Writes `values` into the entry's tables; missing words become 0 and
    // extra words are ignored.
    void setValue(const std::vector<uint16_t>& values);
    // The accessor's callback: lands in the tables once the entry is mapped.
    // Lock-free and without virtual calls.
    void updateDataFromAccessor(const std::vector<uint16_t>& values);

    std::string getUnit() const;

private:
    std::string m_unit;
    std::shared_ptr<RegistersDataAccessor> m_pAccessor;
};

} // namespace orv::modbus
