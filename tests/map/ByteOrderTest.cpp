#include <orv/modbus/ByteOrder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus {
namespace {

using ::testing::ThrowsMessage;

TEST(ByteOrderTest, TextOfEachOrder)
{
    EXPECT_EQ(to_string(ByteOrder::ABCD), "ABCD");
    EXPECT_EQ(to_string(ByteOrder::CDAB), "CDAB");
}

TEST(ByteOrderTest, UnknownOrderThrowsLogicErrorWithShiftedText)
{
    EXPECT_THAT([&] { to_string(static_cast<ByteOrder>(2)); },
                ThrowsMessage<std::logic_error>("_string() is not implemented for ByteOrder "));
}

TEST(ByteOrderTest, UnderlyingValues)
{
    EXPECT_EQ(static_cast<uint16_t>(ByteOrder::ABCD), 0);
    EXPECT_EQ(static_cast<uint16_t>(ByteOrder::CDAB), 1);
}

// An order far beyond the text must not point past it: the message is then
// empty.
TEST(ByteOrderTest, UnknownOrderBeyondTheTextGivesAnEmptyMessage)
{
    try {
        to_string(static_cast<ByteOrder>(1000));
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "");
    }
    EXPECT_EQ(unknownOrderMessage("abc", static_cast<ByteOrder>(3)), "");
    EXPECT_EQ(unknownOrderMessage("abc", static_cast<ByteOrder>(1)), "bc");
}

} // namespace
} // namespace orv::modbus
