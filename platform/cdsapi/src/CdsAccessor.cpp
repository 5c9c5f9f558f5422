#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

namespace cdsapi {

// The in-process store is always reached in-band; the flag only keeps the
// platform's constructor.
CdsAccessor::CdsAccessor(const std::string& clientName, bool /*inBand*/)
    : InBandAccessor(clientName)
{
}

std::uint64_t CdsAccessor::getDeviceByName(const std::string& canonicalName) const
{
    return dataStore().getDeviceByName(canonicalName);
}

} // namespace cdsapi
