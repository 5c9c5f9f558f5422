#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>

#include <gtest/gtest.h>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;

TEST(CdsInt32ToOneRegisterAccessorTest, FactorTruncatesTowardZero)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{1234}));
    CdsInt32ToOneRegisterAccessor accessor(&data, 0.1f);
    EXPECT_EQ(accessor.getData(), Words{123});
    EXPECT_EQ(accessor.multiplyData(-1234), -123);
    EXPECT_EQ(accessor.buildArrayFromInt32(-1234), Words{static_cast<uint16_t>(-123)});
}

TEST(CdsInt32ToOneRegisterAccessorTest, RegisterIsTheLow16BitsWhileTheTextIsTheWholeValue)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{70000}));
    CdsInt32ToOneRegisterAccessor accessor(&data, 1.0f);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_EQ(accessor.getData(), Words{4464});
    EXPECT_EQ(accessor.getStrValue(), "70000");
    data.change(zu::CValue(std::int32_t{70000}));
    EXPECT_EQ(published.last(), Words{4464});
}

TEST(CdsInt32ToOneRegisterAccessorTest, WriteReadsTheRegisterAsUnsigned)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{0}));
    CdsInt32ToOneRegisterAccessor accessor(&data, 1.0f);
    accessor.setData({0xFFFF});
    accessor.setData({});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::int32_t{65535}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::int32_t{0}));
}

TEST(CdsInt32ToOneRegisterAccessorTest, WriteDividesByTheFactor)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{0}));
    CdsInt32ToOneRegisterAccessor accessor(&data, 0.1f);
    accessor.setData({123});
    accessor.setData({0xFFFF});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::int32_t{1230}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::int32_t{655350}));
}

TEST(CdsInt32ToOneRegisterAccessorTest, Representation)
{
    FakeCdsDataAccessor data(zu::CValue(std::int32_t{1}), false);
    CdsInt32ToOneRegisterAccessor accessor(&data, 1.0f);
    EXPECT_EQ(accessor.getDataRepresentation(), "Int16");
    EXPECT_EQ(accessor.getSize(), 1);
}

} // namespace
} // namespace orv::modbus::cds::test
