#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

using Bytes = std::vector<uint8_t>;

// Any non-zero modifier inverts, not only the named one.
constexpr auto g_otherNonZero = static_cast<DiscreteModifier>(7);

TEST(CdsBooleanToOneDiscreteAccessorTest, PlainModifierServesTheStoredValue)
{
    FakeCdsDataAccessor data(zu::CValue(true));
    CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::None);
    EXPECT_EQ(accessor.getData(), Bytes{1});
    EXPECT_EQ(accessor.getStrValue(), "1");
    data.changeSilently(zu::CValue(false));
    EXPECT_EQ(accessor.getData(), Bytes{0});
    EXPECT_EQ(accessor.getStrValue(), "0");
}

TEST(CdsBooleanToOneDiscreteAccessorTest, NonZeroModifierServesStoredTrueAsZero)
{
    for (const auto modifier : {DiscreteModifier::Inverted, g_otherNonZero}) {
        FakeCdsDataAccessor data(zu::CValue(true));
        CdsBooleanToOneDiscreteAccessor accessor(&data, modifier);
        EXPECT_EQ(accessor.getData(), Bytes{0});
        EXPECT_EQ(accessor.getStrValue(), "0");
    }
}

TEST(CdsBooleanToOneDiscreteAccessorTest, PlainModifierStoresTrueForAnyNonZeroByte)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::None);
    accessor.setData({5});
    accessor.setData({0});
    EXPECT_EQ(data.written(), (std::vector<zu::CValue>{zu::CValue(true), zu::CValue(false)}));
}

TEST(CdsBooleanToOneDiscreteAccessorTest, NonZeroModifierStoresFalseForNonZeroAndTrueForZero)
{
    for (const auto modifier : {DiscreteModifier::Inverted, g_otherNonZero}) {
        FakeCdsDataAccessor data(zu::CValue(false));
        CdsBooleanToOneDiscreteAccessor accessor(&data, modifier);
        accessor.setData({5});
        accessor.setData({0});
        EXPECT_EQ(data.written(), (std::vector<zu::CValue>{zu::CValue(false), zu::CValue(true)}));
    }
}

TEST(CdsBooleanToOneDiscreteAccessorTest, OnlyTheFirstByteIsWritten)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::None);
    accessor.setData({0, 1, 1});
    EXPECT_EQ(data.written(), std::vector<zu::CValue>{zu::CValue(false)});
}

TEST(CdsBooleanToOneDiscreteAccessorTest, EmptyArrayStoresNothing)
{
    for (const auto modifier : {DiscreteModifier::None, DiscreteModifier::Inverted}) {
        FakeCdsDataAccessor data(zu::CValue(false));
        CdsBooleanToOneDiscreteAccessor accessor(&data, modifier);
        accessor.setData({});
        EXPECT_TRUE(data.written().empty());
    }
}

TEST(CdsBooleanToOneDiscreteAccessorTest, UnavailableDataPointServesNothingAndTakesNothing)
{
    FakeCdsDataAccessor data(zu::CValue(true), false);
    CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::Inverted);
    EXPECT_FALSE(accessor.isDataAvailable());
    EXPECT_TRUE(accessor.getData().empty());
    EXPECT_EQ(accessor.getStrValue(), "");
    accessor.setData({1});
    EXPECT_TRUE(data.written().empty());
}

TEST(CdsBooleanToOneDiscreteAccessorTest, ChangesArePublishedAsOneByteAfterTheModifier)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    CdsBooleanToOneDiscreteAccessor plain(&data, DiscreteModifier::None);
    FakeCdsDataAccessor other(zu::CValue(false));
    CdsBooleanToOneDiscreteAccessor inverted(&other, DiscreteModifier::Inverted);
    PublishedBits plainBits;
    PublishedBits invertedBits;
    plain.setCallback(plainBits.callback());
    inverted.setCallback(invertedBits.callback());
    data.change(zu::CValue(true));
    other.change(zu::CValue(true));
    EXPECT_EQ(plainBits.last(), Bytes{1});
    EXPECT_EQ(invertedBits.last(), Bytes{0});
}

TEST(CdsBooleanToOneDiscreteAccessorTest, IsOneBooleanBit)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::None);
    EXPECT_EQ(accessor.getSize(), 1);
    EXPECT_EQ(accessor.getDataRepresentation(), "Boolean");
    EXPECT_EQ(accessor.buildArrayFromBool(true), Bytes{1});
    EXPECT_EQ(accessor.buildArrayFromBool(false), Bytes{0});
}

TEST(CdsBooleanToOneDiscreteAccessorTest, BorrowedDataPointNoLongerReachesADestroyedAccessor)
{
    FakeCdsDataAccessor data(zu::CValue(false));
    PublishedBits published;
    {
        CdsBooleanToOneDiscreteAccessor accessor(&data, DiscreteModifier::None);
        accessor.setCallback(published.callback());
        data.change(zu::CValue(true));
        EXPECT_EQ(published.count(), 1u);
    }
    data.change(zu::CValue(false));
    EXPECT_EQ(published.count(), 1u);
}

TEST(CdsBooleanToOneDiscreteAccessorTest, SharedDataPointIsKeptAliveAndNullIsRefused)
{
    auto data = std::make_shared<FakeCdsDataAccessor>(zu::CValue(true));
    std::weak_ptr<FakeCdsDataAccessor> watcher = data;
    {
        CdsBooleanToOneDiscreteAccessor accessor(std::shared_ptr<CdsDataAccessor>(std::move(data)),
                                                 DiscreteModifier::None);
        EXPECT_FALSE(watcher.expired());
    }
    EXPECT_TRUE(watcher.expired());
    EXPECT_THROW(CdsBooleanToOneDiscreteAccessor(static_cast<CdsDataAccessor*>(nullptr), DiscreteModifier::None),
                 std::invalid_argument);
}

} // namespace
} // namespace orv::modbus::cds::test
