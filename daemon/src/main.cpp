#include "CommandLine.h"
#include "Daemon.h"

#include <orv/logging/Logger.h>

#include <iostream>

int main(int argc, char** argv)
{
    using orv::modbusd::CommandLine;
    const std::string program = "orv-gw-modbusd";
    const auto parsed = CommandLine::parse(argc, argv, std::cout, std::cerr);
    if (const int* status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const CommandLine& commandLine = std::get<CommandLine>(parsed);
    if (commandLine.logLevel) {
        orv::logging::setLevel(*commandLine.logLevel);
    }
    try {
        orv::modbusd::Daemon daemon(commandLine);
        if (commandLine.action == CommandLine::Action::CheckConfig) {
            daemon.check();
            std::cout << "configuration OK" << std::endl;
            return 0;
        }
        if (commandLine.action == CommandLine::Action::Export) {
            return daemon.exportMap(std::cout, std::cerr);
        }
        return daemon.run();
    } catch (const std::exception& error) {
        std::cerr << program << ": " << error.what() << "\n";
        return 1;
    }
}
