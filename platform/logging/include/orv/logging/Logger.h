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
// "debug", "info", "warning", "error", "critical", "off", also "warn" and
// "err", in any letter case), else "info"; an unknown name also gives
// "info". The variable is read once, when the first logger is made.
//
// The default sink writes to standard error with the pattern
// "%Y-%m-%d %H:%M:%S.%e [%n] [%l] %s:%# %!: %v"; a sink added to sinks()
// keeps its own pattern. Errors are flushed at once.

#include <memory>
#include <optional>
#include <string>

#include <spdlog/sinks/dist_sink.h>
#include <spdlog/spdlog.h>

namespace orv::logging {

std::shared_ptr<spdlog::logger> getLogger(const std::string& name);

std::shared_ptr<spdlog::sinks::dist_sink_mt> sinks();

void setLevel(spdlog::level::level_enum level);

// The level named by text (letter case ignored), or nothing when the text
// names no level.
std::optional<spdlog::level::level_enum> levelFromName(const std::string& name);

} // namespace orv::logging
