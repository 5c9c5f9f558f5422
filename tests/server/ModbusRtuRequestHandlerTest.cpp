#include "LogCapture.h"

#include <orv/modbus/ModbusRtuRequestHandler.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orv::modbus::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using orv::test::LogCapture;

std::size_t rtuSize(Bytes frame)
{
    return ModbusRtuRequestHandler::getRequestSize(frame.data(), frame.size());
}

TEST(ModbusRtuRequestHandlerTest, RtuTableExpectsEightBytesForReadsAndSingleWrites)
{
    for (std::uint8_t function = 1; function <= 6; ++function) {
        EXPECT_EQ(rtuSize({1, function, 0, 0, 0, 1, 0, 0}), 8U) << int(function);
    }
}

TEST(ModbusRtuRequestHandlerTest, RtuTableKeepsItsOddRows)
{
    EXPECT_EQ(rtuSize({1, 0, 0}), 3U);
    EXPECT_EQ(rtuSize({1, 7, 0, 0}), 4U);
    EXPECT_EQ(rtuSize({1, 8, 0, 0, 0, 0, 0, 0}), 6U);
    EXPECT_EQ(rtuSize({1, 11, 0, 0}), 4U);
    EXPECT_EQ(rtuSize({1, 12, 0, 0}), 4U);
    EXPECT_EQ(rtuSize({1, 17, 0, 0}), 3U);
    EXPECT_EQ(rtuSize({1, 43, 0, 0}), 3U);
    EXPECT_EQ(rtuSize({1, 0x81, 0, 0}), 5U);
    EXPECT_EQ(rtuSize({1, 0x89, 0, 0}), 3U);
    EXPECT_EQ(rtuSize({1, 0x8C, 0, 0}), 5U);
    EXPECT_EQ(rtuSize({1, 0x8E, 0, 0}), 3U);
    EXPECT_EQ(rtuSize({1, 0x90, 0, 0}), 5U);
    EXPECT_EQ(rtuSize({1, 0x91, 0, 0}), 3U);
}

TEST(ModbusRtuRequestHandlerTest, RtuWriteOfManyValuesFollowsItsByteCountWrappingPast255)
{
    EXPECT_EQ(rtuSize({1, 16, 0, 0, 0, 2, 4}), 13U);
    EXPECT_EQ(rtuSize({1, 15, 0, 0, 0, 8, 1}), 10U);
    // 250 + 6 wraps to 0 data bytes.
    EXPECT_EQ(rtuSize({1, 16, 0, 0, 0, 125, 250}), 3U);
}

TEST(ModbusRtuRequestHandlerTest, RtuFramesOfTwoBytesOrFewerHaveNoSize)
{
    EXPECT_EQ(rtuSize({1, 3}), 0U);
    EXPECT_EQ(ModbusRtuRequestHandler::getRequestSize(nullptr, 0), 0U);
}

TEST(ModbusRtuRequestHandlerTest, LogsTheFunctionCodeUnderItsOwnName)
{
    LogCapture log(LogCapture::g_functionAndMessage);
    rtuSize({1, 3, 0, 0, 0, 1, 0, 0});
    rtuSize({1, 3});
    EXPECT_EQ(log.lines(), std::vector<std::string>{"getRequestSize|functionCode: 3"});
}

} // namespace
} // namespace orv::modbus::test
