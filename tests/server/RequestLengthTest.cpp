#include "RequestLength.h"

#include <gtest/gtest.h>

#include <modbus/modbus.h>

#include <vector>

namespace orv::modbus::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

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

} // namespace
} // namespace orv::modbus::test
