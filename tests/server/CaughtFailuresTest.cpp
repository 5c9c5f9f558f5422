#include "CaughtFailures.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;

void failAndLog()
{
    try {
        throw std::out_of_range("no such channel");
    } catch (...) {
        CaughtFailures::log("Looking up a channel", ORV_SOURCE_HERE);
    }
}

TEST(CaughtFailuresTest, LogsTheHandledExceptionAtDebugLevelUnderTheCallersFunction)
{
    LogCapture log(LogCapture::g_functionAndMessage);
    failAndLog();
    EXPECT_TRUE(log.containsAt(spdlog::level::debug, "failAndLog|Looking up a channel failed: no such channel"));
}

TEST(CaughtFailuresTest, NamesAnExceptionThatIsNoStandardOneUnknown)
{
    LogCapture log;
    try {
        throw 42;
    } catch (...) {
        CaughtFailures::log("Counting", ORV_SOURCE_HERE);
    }
    EXPECT_TRUE(log.containsAt(spdlog::level::debug, "Counting failed: unknown error"));
}

TEST(CaughtFailuresTest, CountsWithoutALogLine)
{
    LogCapture log;
    const auto before = CaughtFailures::counted();
    try {
        throw std::runtime_error("quiet");
    } catch (...) {
        CaughtFailures::count();
    }
    EXPECT_EQ(CaughtFailures::counted(), before + 1);
    EXPECT_TRUE(log.lines().empty());
}

} // namespace
} // namespace orv::modbus::test
