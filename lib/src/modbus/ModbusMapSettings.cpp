#include <orv/modbus/ModbusMapSettings.h>

#include <algorithm>
#include <utility>

namespace orv::modbus {

ModbusMapSettings::ModbusMapSettings(std::shared_ptr<ModbusMap> map, bool addressShift, bool readOnly,
                                     bool skipReadChecks, const std::vector<std::regex>& allowedAddresses)
    : map(std::move(map))
    , addressShift(addressShift)
    , readOnly(readOnly)
    , skipReadChecks(skipReadChecks)
    , allowedAddresses(allowedAddresses)
{
}

bool ModbusMapSettings::allowsAddress(const std::string& address) const
{
    return std::any_of(allowedAddresses.begin(), allowedAddresses.end(),
                       [&address](const std::regex& pattern) { return std::regex_search(address, pattern); });
}

} // namespace orv::modbus
