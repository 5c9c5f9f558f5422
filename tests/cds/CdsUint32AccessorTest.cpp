#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsUint32Accessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using ::testing::ThrowsMessage;

using Words = std::vector<uint16_t>;

TEST(CdsUint32AccessorTest, SplitsByWordOrder)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{0xDEADBEEF}));
    CdsUint32Accessor accessor(&data);
    PublishedWords published;
    accessor.setCallback(published.callback());

    EXPECT_EQ(accessor.getData(), (Words{0xDEAD, 0xBEEF}));
    accessor.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.getData(), (Words{0xBEEF, 0xDEAD}));
    data.change(zu::CValue(std::uint32_t{0x00010002}));
    EXPECT_EQ(published.last(), (Words{0x0002, 0x0001}));
}

TEST(CdsUint32AccessorTest, WritesAnUnsigned32BitValue)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{0}));
    CdsUint32Accessor accessor(&data);
    accessor.setData({0xFFFF, 0xFFFE});
    accessor.setData({0x0001});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::uint32_t{0xFFFFFFFE}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::uint32_t{0x00010000}));
}

TEST(CdsUint32AccessorTest, TextAndRepresentation)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{4000000000u}));
    CdsUint32Accessor accessor(&data);
    EXPECT_EQ(accessor.getStrValue(), "4000000000");
    EXPECT_EQ(accessor.getDataRepresentation(), "UInt32 (ABCD)");
    EXPECT_EQ(accessor.getSize(), 2);
}

TEST(CdsUint32AccessorTest, UnknownByteOrderKeepsTheSignedClassesMessage)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{1}));
    CdsUint32Accessor accessor(&data);
    accessor.setByteOrder(static_cast<ByteOrder>(2));
    EXPECT_THAT([&] { accessor.buildArrayFromInt32(1); },
                ThrowsMessage<std::logic_error>("ildArrayFromInt32 is not implemented for ByteOrder"));
}

} // namespace
} // namespace orv::modbus::cds::test
