#include "CommandLine.h"

#include <orv/logging/Logger.h>

#include <CLI/CLI.hpp>

#include <ostream>

#ifndef ORV_VERSION
#define ORV_VERSION "unknown"
#endif

namespace orv::modbusd {
namespace {

const std::string program = "orv-gw-modbusd";

// Names as the log level's environment variable takes them, in any case.
CLI::Validator logLevelName()
{
    return CLI::Validator(
        [](const std::string& text) {
            return logging::levelFromName(text) ? std::string()
                                                : text + " is not one of trace, debug, info, warning, error, "
                                                         "critical or off";
        },
        "");
}

// What the command line gives before it becomes a CommandLine.
struct Given {
    std::string logLevel;
    std::string format = "csv";
    bool checkConfig = false;
};

// Declares every option on `app`, storing into `line` or `given`.
void declareOptions(CLI::App& app, CommandLine& line, Given& given)
{
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.set_version_flag("--version", program + " " + ORV_VERSION, "Print the version and exit");
    app.add_option("--config", line.config, "The daemon's JSON configuration")->type_name("FILE")->required();
    app.add_option("--defaults", line.defaults,
                   "Factory defaults and allowed serial settings (instead of the configuration's \"defaultsFile\")")
        ->type_name("FILE");
    auto* exportOption
        = app.add_option("--export", line.exportMap, "Print the addresses and current values of a map, open no port")
              ->type_name("MAP");
    app.add_flag("--one-based", line.exportOneBased, "Export 1-based addresses")->needs(exportOption);
    app.add_option("--format", given.format, "Export as csv (the default) or markdown")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"csv", "markdown"}))
        ->needs(exportOption);
    app.add_option("--tcp-port", line.tcpPort, "Listen on TCP port N instead of the configured one")
        ->type_name("N")
        ->check(CLI::Range(1, 65535));
    app.add_option("--log-level", given.logLevel, "trace, debug, info, warning, error, critical or off")
        ->type_name("LEVEL")
        ->check(logLevelName());
    app.add_flag("--modbus-debug", line.modbusDebug, "Print libmodbus's frame-level debug output");
    app.add_flag("--check-config", given.checkConfig,
                 "Check the configuration, plug-ins and seed as a start would, print "
                 "\"configuration OK\" or the error, and exit")
        ->excludes(exportOption);
}

CommandLine::Action actionOf(const CLI::App& app, const Given& given)
{
    if (app.count("--export") > 0) {
        return CommandLine::Action::Export;
    }
    return given.checkConfig ? CommandLine::Action::CheckConfig : CommandLine::Action::Run;
}

} // namespace

std::variant<CommandLine, int> CommandLine::parse(int argc, char** argv, std::ostream& out, std::ostream& err)
{
    CLI::App app("Serves the gateway's data store to Modbus TCP clients and Modbus RTU masters.", program);
    CommandLine line;
    Given given;
    declareOptions(app, line, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error, out, err);
        return status == 0 ? 0 : usageError;
    }
    line.action = actionOf(app, given);
    if (!given.logLevel.empty()) {
        line.logLevel = logging::levelFromName(given.logLevel);
    }
    line.exportFormat = given.format == "markdown" ? ExportFormat::Markdown : ExportFormat::Csv;
    return line;
}

} // namespace orv::modbusd
