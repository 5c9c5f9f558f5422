#include "BooleanDataPoints.h"
#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Flags = std::vector<bool>;
using Values = std::vector<zu::CValue>;

// Three boolean data points (true, false, true) owned by the composite last
// made, watched through raw pointers while it lives.
class ThreeBooleans : public ::testing::Test {
protected:
    std::unique_ptr<CdsDataToDiscretesAccessor> make(uint16_t size, CdsDataToDiscretesAccessor::ToBits toBits,
                                                     MissingAccessorPolicy policy = MissingAccessorPolicy::AllExisting)
    {
        m_a = new FakeCdsDataAccessor(zu::CValue(true));
        m_b = new FakeCdsDataAccessor(zu::CValue(false), m_secondExists);
        m_c = new FakeCdsDataAccessor(zu::CValue(true));
        return std::make_unique<CdsDataToDiscretesAccessor>(size, std::vector<CdsDataAccessor*>{m_a, m_b, m_c},
                                                            std::move(toBits), eachAsBoolean, policy);
    }

    bool m_secondExists = true;
    FakeCdsDataAccessor* m_a = nullptr;
    FakeCdsDataAccessor* m_b = nullptr;
    FakeCdsDataAccessor* m_c = nullptr;
};

TEST_F(ThreeBooleans, FewerBitsThanTheSizeArePaddedWithZeroBytes)
{
    const auto accessor = make(4, [](const Values&) { return Flags{true, true}; });
    EXPECT_EQ(accessor->getData(), (Bytes{1, 1, 0, 0}));
}

TEST_F(ThreeBooleans, BitsBeyondTheSizeAreDropped)
{
    const auto accessor = make(2, eachAsBit);
    EXPECT_EQ(accessor->getData(), (Bytes{1, 0}));
    // The text shows every bit the function returns.
    EXPECT_EQ(accessor->getStrValue(), "101");
}

TEST_F(ThreeBooleans, WrittenByteTwoIsFalseForItsDataPoint)
{
    const auto accessor = make(3, eachAsBit);
    accessor->setData({2, 1, 0});
    EXPECT_EQ(m_a->written(), Values{zu::CValue(false)});
    EXPECT_EQ(m_b->written(), Values{zu::CValue(true)});
    EXPECT_EQ(m_c->written(), Values{zu::CValue(false)});
}

TEST_F(ThreeBooleans, WrittenBytesGiveOneFlagPerDataPoint)
{
    const auto accessor = make(1, eachAsBit);
    EXPECT_EQ(accessor->buildArrayFromUint8({1}), (Flags{true, false, false}));
    EXPECT_EQ(accessor->buildArrayFromUint8({1, 255, 1, 1, 1}), (Flags{true, false, true}));
    EXPECT_EQ(accessor->buildArrayFromBool({true, false}), (Bytes{1}));
}

TEST_F(ThreeBooleans, EveryReadRefreshesEveryDataPoint)
{
    const auto accessor = make(3, eachAsBit);
    m_b->changeSilently(zu::CValue(true));
    EXPECT_EQ(accessor->getData(), (Bytes{1, 1, 1}));
    EXPECT_EQ(accessor->getStrValue(), "111");
}

TEST_F(ThreeBooleans, ChangeOfOneDataPointPublishesEveryBit)
{
    const auto accessor = make(4, eachAsBit);
    PublishedBits published;
    accessor->setCallback(published.callback());
    m_c->change(zu::CValue(false));
    EXPECT_EQ(published.last(), (Bytes{1, 0, 0, 0}));
}

TEST_F(ThreeBooleans, PolicyDecidesAvailabilityAndUnavailableServesNothing)
{
    m_secondExists = false;
    EXPECT_TRUE(make(3, eachAsBit, MissingAccessorPolicy::AnyExisting)->isDataAvailable());
    const auto accessor = make(3, eachAsBit, MissingAccessorPolicy::AllExisting);
    EXPECT_FALSE(accessor->isDataAvailable());
    EXPECT_TRUE(accessor->getData().empty());
    EXPECT_EQ(accessor->getStrValue(), "");
    EXPECT_EQ(accessor->getDataRepresentation(), "See Description");
    accessor->setData({1, 1, 1});
    EXPECT_TRUE(m_a->written().empty());
}

TEST_F(ThreeBooleans, WithoutToBitsNothingIsServedAndANotificationIsACallError)
{
    const auto accessor = make(3, nullptr);
    EXPECT_TRUE(accessor->getData().empty());
    EXPECT_EQ(accessor->getStrValue(), "");
    PublishedBits published;
    accessor->setCallback(published.callback());
    EXPECT_THROW(m_a->change(zu::CValue(false)), std::bad_function_call);
}

TEST_F(ThreeBooleans, RepresentationIsBooleanOnlyForOneBit)
{
    EXPECT_EQ(make(1, eachAsBit)->getDataRepresentation(), "Boolean");
    EXPECT_EQ(make(3, eachAsBit)->getDataRepresentation(), "See Description");
}

TEST(CdsDataToDiscretesAccessorTest, MoreValuesThanDataPointsThrowTheRangeError)
{
    auto* only = new FakeCdsDataAccessor(zu::CValue(false));
    CdsDataToDiscretesAccessor accessor(
        2, {only}, eachAsBit, [](const Flags&) { return Values{zu::CValue(true), zu::CValue(true)}; },
        MissingAccessorPolicy::AllExisting);
    try {
        accessor.setData({1, 1});
        FAIL() << "no range error";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)");
    }
    EXPECT_EQ(only->written(), Values{zu::CValue(true)});
}

TEST(CdsDataToDiscretesAccessorTest, WithoutFromBitsNothingIsWritten)
{
    auto* only = new FakeCdsDataAccessor(zu::CValue(false));
    CdsDataToDiscretesAccessor accessor(1, {only}, eachAsBit, nullptr, MissingAccessorPolicy::AllExisting);
    accessor.setData({1});
    EXPECT_TRUE(only->written().empty());
}

} // namespace
} // namespace orv::modbus::cds::test
