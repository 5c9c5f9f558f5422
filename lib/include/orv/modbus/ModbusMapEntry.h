#pragma once

#include <orv/modbus/ByteOrder.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include <modbus/modbus.h>

namespace cxxtools {
class SerializationInfo;
}

namespace orv::modbus {

// One named value at a fixed Modbus address: `size` consecutive registers or
// bits of the libmodbus tables owned by the map. The concrete kinds bind a
// data accessor to their stretch of the tables: they copy every value the
// accessor reports into the tables, and hand client-written table contents
// back to the accessor after a write.
class ModbusMapEntry {
public:
    // Kind codes returned by getType().
    static constexpr int g_typeDiscretes = 0;
    static constexpr int g_typeRegisters = 1;
    static constexpr int g_typeHoldingRegisters = 2;
    static constexpr int g_typeLegacyRegisters = 3;

    // Throws std::runtime_error when size is 0.
    ModbusMapEntry(uint16_t address, bool writable, uint16_t size, const std::string& name,
                   const std::string& description);
    virtual ~ModbusMapEntry();

    ModbusMapEntry(const ModbusMapEntry&) = delete;
    ModbusMapEntry& operator=(const ModbusMapEntry&) = delete;

    virtual int getType() const = 0;
    virtual std::string getRepresentation() const = 0;
    virtual std::string getStrValue() const = 0;
    virtual void setByteOrder(ByteOrder order);
    // Attaches the map's tables (nullptr detaches them).
    virtual void setMapping(modbus_mapping_t* mapping);
    virtual bool isMapped() const;
    virtual bool isAvailable() const;
    // Passes the entry's table contents to its accessor after a client's
    // write; does nothing for read-only or unmapped entries.
    virtual void updateDataInAccessor() = 0;
    // Adds the export members of this entry to `si`.
    virtual void fillSerializationInfo(cxxtools::SerializationInfo& si) const;

    uint16_t getAddress() const;
    bool isWritable() const;
    uint16_t getSize() const;
    const std::string& getName() const;
    const std::string& getDescription() const;

    // Held by request processing while libmodbus reads or writes the tables
    // for a request touching this entry.
    void lock();
    void unlock();

    // "0x" and the address in upper-case hexadecimal without leading zeros.
    static std::string makeHexAddress(uint16_t address);

    // Whether the export writes 1-based addresses; the map sets it before
    // it serialises its entries.
    static bool g_serializationAddressShift;

protected:
    // Records the mapping without logging; the kinds fill the tables
    // themselves once they are attached.
    void attachMapping(modbus_mapping_t* mapping);
    // The attached tables, or nullptr while the entry is unmapped.
    modbus_mapping_t* mappedTables() const;

    uint16_t m_address;
    bool m_writable;
    uint16_t m_size;
    std::mutex m_mutex;
    // Accessor callbacks read these from other threads while the map
    // attaches its tables, hence atomics rather than plain fields.
    std::atomic<modbus_mapping_t*> m_pMapping;
    std::atomic<bool> m_mapped;
    std::string m_name;
    std::string m_description;
};

void operator<<=(cxxtools::SerializationInfo& si, const ModbusMapEntry* entry);

} // namespace orv::modbus
