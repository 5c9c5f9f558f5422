#pragma once
// The daemon's command line.

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <variant>

#include <spdlog/common.h>

namespace orv::modbusd {

struct CommandLine {
    enum class Action { Run, CheckConfig, Export };
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

    // The status a wrong command line exits with.
    static constexpr int usageError = 2;

    // Answers the command line to act on, or the status to exit with when
    // there is nothing more to do: --help and --version print to `out` and
    // answer 0; a wrong command line is explained on `err` and answers
    // usageError.
    static std::variant<CommandLine, int> parse(int argc, char** argv, std::ostream& out, std::ostream& err);
};

} // namespace orv::modbusd
