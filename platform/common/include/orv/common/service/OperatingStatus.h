#pragma once
// The operating status that gateway services publish in the data store, as a
// service manager reports it. Running (15) and RunningDegraded (16) are the
// two in-service values; any other number is a service that does not serve.
//
// Choices of this stand-in: the names of the values below 15 are its own
// (only 15 and 16 carry meaning for callers); the type is unsigned 32 bits
// wide, as the data store publishes it, so that any number read from a
// channel converts into it, named or not.

#include <cstdint>
#include <string>

namespace orv::common::service {

enum class OperatingStatus : std::uint32_t {
    Unknown = 0,
    NotInstalled = 1,
    Installed = 2,
    Disabled = 3,
    Stopped = 4,
    Starting = 5,
    Initializing = 6,
    Configuring = 7,
    WaitingForDependencies = 8,
    WaitingForDevice = 9,
    Synchronizing = 10,
    Stopping = 11,
    Restarting = 12,
    Failed = 13,
    Maintenance = 14,
    Running = 15,
    RunningDegraded = 16,
};

// The status's name ("Running"), or "OperatingStatus(N)" for a number
// without one.
std::string toString(OperatingStatus status);

} // namespace orv::common::service
