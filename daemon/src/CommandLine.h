#pragma once
// The daemon's command line.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <spdlog/common.h>

namespace orv::modbusd {

struct CommandLine {
    enum class Action { Run, CheckConfig, Export, Help, Version };
    enum class ExportFormat { Csv, Markdown };

    Action action = Action::Run;
    std::filesystem::path config;
    std::optional<std::uint32_t> tcpPort;
    std::optional<spdlog::level::level_enum> logLevel;
    bool modbusDebug = false;
    // Overrides the configuration's "defaultsFile".
    std::optional<std::filesystem::path> defaults;
    // Action::Export: the map to print, and how.
    std::string exportMap;
    bool exportOneBased = false;
    ExportFormat exportFormat = ExportFormat::Csv;

    // Throws std::invalid_argument with a message for the user on a bad
    // command line.
    static CommandLine parse(int argc, char** argv);

    static std::string usage(const std::string& program);
};

} // namespace orv::modbusd
