#include <cdsapi/DataAlarms.h>

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include <algorithm>
#include <tuple>

namespace cdsapi {

DataAlarms::DataAlarms(InBandAccessor& accessor)
    : m_accessor(accessor)
{
}

boost::optional<zu::CAlarmTrigger> DataAlarms::getMostCritical(std::uint64_t channelId) const
{
    const auto active = m_accessor.dataStore().getActiveAlarms(channelId);
    const auto mostCritical =
        std::max_element(active.begin(), active.end(), [](const zu::CAlarmTrigger& lhs, const zu::CAlarmTrigger& rhs) {
            return std::tie(lhs.flag, lhs.code) < std::tie(rhs.flag, rhs.code);
        });
    if (mostCritical == active.end()) {
        return boost::none;
    }
    return *mostCritical;
}

} // namespace cdsapi
