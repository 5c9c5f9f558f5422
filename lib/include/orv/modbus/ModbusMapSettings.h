#pragma once

#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace orv::modbus {

class ModbusMap;

// One map as served under one unit id: the map, the three access flags
// handed to ModbusMap::processRequest with every request, and the client
// addresses that may reach it over Modbus TCP. Shared between the
// configuration and the handler threads, and never changed once built.
struct ModbusMapSettings {
    // Keeps the flags in the order given. Note that processRequest takes
    // them the other way round: (skipReadChecks, readOnly, addressShift).
    // The expressions are copied, not recompiled.
    ModbusMapSettings(std::shared_ptr<ModbusMap> map, bool addressShift, bool readOnly, bool skipReadChecks,
                      const std::vector<std::regex>& allowedAddresses);

    // Whether a TCP client with this address text may use the map: true
    // when any expression is found somewhere in the text (a search, not a
    // full match, so unanchored expressions admit longer texts too). An
    // empty list admits nobody.
    bool allowsAddress(const std::string& address) const;

    std::shared_ptr<ModbusMap> map;
    // Request addresses are 1-based.
    bool addressShift;
    // Every write is refused.
    bool readOnly;
    // Reads are answered from the tables without entry checks.
    bool skipReadChecks;
    // ECMAScript expressions matched against the client's address text.
    std::vector<std::regex> allowedAddresses;
};

// One slot per unit id: slot u serves unit id u, an empty slot means no map.
using ModbusMapSettingsTable = std::vector<std::shared_ptr<ModbusMapSettings>>;

} // namespace orv::modbus
