#include <orv/common/service/OperatingStatus.h>

#include <array>

namespace orv::common::service {
namespace {

// Indexed by the status's number.
constexpr std::array<const char*, 17> g_names = {
    "Unknown",          "NotInstalled",  "Installed",   "Disabled",      "Stopped",
    "Starting",         "Initializing",  "Configuring", "WaitingForDependencies",
    "WaitingForDevice", "Synchronizing", "Stopping",    "Restarting",    "Failed",
    "Maintenance",      "Running",       "RunningDegraded",
};

} // namespace

std::string toString(OperatingStatus status)
{
    const auto index = static_cast<std::uint32_t>(status);
    if (index < g_names.size()) {
        return g_names[index];
    }
    return "OperatingStatus(" + std::to_string(index) + ")";
}

} // namespace orv::common::service
