#include <orv/modbus/ModbusException.h>

#include <gtest/gtest.h>

namespace orv::modbus {
namespace {

TEST(ModbusExceptionTest, MessageCarriesTheDecimalCode)
{
    const ModbusException one(1);
    EXPECT_STREQ(one.what(), "Modbus error code 1");
    EXPECT_EQ(one.getCode(), 1U);
    EXPECT_STREQ(ModbusException(2).what(), "Modbus error code 2");
    EXPECT_STREQ(ModbusException(11).what(), "Modbus error code 11");
}

TEST(ModbusExceptionTest, IsAStandardException)
{
    try {
        throw ModbusException(2);
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Modbus error code 2");
    }
}

} // namespace
} // namespace orv::modbus
