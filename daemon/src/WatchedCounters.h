#pragma once
// The traffic counters, which also pass every turn of the server's loops on
// to the service manager's watchdog.

#include "ServiceNotifier.h"
#include "StatisticCounters.h"

namespace orv::modbusd {

class WatchedCounters : public StatisticCounters {
public:
    explicit WatchedCounters(ServiceNotifier& notifier);

    void onTcpLoop() override;
    void onRtuLoop() override;

private:
    ServiceNotifier& m_notifier;
};

} // namespace orv::modbusd
