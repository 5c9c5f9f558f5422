#include "RegisterWords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <limits>

namespace orv::modbus::cds {
namespace {

using ::testing::ThrowsMessage;

constexpr const char* g_message = "buildArrayFromFloat is not implemented for ByteOrder";
constexpr const char* g_setDataMessage = "setData is not implemented for ByteOrder";
using Words = std::vector<uint16_t>;

TEST(RegisterWordsTest, FloatWordsAreTheHighHalfFirstInAbcd)
{
    EXPECT_EQ(RegisterWords::splitFloat(150.0f, ByteOrder::ABCD, g_message), (Words{0x4316, 0x0000}));
    EXPECT_EQ(RegisterWords::splitFloat(-2.5f, ByteOrder::ABCD, g_message), (Words{0xC020, 0x0000}));
}

TEST(RegisterWordsTest, FloatWordsAreTheLowHalfFirstInCdab)
{
    EXPECT_EQ(RegisterWords::splitFloat(150.0f, ByteOrder::CDAB, g_message), (Words{0x0000, 0x4316}));
    EXPECT_EQ(RegisterWords::splitFloat(-2.5f, ByteOrder::CDAB, g_message), (Words{0x0000, 0xC020}));
}

TEST(RegisterWordsTest, FloatWordsReadBackInBothOrders)
{
    for (const auto order : {ByteOrder::ABCD, ByteOrder::CDAB}) {
        for (const float value : {150.0f, -2.5f, 0.1f, std::numeric_limits<float>::max()}) {
            const auto words = RegisterWords::splitFloat(value, order, g_message);
            EXPECT_EQ(RegisterWords::joinFloat(words, order, g_message), value) << to_string(order);
        }
    }
    EXPECT_EQ(RegisterWords::joinFloat({0x4316, 0x0000}, ByteOrder::ABCD, g_message), 150.0f);
    EXPECT_EQ(RegisterWords::joinFloat({0x0000, 0xC020}, ByteOrder::CDAB, g_message), -2.5f);
}

TEST(RegisterWordsTest, IntegersSplitByWordOrder)
{
    EXPECT_EQ(RegisterWords::split(0x12345678u, ByteOrder::ABCD, g_message), (Words{0x1234, 0x5678}));
    EXPECT_EQ(RegisterWords::split(0x12345678u, ByteOrder::CDAB, g_message), (Words{0x5678, 0x1234}));
    EXPECT_EQ(RegisterWords::join({0x1234, 0x5678}, ByteOrder::ABCD, g_message), 0x12345678u);
    EXPECT_EQ(RegisterWords::join({0x5678, 0x1234}, ByteOrder::CDAB, g_message), 0x12345678u);
}

TEST(RegisterWordsTest, MissingWordsCountAsZeroAndExtraWordsAreIgnored)
{
    EXPECT_EQ(RegisterWords::join({}, ByteOrder::ABCD, g_message), 0u);
    EXPECT_EQ(RegisterWords::join({0x0001}, ByteOrder::ABCD, g_message), 0x00010000u);
    EXPECT_EQ(RegisterWords::join({0x0001}, ByteOrder::CDAB, g_message), 0x00000001u);
    EXPECT_EQ(RegisterWords::join({0x0001, 0x0002, 0x0003}, ByteOrder::ABCD, g_message), 0x00010002u);
}

TEST(RegisterWordsTest, UnknownOrderSkipsAsManyLeadingCharactersAsItsValue)
{
    EXPECT_THAT([&] { RegisterWords::split(1, static_cast<ByteOrder>(2), g_message); },
                ThrowsMessage<std::logic_error>("ildArrayFromFloat is not implemented for ByteOrder"));
    EXPECT_THAT([] { RegisterWords::join({1, 2}, static_cast<ByteOrder>(5), g_setDataMessage); },
                ThrowsMessage<std::logic_error>("ta is not implemented for ByteOrder"));
}

TEST(RegisterWordsTest, UnknownOrderBeyondTheMessageGivesAnEmptyMessage)
{
    EXPECT_THAT([&] { RegisterWords::split(1, static_cast<ByteOrder>(1000), g_message); },
                ThrowsMessage<std::logic_error>(""));
}

} // namespace
} // namespace orv::modbus::cds
