#include <orv/common/SerialSettings.h>

#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using orv::common::BaudRate;
using orv::common::Parity;

TEST(SerialSettingsTest, BaudRatesAreNumberedOneToEight)
{
    EXPECT_EQ(static_cast<int>(BaudRate::Baud1200), 1);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud2400), 2);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud4800), 3);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud9600), 4);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud19200), 5);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud38400), 6);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud57600), 7);
    EXPECT_EQ(static_cast<int>(BaudRate::Baud115200), 8);
}

TEST(SerialSettingsTest, ParityTwoIsEvenAndThreeIsOdd)
{
    EXPECT_EQ(static_cast<int>(Parity::None), 0);
    EXPECT_EQ(static_cast<int>(Parity::NoneAlternative), 1);
    EXPECT_EQ(static_cast<int>(Parity::Even), 2);
    EXPECT_EQ(static_cast<int>(Parity::Odd), 3);
}

TEST(SerialSettingsTest, AnyIntegerConvertsAndKeepsItsValue)
{
    static_assert(std::is_same_v<std::underlying_type_t<BaudRate>, std::int32_t>);
    static_assert(std::is_same_v<std::underlying_type_t<Parity>, std::int32_t>);
    for (const int number : {99, 0, 9, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(static_cast<int>(static_cast<BaudRate>(number)), number);
        EXPECT_EQ(static_cast<int>(static_cast<Parity>(number)), number);
    }
}

} // namespace
