#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsStringAccessor.h>

#include <gtest/gtest.h>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;

TEST(CdsStringAccessorTest, PacksTwoBytesPerRegisterHighByteFirst)
{
    FakeCdsDataAccessor data(zu::CValue("ABC"));
    CdsStringAccessor accessor(4, &data);
    EXPECT_EQ(accessor.getData(), (Words{0x4142, 0x4300}));
    EXPECT_EQ(accessor.buildArrayFromString(""), Words{});
}

TEST(CdsStringAccessorTest, TextIsNeitherPaddedNorCutInTheArrayButCutInTheText)
{
    FakeCdsDataAccessor data(zu::CValue("ABCDEF"));
    CdsStringAccessor accessor(2, &data);
    EXPECT_EQ(accessor.getStrValue(), "ABCD");
    EXPECT_EQ(accessor.getData(), (Words{0x4142, 0x4344, 0x4546}));
    EXPECT_EQ(accessor.getSize(), 2);
}

TEST(CdsStringAccessorTest, BytesPassUnchanged)
{
    FakeCdsDataAccessor data(zu::CValue("\xC3\xA9t\xC3\xA9"));
    CdsStringAccessor accessor(3, &data);
    EXPECT_EQ(accessor.getData(), (Words{0xC3A9, 0x74C3, 0xA900}));
}

TEST(CdsStringAccessorTest, WrittenTextEndsAtTheFirstNul)
{
    FakeCdsDataAccessor data(zu::CValue(""));
    CdsStringAccessor accessor(2, &data);
    accessor.setData({0x4142, 0x0000});
    accessor.setData({0x4100, 0x4243});
    accessor.setData({0x4142, 0x4344});
    accessor.setData({0xC3A9, 0x0000});
    ASSERT_EQ(data.written().size(), 4u);
    EXPECT_EQ(data.written()[0], zu::CValue("AB"));
    EXPECT_EQ(data.written()[1], zu::CValue("A"));
    EXPECT_EQ(data.written()[2], zu::CValue("ABCD"));
    EXPECT_EQ(data.written()[3], zu::CValue("\xC3\xA9"));
}

TEST(CdsStringAccessorTest, ChangesArePacked)
{
    FakeCdsDataAccessor data(zu::CValue(""));
    CdsStringAccessor accessor(2, &data);
    PublishedWords published;
    accessor.setCallback(published.callback());
    data.change(zu::CValue("Hi!"));
    EXPECT_EQ(published.last(), (Words{0x4869, 0x2100}));
}

TEST(CdsStringAccessorTest, Representation)
{
    FakeCdsDataAccessor data(zu::CValue("ABC"), false);
    CdsStringAccessor accessor(2, &data);
    EXPECT_EQ(accessor.getDataRepresentation(), "String");
}

} // namespace
} // namespace orv::modbus::cds::test
