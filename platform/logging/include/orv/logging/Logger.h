#pragma once
// orv::logging: the gateway's logging library. getLogger(name) returns the
// one spdlog logger of that name, shared by everybody who asks for it. Log
// through spdlog's SPDLOG_LOGGER_DEBUG / SPDLOG_LOGGER_ERROR macros so that
// every line carries its source file, line and function.
//
// All loggers write to one distributing sink (standard error by default);
// sinks() gives it, so that a program or a test can add or remove a sink
// while others log. The level of every logger follows setLevel(); before the
// first call it is taken from ORV_LOG_LEVEL in the environment ("trace",
// "debug", "info", "warning", "error", "critical", "off"), else "info".

#include <memory>
#include <optional>
#include <string>

#include <spdlog/sinks/dist_sink.h>
#include <spdlog/spdlog.h>

namespace orv::logging {

std::shared_ptr<spdlog::logger> getLogger(const std::string& name);

std::shared_ptr<spdlog::sinks::dist_sink_mt> sinks();

void setLevel(spdlog::level::level_enum level);

// The level named by text, or nothing when the text names no level.
std::optional<spdlog::level::level_enum> levelFromName(const std::string& name);

} // namespace orv::logging
