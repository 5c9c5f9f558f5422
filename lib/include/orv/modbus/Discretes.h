#pragma once

#include <orv/modbus/DiscretesDataAccessor.h>
#include <orv/modbus/ModbusMapEntry.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orv::modbus {

// Bits visible at the same address in both bit tables: readable as discrete
// inputs (function code 2) and as coils (1), writable as coils (5 and 15);
// the coil table is what is read back.
class Discretes : public ModbusMapEntry {
public:
    // Both throw std::runtime_error when the accessor's size is 0 (which a
    // null accessor also gives), then std::invalid_argument for a null
    // accessor. The raw pointer is owned from the start.
    Discretes(uint16_t address, DiscretesDataAccessor* accessor, bool writable, const std::string& name,
              const std::string& description, const std::string& statusTo1Text, const std::string& statusTo0Text);
    Discretes(uint16_t address, std::shared_ptr<DiscretesDataAccessor> accessor, bool writable,
              const std::string& name, const std::string& description, const std::string& statusTo1Text,
              const std::string& statusTo0Text);
    // Cuts the accessor's callback before anything of the entry goes, and
    // waits for a call of it running on another thread.
    ~Discretes() override;

    int getType() const override;
    std::string getRepresentation() const override;
    std::string getStrValue() const override;
    void setMapping(modbus_mapping_t* mapping) override;
    bool isAvailable() const override;
    void updateDataInAccessor() override;
    void fillSerializationInfo(cxxtools::SerializationInfo& si) const override;

    // The entry's bits (one byte each) as the coil table holds them now.
    std::vector<uint8_t> getValue() const;
    // Writes `values` into both bit tables; missing bits become 0 and extra
    // ones are ignored.
    void setValue(const std::vector<uint8_t>& values);
    // The accessor's callback: lands in the tables once the entry is mapped.
    // Lock-free and without virtual calls.
    void updateDataFromAccessor(const std::vector<uint8_t>& values);

private:
    std::string m_statusTo1Text;
    std::string m_statusTo0Text;
    std::shared_ptr<DiscretesDataAccessor> m_pAccessor;
};

} // namespace orv::modbus
