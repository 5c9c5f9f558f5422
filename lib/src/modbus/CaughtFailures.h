#pragma once

#include <cstdint>
#include <memory>

#include <spdlog/spdlog.h>

namespace orv::modbus {

// What the library does with a failure that it catches and goes on from,
// so that none passes unnoticed: it is logged at debug level, or, where the
// log must stay quiet (a TCP request that fails while being processed),
// counted. Call these only inside a catch block: they describe the exception
// being handled.
//
//     } catch (...) {
//         CaughtFailures::log("Reading the status", ORV_SOURCE_HERE);
//     }
class CaughtFailures {
public:
    // Logs "{what} failed: {reason}" at debug level, as from `where`, on the
    // library's logger or on `logger`.
    static void log(const char* what, const spdlog::source_loc& where) noexcept;
    static void log(const std::shared_ptr<spdlog::logger>& logger, const char* what,
                    const spdlog::source_loc& where) noexcept;

    // Counts the failure without a log line.
    static void count() noexcept;

    // How many failures were counted since the library was loaded.
    static std::uint64_t counted() noexcept;
};

} // namespace orv::modbus

// The file, line and function where it stands, as the logging macros give them.
#define ORV_SOURCE_HERE (spdlog::source_loc{__FILE__, __LINE__, SPDLOG_FUNCTION})
