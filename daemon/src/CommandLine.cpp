#include "CommandLine.h"

#include <orv/logging/Logger.h>

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace orv::modbusd {
namespace {

std::uint32_t parsePort(std::string_view text)
{
    std::uint32_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0 || port > 65535) {
        throw std::invalid_argument("--tcp-port takes a port number from 1 to 65535, not \"" + std::string(text)
                                    + "\"");
    }
    return port;
}

spdlog::level::level_enum parseLevel(const std::string& text)
{
    const auto level = logging::levelFromName(text);
    if (!level) {
        throw std::invalid_argument("--log-level takes trace, debug, info, warning, error, critical or off, not \""
                                    + text + "\"");
    }
    return *level;
}

// The value of an option given as "--name value" or "--name=value".
std::string optionValue(std::string_view argument, std::string_view name, int& index, int argc, char** argv)
{
    if (argument.size() > name.size()) {
        return std::string(argument.substr(name.size() + 1));
    }
    if (index + 1 >= argc) {
        throw std::invalid_argument(std::string(name) + " needs a value");
    }
    return argv[++index];
}

CommandLine::ExportFormat parseFormat(const std::string& text)
{
    if (text == "csv") {
        return CommandLine::ExportFormat::Csv;
    }
    if (text == "markdown") {
        return CommandLine::ExportFormat::Markdown;
    }
    throw std::invalid_argument("--format takes csv or markdown, not \"" + text + "\"");
}

bool isOption(std::string_view argument, std::string_view name)
{
    return argument == name || (argument.starts_with(name) && argument[name.size()] == '=');
}

} // namespace

CommandLine CommandLine::parse(int argc, char** argv)
{
    CommandLine result;
    bool haveConfig = false;
    bool haveExportOption = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            result.action = Action::Help;
            return result;
        }
        if (argument == "--version") {
            result.action = Action::Version;
            return result;
        }
        if (argument == "--modbus-debug") {
            result.modbusDebug = true;
        } else if (argument == "--check-config") {
            result.action = Action::CheckConfig;
        } else if (argument == "--one-based") {
            result.exportOneBased = true;
            haveExportOption = true;
        } else if (isOption(argument, "--format")) {
            result.exportFormat = parseFormat(optionValue(argument, "--format", i, argc, argv));
            haveExportOption = true;
        } else if (isOption(argument, "--export")) {
            result.exportMap = optionValue(argument, "--export", i, argc, argv);
            result.action = Action::Export;
        } else if (isOption(argument, "--defaults")) {
            result.defaults = optionValue(argument, "--defaults", i, argc, argv);
        } else if (isOption(argument, "--config")) {
            result.config = optionValue(argument, "--config", i, argc, argv);
            haveConfig = true;
        } else if (isOption(argument, "--tcp-port")) {
            result.tcpPort = parsePort(optionValue(argument, "--tcp-port", i, argc, argv));
        } else if (isOption(argument, "--log-level")) {
            result.logLevel = parseLevel(optionValue(argument, "--log-level", i, argc, argv));
        } else {
            throw std::invalid_argument("unknown argument \"" + std::string(argument) + "\"");
        }
    }
    if (!haveConfig) {
        throw std::invalid_argument("--config FILE is required");
    }
    if (haveExportOption && result.action != Action::Export) {
        throw std::invalid_argument("--one-based and --format apply to --export MAP only");
    }
    return result;
}

std::string CommandLine::usage(const std::string& program)
{
    return "Usage: " + program + " --config FILE [options]\n"
           "       " + program + " --config FILE --export MAP [--one-based] [--format csv|markdown]\n"
           "Serves the gateway's data store to Modbus TCP clients and Modbus RTU masters.\n"
           "\n"
           "  --config FILE       the daemon's JSON configuration\n"
           "  --defaults FILE     factory defaults and allowed serial settings (instead of\n"
           "                      the configuration's \"defaultsFile\")\n"
           "  --export MAP        print the addresses and current values of a map, open no port\n"
           "  --one-based         export 1-based addresses\n"
           "  --format FORMAT     export as csv (the default) or markdown\n"
           "  --tcp-port N        listen on TCP port N instead of the configured one\n"
           "  --log-level LEVEL   trace, debug, info, warning, error, critical or off\n"
           "  --modbus-debug      print libmodbus's frame-level debug output\n"
           "  --check-config      check the configuration, plug-ins and seed as a start\n"
           "                      would, print \"configuration OK\" or the error, and exit\n"
           "  --help              print this text and exit\n"
           "  --version           print the version and exit\n";
}

} // namespace orv::modbusd
