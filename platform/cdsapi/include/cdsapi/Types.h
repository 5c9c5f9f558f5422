#pragma once
// Types of the data-store client shared by its calls.

#include <cstdint>
#include <stdexcept>
#include <string>

namespace cdsapi {

// A device attribute, by number. The data store keeps attributes as text;
// which numbers exist is its business, so every number converts into this
// type (32 bits wide) and an attribute never set reads as the empty text.
enum class DeviceAttribute : std::uint32_t {
    Name = 0,
    Description = 1,
    Manufacturer = 2,
    Model = 3,
    SerialNumber = 4,
    FirmwareVersion = 5,
    HardwareVersion = 6,
    Location = 7,
    SubDeviceCount = 16,
};

// One of the four thresholds of a channel alarm.
enum class TriggerId : std::uint32_t {
    Trigger0 = 0,
    Trigger1 = 1,
    Trigger2 = 2,
    Trigger3 = 3,
};

// The level of a channel alarm.
enum class LevelAlarm : std::int32_t {
    None = 0,
    Information = 1,
    Warning = 2,
    Alarm = 3,
    Critical = 4,
};

// Thrown by every data call on a device or channel that does not exist.
class CdsError : public std::runtime_error {
public:
    explicit CdsError(const std::string& message);
};

} // namespace cdsapi
