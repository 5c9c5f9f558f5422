#include "CaughtFailures.h"

#include "ServerLogger.h"

#include <atomic>
#include <exception>
#include <string>

namespace orv::modbus {
namespace {

std::atomic<std::uint64_t> g_counted{0};

// The text of the exception being handled.
std::string currentReason()
{
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown error";
    }
}

} // namespace

void CaughtFailures::log(const char* what, const spdlog::source_loc& where) noexcept
{
    log(serverLogger(), what, where);
}

void CaughtFailures::log(const std::shared_ptr<spdlog::logger>& logger, const char* what,
                         const spdlog::source_loc& where) noexcept
{
    try {
        if (!logger->should_log(spdlog::level::debug)) {
            return;
        }
        logger->log(where, spdlog::level::debug, "{} failed: {}", what, currentReason());
    } catch (...) {
        // Logging is the last resort here; a failing sink has nobody left to tell.
        count();
    }
}

void CaughtFailures::count() noexcept
{
    g_counted.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t CaughtFailures::counted() noexcept
{
    return g_counted.load(std::memory_order_relaxed);
}

} // namespace orv::modbus
