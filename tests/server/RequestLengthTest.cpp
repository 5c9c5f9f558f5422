#include "RequestLength.h"

#include <gtest/gtest.h>

#include <modbus/modbus.h>

#include <vector>

namespace orv::modbus::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::size_t rtuSize(Bytes frame)
{
    return getRequestSize(frame.data(), frame.size());
}

TEST(RequestLengthTest, PduOfReadsAndSingleWritesIsFiveBytes)
{
    const Bytes read{MODBUS_FC_READ_HOLDING_REGISTERS, 0, 0, 0, 1};
    EXPECT_EQ(pduLength(read.data(), 1), 5U);
    EXPECT_EQ(pduLength(read.data(), 5), 5U);
    const Bytes coil{MODBUS_FC_WRITE_SINGLE_COIL, 0, 0, 0xFF, 0};
    EXPECT_EQ(pduLength(coil.data(), 5), 5U);
}

TEST(RequestLengthTest, PduOfWriteOfManyValuesFollowsItsByteCount)
{
    const Bytes write{MODBUS_FC_WRITE_MULTIPLE_REGISTERS, 0, 0, 0, 2, 4, 0, 1, 0, 2};
    EXPECT_EQ(pduLength(write.data(), 3), 6U);
    EXPECT_EQ(pduLength(write.data(), 6), 10U);
}

TEST(RequestLengthTest, UnknownCodesAreTheFunctionCodeAlone)
{
    const Bytes unknown{0x41, 1, 2, 3};
    EXPECT_EQ(pduLength(unknown.data(), 4), 1U);
    EXPECT_EQ(pduLength(unknown.data(), 0), 1U);
}

TEST(RequestLengthTest, RtuTableExpectsEightBytesForReadsAndSingleWrites)
{
    for (std::uint8_t function = 1; function <= 6; ++function) {
        EXPECT_EQ(rtuSize({1, function, 0, 0, 0, 1, 0, 0}), 8U) << int(function);
    }
}

TEST(RequestLengthTest, RtuTableKeepsItsOddRows)
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

TEST(RequestLengthTest, RtuWriteOfManyValuesFollowsItsByteCountWrappingPast255)
{
    EXPECT_EQ(rtuSize({1, 16, 0, 0, 0, 2, 4}), 13U);
    EXPECT_EQ(rtuSize({1, 15, 0, 0, 0, 8, 1}), 10U);
    // 250 + 6 wraps to 0 data bytes.
    EXPECT_EQ(rtuSize({1, 16, 0, 0, 0, 125, 250}), 3U);
}

TEST(RequestLengthTest, RtuFramesOfTwoBytesOrFewerHaveNoSize)
{
    EXPECT_EQ(rtuSize({1, 3}), 0U);
    EXPECT_EQ(getRequestSize(nullptr, 0), 0U);
}

} // namespace
} // namespace orv::modbus::test
