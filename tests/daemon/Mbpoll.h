#pragma once
// One run of mbpoll, a Modbus master this team did not write, against a
// daemon on the loopback address, with 0-based references and one poll.

#include "ChildProcess.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <regex>
#include <string>

namespace orv::test {

struct MbpollResult {
    int status = -1;
    // Standard output and error: a time-out is reported on the latter.
    std::string output;
    // The values printed, by reference.
    std::map<int, std::string> values;
};

inline MbpollResult runMbpoll(std::uint16_t port, int unit, const std::string& arguments, int timeoutSeconds = 2)
{
    const std::string command = "mbpoll -m tcp -a " + std::to_string(unit) + " -p " + std::to_string(port)
                                + " -0 -1 -o " + std::to_string(timeoutSeconds) + " " + arguments + " 2>&1";
    MbpollResult result;
    result.output = runAndCapture(command, std::chrono::seconds(timeoutSeconds + 8), &result.status);
    static const std::regex g_line(R"(\[(\d+)\]:\s+(\S+))");
    for (auto it = std::sregex_iterator(result.output.begin(), result.output.end(), g_line);
         it != std::sregex_iterator(); ++it) {
        result.values[std::stoi((*it)[1])] = (*it)[2];
    }
    return result;
}

} // namespace orv::test
