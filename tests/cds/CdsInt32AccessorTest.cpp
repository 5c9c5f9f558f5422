#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsInt32Accessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using ::testing::ThrowsMessage;

using Words = std::vector<uint16_t>;

TEST(CdsInt32AccessorTest, MinusTwoInBothOrders)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{-2}));
    CdsInt32Accessor accessor(&data);
    PublishedWords published;
    accessor.setCallback(published.callback());

    EXPECT_EQ(accessor.getData(), (Words{0xFFFF, 0xFFFE}));
    data.change(zu::CValue(std::int32_t{-2}));
    EXPECT_EQ(published.last(), (Words{0xFFFF, 0xFFFE}));

    accessor.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.getData(), (Words{0xFFFE, 0xFFFF}));
    data.change(zu::CValue(std::int32_t{-2}));
    EXPECT_EQ(published.last(), (Words{0xFFFE, 0xFFFF}));
}

TEST(CdsInt32AccessorTest, WritesASigned32BitValue)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{0}));
    CdsInt32Accessor accessor(&data);
    accessor.setData({0xFFFF, 0xFFFE});
    accessor.setByteOrder(ByteOrder::CDAB);
    accessor.setData({0x5678, 0x1234});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::int32_t{-2}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::int32_t{0x12345678}));
}

TEST(CdsInt32AccessorTest, OneRegisterIsTheHighHalfInAbcdAndTheLowHalfInCdab)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{0}));
    CdsInt32Accessor accessor(&data);
    accessor.setData({0x0001});
    accessor.setByteOrder(ByteOrder::CDAB);
    accessor.setData({0x0001});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::int32_t{0x10000}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::int32_t{1}));
}

TEST(CdsInt32AccessorTest, TextAndRepresentation)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{-70000}));
    CdsInt32Accessor accessor(&data);
    EXPECT_EQ(accessor.getStrValue(), "-70000");
    EXPECT_EQ(accessor.getDataRepresentation(), "Int32 (ABCD)");
    accessor.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.getDataRepresentation(), "Int32 (CDAB)");
    EXPECT_EQ(accessor.getSize(), 2);
}

TEST(CdsInt32AccessorTest, UnknownByteOrderThrowsTheShortenedMessages)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{1}));
    CdsInt32Accessor accessor(&data);
    accessor.setByteOrder(static_cast<ByteOrder>(3));
    EXPECT_THAT([&] { accessor.buildArrayFromInt32(1); },
                ThrowsMessage<std::logic_error>("ldArrayFromInt32 is not implemented for ByteOrder"));
    EXPECT_THAT([&] { accessor.setData({1, 2}); },
                ThrowsMessage<std::logic_error>("Data is not implemented for ByteOrder"));
    EXPECT_TRUE(data.written().empty());
}

} // namespace
} // namespace orv::modbus::cds::test
