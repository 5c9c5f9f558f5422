#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsFloatToRegistersAccessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using ::testing::ThrowsMessage;

using Words = std::vector<uint16_t>;

TEST(CdsFloatToRegistersAccessorTest, ServesTheTruncatedUnsignedInteger)
{
    FakeCdsDataAccessor data(zu::CValue(70000.9f));
    CdsFloatToRegistersAccessor accessor(&data);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_EQ(accessor.getData(), (Words{0x0001, 0x1170}));
    EXPECT_EQ(accessor.getStrValue(), "70000");
    data.change(zu::CValue(70000.9f));
    EXPECT_EQ(published.last(), (Words{0x0001, 0x1170}));

    accessor.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.getData(), (Words{0x1170, 0x0001}));
}

TEST(CdsFloatToRegistersAccessorTest, NegativeValuesServeZeroAndHugeOnesSaturate)
{
    FakeCdsDataAccessor data(zu::CValue(-5.0f));
    CdsFloatToRegistersAccessor accessor(&data);
    EXPECT_EQ(accessor.getData(), (Words{0, 0}));
    EXPECT_EQ(accessor.buildArrayFromFloat(5e9f), (Words{0xFFFF, 0xFFFF}));
}

TEST(CdsFloatToRegistersAccessorTest, WriteStoresTheBitPatternWithoutConversion)
{
    FakeCdsDataAccessor data(zu::CValue(0.0f));
    CdsFloatToRegistersAccessor accessor(&data);
    accessor.setData({0, 3});
    ASSERT_EQ(data.written().size(), 1u);
    EXPECT_EQ(data.written()[0].type(), zu::CValue::Type::Float);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(data.written()[0].as_float()), 3u);
}

TEST(CdsFloatToRegistersAccessorTest, RepresentationIsUnsigned)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatToRegistersAccessor accessor(&data);
    EXPECT_EQ(accessor.getDataRepresentation(), "UInt32 (ABCD)");
    EXPECT_EQ(accessor.getSize(), 2);
}

TEST(CdsFloatToRegistersAccessorTest, UnknownByteOrderThrowsTheShortenedMessages)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatToRegistersAccessor accessor(&data);
    accessor.setByteOrder(static_cast<ByteOrder>(2));
    EXPECT_THAT([&] { accessor.buildArrayFromFloat(1.0f); },
                ThrowsMessage<std::logic_error>("ildArrayFromFloat is not implemented for ByteOrder"));
    EXPECT_THROW(accessor.setData({1, 2}), std::logic_error);
    EXPECT_TRUE(data.written().empty());
}

} // namespace
} // namespace orv::modbus::cds::test
