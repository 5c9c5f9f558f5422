#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <gtest/gtest.h>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;

TEST(CdsUint32ToOneRegisterAccessorTest, MaskIsAppliedByExclusiveOr)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{0}));
    CdsUint32ToOneRegisterAccessor accessor(&data, BitmaskOp::Xor, 0x0001, std::nullopt);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_EQ(accessor.getData(), Words{1});
    data.change(zu::CValue(std::uint32_t{1}));
    EXPECT_EQ(published.last(), Words{0});
    EXPECT_EQ(accessor.getData(), Words{0});
    EXPECT_EQ(accessor.getStrValue(), "0");
}

TEST(CdsUint32ToOneRegisterAccessorTest, EveryWriteWithTheMaskStoresTheMask)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{0}));
    CdsUint32ToOneRegisterAccessor accessor(&data, BitmaskOp::Xor, 0x0001, std::nullopt);
    accessor.setData({0});
    accessor.setData({5});
    accessor.setData({0xFFFF});
    ASSERT_EQ(data.written().size(), 3u);
    for (const auto& value : data.written()) {
        EXPECT_EQ(value, zu::CValue(std::uint32_t{1}));
    }
}

TEST(CdsUint32ToOneRegisterAccessorTest, DefaultValueMakesAMissingDataPointAvailable)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{3}), false);
    CdsUint32ToOneRegisterAccessor withDefault(&data, BitmaskOp::None, 0, 7u);
    CdsUint32ToOneRegisterAccessor withoutDefault(&data, BitmaskOp::None, 0, std::nullopt);
    EXPECT_TRUE(withDefault.isDataAvailable());
    EXPECT_FALSE(withoutDefault.isDataAvailable());
    // Available through its default, the entry still reads the data point,
    // which gives the empty value while it does not exist.
    EXPECT_EQ(withDefault.getData(), Words{0});
    EXPECT_TRUE(withoutDefault.getData().empty());
    EXPECT_EQ(withoutDefault.getStrValue(), "");
}

// A class that narrows availability again reaches the default itself, served
// without mask or factor.
class NarrowedUint32Accessor : public CdsUint32ToOneRegisterAccessor {
public:
    using CdsUint32ToOneRegisterAccessor::CdsUint32ToOneRegisterAccessor;

    bool isDataAvailable() const override
    {
        return false;
    }
};

TEST(CdsUint32ToOneRegisterAccessorTest, DefaultIsServedAsItIsWhenNothingIsAvailable)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{3}), false);
    NarrowedUint32Accessor accessor(&data, BitmaskOp::Xor, 0x0001, 0x12345u);
    EXPECT_EQ(accessor.getData(), Words{0x2345});
}

TEST(CdsUint32ToOneRegisterAccessorTest, FactorScalesReadsAndWrites)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{100}));
    CdsUint32ToOneRegisterAccessor accessor(&data, 2.5f);
    EXPECT_EQ(accessor.getData(), Words{250});
    EXPECT_EQ(accessor.buildArrayFromUint32(100, false), Words{100});
    accessor.setData({250});
    ASSERT_EQ(data.written().size(), 1u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::uint32_t{100}));
}

TEST(CdsUint32ToOneRegisterAccessorTest, FactorOneServesTheLow16Bits)
{
    FakeCdsDataAccessor data(zu::CValue(std::uint32_t{0x11170}));
    CdsUint32ToOneRegisterAccessor accessor(&data, 1.0f);
    EXPECT_EQ(accessor.getData(), Words{0x1170});
    EXPECT_EQ(accessor.getStrValue(), "4464");
    accessor.setData({0xFFFF});
    accessor.setData({});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(std::uint32_t{65535}));
    EXPECT_EQ(data.written()[1], zu::CValue(std::uint32_t{0}));
    EXPECT_EQ(accessor.getDataRepresentation(), "UInt16");
    EXPECT_EQ(accessor.getSize(), 1);
}

} // namespace
} // namespace orv::modbus::cds::test
