#include <orv/modbus/ModbusHelpers.h>
#include <orv/modbus/ModbusMapEntry.h>

#include <gtest/gtest.h>

namespace orv::modbus {
namespace {

TEST(ModbusHelpersTest, HexOfSixteenBits)
{
    EXPECT_EQ(toHex(uint16_t{26}), "0x001a (26)");
    EXPECT_EQ(toHex(uint16_t{0}), "0x0000 (0)");
    EXPECT_EQ(toHex(uint16_t{0xabcd}), "0xabcd (43981)");
    EXPECT_EQ(toHex(uint16_t{0xffff}), "0xffff (65535)");
}

TEST(ModbusHelpersTest, HexOfEightBits)
{
    EXPECT_EQ(toHex(uint8_t{26}), "0x1a (26)");
    EXPECT_EQ(toHex(uint8_t{0}), "0x00 (0)");
    EXPECT_EQ(toHex(uint8_t{255}), "0xff (255)");
}

TEST(ModbusHelpersTest, HexWithCharacters)
{
    EXPECT_EQ(toHexChar(0x4142), "0x4142 (AB)");
    EXPECT_EQ(toHexChar(0x617a), "0x617a (az)");
}

TEST(ModbusHelpersTest, BitsMostSignificantFirst)
{
    EXPECT_EQ(toBit(5), "0b0000000000000101");
    EXPECT_EQ(toBit(0), "0b0000000000000000");
    EXPECT_EQ(toBit(0x80), "0b0000000010000000");
}

TEST(ModbusHelpersTest, BooleanText)
{
    EXPECT_EQ(toString(true), "true");
    EXPECT_EQ(toString(false), "false");
}

TEST(ModbusHelpersTest, HexAddressUpperCaseWithoutPadding)
{
    EXPECT_EQ(ModbusMapEntry::makeHexAddress(26), "0x1A");
    EXPECT_EQ(ModbusMapEntry::makeHexAddress(0), "0x0");
    EXPECT_EQ(ModbusMapEntry::makeHexAddress(0xffff), "0xFFFF");
}

} // namespace
} // namespace orv::modbus
