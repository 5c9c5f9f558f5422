#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>

#include <gtest/gtest.h>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;

TEST(CdsBooleanToOneRegisterAccessorTest, ServesZeroOrOne)
{
    FakeCdsDataAccessor data(zu::CValue(true));
    CdsBooleanToOneRegisterAccessor accessor(&data);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_EQ(accessor.getData(), Words{1});
    EXPECT_EQ(accessor.getStrValue(), "1");
    data.change(zu::CValue(false));
    EXPECT_EQ(published.last(), Words{0});
    EXPECT_EQ(accessor.getStrValue(), "0");
}

TEST(CdsBooleanToOneRegisterAccessorTest, AnyNonZeroRegisterStoresTrueAndAnEmptyWriteFalse)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    CdsBooleanToOneRegisterAccessor accessor(&data);
    accessor.setData({2});
    accessor.setData({});
    accessor.setData({0});
    ASSERT_EQ(data.written().size(), 3u);
    EXPECT_EQ(data.written()[0], zu::CValue(true));
    EXPECT_EQ(data.written()[1], zu::CValue(false));
    EXPECT_EQ(data.written()[2], zu::CValue(false));
}

TEST(CdsBooleanToOneRegisterAccessorTest, Representation)
{
    FakeCdsDataAccessor data(zu::CValue(true), false);
    CdsBooleanToOneRegisterAccessor accessor(&data);
    EXPECT_EQ(accessor.getDataRepresentation(), "UInt16");
    EXPECT_EQ(accessor.getSize(), 1);
}

} // namespace
} // namespace orv::modbus::cds::test
