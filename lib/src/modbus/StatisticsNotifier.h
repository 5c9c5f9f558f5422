#pragma once

#include <orv/modbus/ModbusStatisticHandlers.h>

#include <memory>

namespace orv::modbus {

// The statistic handlers a handler thread reports to, which may be none.
class StatisticsNotifier {
public:
    explicit StatisticsNotifier(std::shared_ptr<ModbusStatisticHandlers> handlers);

    // Calls one statistic operation when handlers are set. A handler that
    // throws is logged at debug level and otherwise ignored: counting must
    // never cost a client its answer.
    void notify(void (ModbusStatisticHandlers::*event)()) const;

private:
    std::shared_ptr<ModbusStatisticHandlers> m_pHandlers;
};

} // namespace orv::modbus
