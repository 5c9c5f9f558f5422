#include "ServerLogger.h"

#include <orv/logging/Logger.h>

namespace orv::modbus {

const std::shared_ptr<spdlog::logger>& serverLogger()
{
    static const auto instance = orv::logging::getLogger("ModbusServer");
    return instance;
}

} // namespace orv::modbus
