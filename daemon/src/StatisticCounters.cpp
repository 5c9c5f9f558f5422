#include "StatisticCounters.h"

#include <fmt/format.h>

namespace orv::modbusd {

std::uint64_t StatisticCounters::count(Event event) const
{
    return m_counts[static_cast<std::size_t>(event)].load(std::memory_order_relaxed);
}

std::string StatisticCounters::summary() const
{
    return fmt::format("tcp received={} bad-unit={} accepted={} refused={} processed={}; "
                       "rtu received={} bad-unit={} accepted={} refused={} processed={} crc-errors={} "
                       "receive-errors={}",
                       count(Event::TcpRequestReceived), count(Event::TcpBadDeviceId),
                       count(Event::TcpRequestAccepted), count(Event::TcpRequestRefused),
                       count(Event::TcpRequestProcessed), count(Event::RtuRequestReceived),
                       count(Event::RtuBadDeviceId), count(Event::RtuRequestAccepted),
                       count(Event::RtuRequestRefused), count(Event::RtuRequestProcessed),
                       count(Event::RtuCrcError), count(Event::RtuReceiveError));
}

void StatisticCounters::bump(Event event)
{
    m_counts[static_cast<std::size_t>(event)].fetch_add(1, std::memory_order_relaxed);
}

} // namespace orv::modbusd
