#include "WatchedCounters.h"

namespace orv::modbusd {

WatchedCounters::WatchedCounters(ServiceNotifier& notifier)
    : m_notifier(notifier)
{
}

void WatchedCounters::onTcpLoop()
{
    m_notifier.loopTurned(ServiceNotifier::Loop::Tcp);
}

void WatchedCounters::onRtuLoop()
{
    m_notifier.loopTurned(ServiceNotifier::Loop::Rtu);
}

} // namespace orv::modbusd
