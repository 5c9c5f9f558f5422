#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsStringToOneRegisterAccessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using ::testing::ThrowsMessage;

using Words = std::vector<uint16_t>;

Words served(const char* text)
{
    FakeCdsDataAccessor data{zu::CValue(text)};
    return CdsStringToOneRegisterAccessor(&data).getData();
}

TEST(CdsStringToOneRegisterAccessorTest, DecimalTextBecomesOneRegister)
{
    EXPECT_EQ(served("42"), Words{42});
    EXPECT_EQ(served(" 7x"), Words{7});
    EXPECT_EQ(served("65535"), Words{65535});
    EXPECT_EQ(served(""), Words{});
}

TEST(CdsStringToOneRegisterAccessorTest, TooLargeNumbersThrowTheOverflowError)
{
    EXPECT_THAT([&] { served("65536"); },
                ThrowsMessage<std::overflow_error>("Invalid conversion from unsigned long to short."));
    EXPECT_THAT([&] { served("99999999999999999999999"); },
                ThrowsMessage<std::out_of_range>("stoul"));
}

// std::stoul's range is that of unsigned long: on the gateway's 32-bit CPU a
// number of 33 bits is already out of it, where a 64-bit one still reads it
// and finds it above a register's range. Either way the text is refused.
TEST(CdsStringToOneRegisterAccessorTest, NumberOfThirtyThreeBitsIsRefusedByTheWidthOfUnsignedLong)
{
    if constexpr (sizeof(unsigned long) == 4) {
        EXPECT_THAT([&] { served("4294967296"); }, ThrowsMessage<std::out_of_range>("stoul"));
    } else {
        EXPECT_THAT([&] { served("4294967296"); },
                    ThrowsMessage<std::overflow_error>("Invalid conversion from unsigned long to short."));
    }
}

TEST(CdsStringToOneRegisterAccessorTest, TextWithoutDigitsThrowsTheInvalidArgumentError)
{
    EXPECT_THAT([&] { served("abc"); },
                ThrowsMessage<std::invalid_argument>("stoul"));
}

TEST(CdsStringToOneRegisterAccessorTest, WriteStoresTheDecimalText)
{
    FakeCdsDataAccessor data(zu::CValue("0"));
    CdsStringToOneRegisterAccessor accessor(&data);
    accessor.setData({300});
    accessor.setData({65535});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue("300"));
    EXPECT_EQ(data.written()[1], zu::CValue("65535"));
    EXPECT_THROW(accessor.setData({}), std::out_of_range);
}

TEST(CdsStringToOneRegisterAccessorTest, ABadChangeLeavesTheEntryUncalledAndReachesTheNotifier)
{
    FakeCdsDataAccessor data(zu::CValue("1"));
    CdsStringToOneRegisterAccessor accessor(&data);
    PublishedWords published;
    accessor.setCallback(published.callback());
    data.change(zu::CValue("12"));
    EXPECT_EQ(published.last(), Words{12});
    EXPECT_THROW(data.change(zu::CValue("70000")), std::overflow_error);
    EXPECT_EQ(published.count(), 1u);
}

TEST(CdsStringToOneRegisterAccessorTest, TextAndRepresentation)
{
    FakeCdsDataAccessor data(zu::CValue("0042"));
    CdsStringToOneRegisterAccessor accessor(&data);
    EXPECT_EQ(accessor.getStrValue(), "42");
    EXPECT_EQ(accessor.getDataRepresentation(), "Uint16");
    EXPECT_EQ(accessor.getSize(), 1);
}

} // namespace
} // namespace orv::modbus::cds::test
