#pragma once
// cdsapi::DataAlarms: the alarm view of a data-store client.
//
// getMostCritical(channelId) returns, among the triggers raised on the
// channel and not yet cleared, the one with the highest flag and, among
// those, the highest code; empty when none is raised. It does not look at
// the channel's alarm-enabled setting (the store does not evaluate
// thresholds itself: drivers raise and clear triggers). A channel that does
// not exist throws cdsapi::CdsError.

#include <zu/CAlarmTrigger.h>

#include <boost/optional.hpp>

#include <cstdint>

namespace cdsapi {

class InBandAccessor;

class DataAlarms {
public:
    explicit DataAlarms(InBandAccessor& accessor);

    boost::optional<zu::CAlarmTrigger> getMostCritical(std::uint64_t channelId) const;

private:
    InBandAccessor& m_accessor;
};

} // namespace cdsapi
