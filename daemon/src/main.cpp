#include "CommandLine.h"
#include "Daemon.h"

#include <orv/logging/Logger.h>

#include <iostream>

#ifndef ORV_VERSION
#define ORV_VERSION "unknown"
#endif

int main(int argc, char** argv)
{
    using orv::modbusd::CommandLine;
    const std::string program = "orv-gw-modbusd";
    CommandLine commandLine;
    try {
        commandLine = CommandLine::parse(argc, argv);
    } catch (const std::invalid_argument& error) {
        std::cerr << program << ": " << error.what() << "\n" << CommandLine::usage(program);
        return 2;
    }
    if (commandLine.action == CommandLine::Action::Help) {
        std::cout << CommandLine::usage(program);
        return 0;
    }
    if (commandLine.action == CommandLine::Action::Version) {
        std::cout << program << " " << ORV_VERSION << "\n";
        return 0;
    }
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
