#include "StatisticsNotifier.h"

#include "CaughtFailures.h"

#include <utility>

namespace orv::modbus {

StatisticsNotifier::StatisticsNotifier(std::shared_ptr<ModbusStatisticHandlers> handlers)
    : m_pHandlers(std::move(handlers))
{
}

void StatisticsNotifier::notify(void (ModbusStatisticHandlers::*event)()) const
{
    if (!m_pHandlers) {
        return;
    }
    try {
        (m_pHandlers.get()->*event)();
    } catch (...) {
        // Counting must never cost a client its answer.
        CaughtFailures::log("A statistic handler", ORV_SOURCE_HERE);
    }
}

} // namespace orv::modbus
