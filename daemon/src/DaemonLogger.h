#pragma once

#include <memory>

#include <spdlog/spdlog.h>

namespace orv::modbusd {

// The daemon's own logger, "orv-gw-modbusd".
std::shared_ptr<spdlog::logger> daemonLogger();

} // namespace orv::modbusd
