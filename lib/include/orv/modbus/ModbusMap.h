#pragma once

#include <orv/modbus/ByteOrder.h>
#include <orv/modbus/MapAvailableAccessor.h>
#include <orv/modbus/ModbusMapEntry.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <modbus/modbus.h>

namespace cxxtools {
class SerializationInfo;
}

namespace orv::modbus {

// One Modbus register map: its entries, the libmodbus tables they live in
// and an optional availability accessor. Built once, then shared through
// std::shared_ptr between the registry and the server, which answers
// requests through processRequest.
class ModbusMap {
public:
    // Takes ownership of the entries and of `availableAccessor` (which may
    // be null: the map is then always available). Throws
    // std::runtime_error when two entries of one kind share an address or
    // the tables cannot be allocated.
    ModbusMap(const std::string& mapId, std::vector<ModbusMapEntry*> entries,
              MapAvailableAccessor* availableAccessor, ByteOrder byteOrder);
    virtual ~ModbusMap();

    ModbusMap(const ModbusMap&) = delete;
    ModbusMap& operator=(const ModbusMap&) = delete;

    // One row per entry as CSV, or the not-available message while the map
    // is not available.
    virtual void serializeIntoCsv(std::ostream& os, bool oneBased) const;

    // Answers one request received on `ctx`. Returns true when a normal
    // reply was sent, false when an exception reply was sent or, without
    // any reply, when the map is not available or the `length` bytes of
    // `query` are too few for its function code.
    //  skipReadChecks: reads are answered from the tables without looking
    //                  at entries;
    //  readOnly:       every write is refused with exception 1;
    //  addressShift:   request addresses are 1-based.
    virtual bool processRequest(modbus_t* ctx, uint8_t* query, unsigned length, bool skipReadChecks, bool readOnly,
                                bool addressShift);

    virtual std::string getMapId() const;

    bool isMapAvailable() const;
    std::string notAvailableUserMessage() const;

    // Table addresses spanned by the read or multiple-write request in
    // `query`, whose PDU starts after `headerLength` bytes.
    static std::vector<uint16_t> getAddresses(int headerLength, uint8_t* query, bool addressShift);

    // Makes libmodbus take request addresses as 1-based (true) or 0-based
    // when it is handed the map's own mapping. processRequest does not rely
    // on it: each request gets the shift it is called with.
    void setAddressShift(bool shift);

    // An array with one object per entry; left empty while the map is not
    // available.
    void fillSerializationInfo(cxxtools::SerializationInfo& si, bool oneBased) const;

    // "SEP=;", a line end, then serializeIntoCsv.
    std::string getCsv(bool oneBased) const;

private:
    using EntryIndex = std::map<uint16_t, std::shared_ptr<ModbusMapEntry>>;
    // The entries one request touches with their (first address, kind):
    // each entry occurs once, sorted by that key, which is the order their
    // mutexes are locked in. Raw pointers: the map owns its entries for as
    // long as it answers requests.
    using EntrySet = std::vector<std::pair<std::pair<uint16_t, int>, ModbusMapEntry*>>;

    void registerEntry(const std::shared_ptr<ModbusMapEntry>& entry);
    void releaseEntries();
    EntryIndex& indexOf(int type);
    void allocateMapping();
    // Fills the tables from the entries' accessors.
    void attachEntries(const std::vector<std::shared_ptr<ModbusMapEntry>>& entries, ByteOrder byteOrder);
    // Fills `touched` with the entries the request in `query` touches and
    // says whether their contents go to the accessors after the reply.
    // Throws ModbusException when the request must be refused.
    bool collectEntries(uint8_t* query, int headerLength, bool skipReadChecks, bool readOnly, bool addressShift,
                        EntrySet& touched) const;
    // The map's tables with start fields of their own for one request, so
    // that requests with different address shifts (a map may serve TCP and
    // the serial line with different settings, from two threads) never see
    // each other's.
    modbus_mapping_t tablesFor(bool addressShift) const;
    // Lets libmodbus answer while every touched entry is locked; returns
    // what modbus_reply returned.
    int replyLocked(modbus_t* ctx, uint8_t* query, unsigned length, bool addressShift, const EntrySet& touched);

    std::shared_ptr<MapAvailableAccessor> m_pAvailableAccessor;
    std::string m_mapId;
    modbus_mapping_t* m_pMapping = nullptr;
    EntryIndex m_discretes;
    EntryIndex m_inputRegisters;
    EntryIndex m_holdingRegisters;
    EntryIndex m_legacyRegisters;
};

} // namespace orv::modbus
