#pragma once

#include <orv/common/service/OperatingStatus.h>
#include <orv/common/time/SecondsDuration.h>

#include <cstdint>
#include <string>

namespace cdsapi {
class CdsAccessor;
}

namespace orv::synchronizer {

// The client side of the gateway's power-distribution service: reads the
// operating status the service publishes in the data store, and waits for it
// to enter or leave service.
//
// The service's device is named by "database" / "args" / "serviceStorage" /
// "deviceId" in its configuration file. When that file cannot be read or
// lacks the path, a warning is logged once, here, and the status reads as
// Unknown for the life of the object: the service is then taken as not in
// service, not as an error at every call.
class PowerDistributionsSynchronizer {
public:
    static constexpr const char* g_defaultConfigPath = "/usr/share/orv/pq/powerdistribution/config.json";
    static constexpr const char* g_statusChannel = "PowerDistribution.Status.OperatingStatus";

    // `client` is used for every data-store call and must outlive this object.
    explicit PowerDistributionsSynchronizer(cdsapi::CdsAccessor& client,
                                            const std::string& configPath = g_defaultConfigPath);

    // The status channel's value; Unknown while the channel cannot be found
    // or read. The channel id, once found, is kept; it is looked up again
    // only after a read of it failed (the channel was removed).
    common::service::OperatingStatus getPowerDistributionStatus();

    // Read the status, then once a second until it is (or is no longer)
    // Running or RunningDegraded, or the time-out has passed; a time-out of 0
    // is a single read. Returns whether the last status read is (or is not)
    // in service.
    bool waitInService(common::time::SecondsDuration timeout);
    bool waitNotInService(common::time::SecondsDuration timeout);

private:
    bool waitFor(bool inService, common::time::SecondsDuration timeout, const char* function);

    cdsapi::CdsAccessor& m_client;
    std::uint64_t m_channelId;
    std::uint64_t m_deviceId;
};

} // namespace orv::synchronizer
