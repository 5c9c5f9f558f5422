#pragma once

#include <memory>

#include <spdlog/spdlog.h>

namespace orv::modbus {

// The one logger of the library, "ModbusServer", looked up once: request
// processing logs on every frame and must not pay the logging library's
// registry lock each time.
const std::shared_ptr<spdlog::logger>& serverLogger();

} // namespace orv::modbus
