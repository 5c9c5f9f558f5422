#pragma once

#include <orv/modbus/MapAvailableAccessor.h>
#include <orv/synchronizer/PowerDistributionsSynchronizer.h>

#include <cdsapi/CdsAccessor.h>

#include <atomic>
#include <mutex>
#include <string>

namespace orv::modbus::cds {

// Availability of a map that only makes sense once the gateway's
// power-distribution service runs (the UPS map): unavailable until the
// service's operating status is Running or RunningDegraded, available from
// then on for the life of the object. While it is unavailable every call
// asks the data store again, without waiting.
class PowerDistributionAvailableAccessor : public MapAvailableAccessor {
public:
    // `configPath` is the power-distribution service's configuration file,
    // which names the device publishing its status. A file that cannot be
    // read leaves the map unavailable (with one warning logged).
    explicit PowerDistributionAvailableAccessor(
        const std::string& configPath = synchronizer::PowerDistributionsSynchronizer::g_defaultConfigPath);

    bool isAvailable() override;
    std::string notAvailableMessage() const override;

private:
    // A client of its own: the status is read on the caller's thread, never
    // through the shared client's notification thread.
    cdsapi::CdsAccessor m_client;
    synchronizer::PowerDistributionsSynchronizer m_synchronizer;
    // Only ever goes from false to true. Atomic, and the synchronizer behind
    // a mutex, because one map may answer on the TCP and the RTU thread at
    // once; once available no call takes the mutex.
    std::atomic<bool> m_available{false};
    std::mutex m_synchronizerMutex;
};

} // namespace orv::modbus::cds
