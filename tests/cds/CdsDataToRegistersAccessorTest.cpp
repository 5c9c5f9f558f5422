#include "FakeCdsDataAccessor.h"
#include "LogCapture.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;
using Values = std::vector<zu::CValue>;

// Data points for exactly one composite, which owns them; the test keeps
// raw pointers to look at them while the composite lives.
class DataPoints {
public:
    explicit DataPoints(const Values& values, const std::vector<bool>& existing = {})
    {
        for (std::size_t i = 0; i < values.size(); ++i) {
            m_points.push_back(new FakeCdsDataAccessor(values[i], existing.empty() || existing[i]));
        }
    }

    std::vector<CdsDataAccessor*> accessors() const { return {m_points.begin(), m_points.end()}; }
    FakeCdsDataAccessor& operator[](std::size_t i) const { return *m_points.at(i); }

private:
    std::vector<FakeCdsDataAccessor*> m_points;
};

// The sum of the data points as one register.
Words sum(const Values& values)
{
    uint32_t total = 0;
    for (const auto& value : values) {
        total += value.as_uint32();
    }
    return {static_cast<uint16_t>(total)};
}

// Every register back to the data point of the same index.
Values oneValuePerRegister(const Words& words)
{
    Values values;
    for (const uint16_t word : words) {
        values.emplace_back(uint32_t{word});
    }
    return values;
}

std::unique_ptr<CdsDataToRegistersAccessor> makeSum(const DataPoints& points, MissingAccessorPolicy policy,
                                                    uint16_t size = 1)
{
    return std::make_unique<CdsDataToRegistersAccessor>(size, points.accessors(), sum, oneValuePerRegister, nullptr,
                                                        "", policy);
}

Values three(uint32_t a, uint32_t b, uint32_t c)
{
    return {zu::CValue(a), zu::CValue(b), zu::CValue(c)};
}

TEST(CdsDataToRegistersAccessorTest, AllExistingPolicyIsUnavailableWithOneOfThreeMissing)
{
    const DataPoints points(three(1, 2, 3), {true, false, true});
    EXPECT_FALSE(makeSum(points, MissingAccessorPolicy::AllExisting)->isDataAvailable());
}

TEST(CdsDataToRegistersAccessorTest, AnyExistingPolicyIsAvailableWithOneOfThreeMissing)
{
    const DataPoints points(three(1, 2, 3), {true, false, true});
    EXPECT_TRUE(makeSum(points, MissingAccessorPolicy::AnyExisting)->isDataAvailable());
}

TEST(CdsDataToRegistersAccessorTest, AnyExistingPolicyIsUnavailableWithNoneExisting)
{
    const DataPoints points(three(1, 2, 3), {false, false, false});
    EXPECT_FALSE(makeSum(points, MissingAccessorPolicy::AnyExisting)->isDataAvailable());
}

TEST(CdsDataToRegistersAccessorTest, OtherPolicyIsNeverAvailable)
{
    const DataPoints points(three(1, 2, 3));
    const auto accessor = makeSum(points, static_cast<MissingAccessorPolicy>(2));
    EXPECT_FALSE(accessor->isDataAvailable());
    EXPECT_TRUE(accessor->getData().empty());
}

TEST(CdsDataToRegistersAccessorTest, EveryReadRefreshesEveryDataPoint)
{
    const DataPoints points(three(1, 2, 3));
    const auto accessor = makeSum(points, MissingAccessorPolicy::AllExisting);
    EXPECT_EQ(accessor->getData(), Words{6});
    points[0].changeSilently(zu::CValue(uint32_t{10}));
    points[2].changeSilently(zu::CValue(uint32_t{30}));
    EXPECT_EQ(accessor->getData(), Words{42});
    EXPECT_EQ(accessor->updateCachedValues(), three(10, 2, 30));
}

TEST(CdsDataToRegistersAccessorTest, ChangeOfOneDataPointPublishesTheWholeCache)
{
    const DataPoints points(three(1, 2, 3));
    const auto accessor = makeSum(points, MissingAccessorPolicy::AllExisting);
    PublishedWords published;
    accessor->setCallback(published.callback());
    points[1].change(zu::CValue(uint32_t{20}));
    EXPECT_EQ(published.last(), Words{24});
    EXPECT_EQ(accessor->updateCachedValues(), three(1, 20, 3));
}

// A data point whose value changes, with a notification, while a read is
// asking for it: the read gets the older value.
class ChangingWhileRead : public FakeCdsDataAccessor {
public:
    using FakeCdsDataAccessor::FakeCdsDataAccessor;

    zu::CValue getCValue() const override
    {
        const auto older = FakeCdsDataAccessor::getCValue();
        if (m_newer.is_valid()) {
            const_cast<ChangingWhileRead*>(this)->change(m_newer);
        }
        return older;
    }

    zu::CValue m_newer;
};

TEST(CdsDataToRegistersAccessorTest, NotifiedValueNewerThanARunningReadWins)
{
    auto* changing = new ChangingWhileRead(zu::CValue(uint32_t{1}));
    CdsDataToRegistersAccessor accessor(1, {changing}, sum, nullptr, nullptr, "", MissingAccessorPolicy::AllExisting);
    changing->m_newer = zu::CValue(uint32_t{2});
    accessor.updateCachedValues();
    changing->m_newer = {};
    EXPECT_EQ(accessor.updateCachedValues(), Values{zu::CValue(uint32_t{2})});
}

TEST(CdsDataToRegistersAccessorTest, TwoRegistersWithoutTextFunctionShowTheSecondRegisterTwice)
{
    const DataPoints points(three(1, 2, 3));
    CdsDataToRegistersAccessor accessor(2, points.accessors(), [](const Values&) { return Words{1, 23}; }, nullptr,
                                        nullptr, "", MissingAccessorPolicy::AllExisting);
    EXPECT_EQ(accessor.getStrValue(), "2323");
}

TEST(CdsDataToRegistersAccessorTest, TextWithoutTextFunctionDependsOnTheRegisterCount)
{
    EXPECT_EQ(makeSum(DataPoints(three(1, 2, 3)), MissingAccessorPolicy::AllExisting)->getStrValue(), "6");
    CdsDataToRegistersAccessor threeWords(3, DataPoints(three(1, 2, 3)).accessors(), [](const Values&) { return Words{1, 2, 3}; },
                                          nullptr, nullptr, "", MissingAccessorPolicy::AllExisting);
    EXPECT_EQ(threeWords.getStrValue(), "");
    CdsDataToRegistersAccessor noFunction(1, DataPoints(three(1, 2, 3)).accessors(), nullptr, nullptr, nullptr, "",
                                          MissingAccessorPolicy::AllExisting);
    EXPECT_EQ(noFunction.getStrValue(), "");
    EXPECT_TRUE(noFunction.getData().empty());
}

TEST(CdsDataToRegistersAccessorTest, TextFunctionGetsTheRefreshedValues)
{
    const DataPoints points(three(1, 2, 3));
    CdsDataToRegistersAccessor accessor(
        1, points.accessors(), sum, nullptr,
        [](const Values& values) { return values[0].as_string() + "/" + values[2].as_string(); }, "",
        MissingAccessorPolicy::AllExisting);
    points[2].changeSilently(zu::CValue(uint32_t{9}));
    EXPECT_EQ(accessor.getStrValue(), "1/9");
}

TEST(CdsDataToRegistersAccessorTest, InvalidValueFromRegistersSkipsItsDataPoint)
{
    const DataPoints points(three(0, 0, 0));
    CdsDataToRegistersAccessor accessor(
        3, points.accessors(), sum,
        [](const Words& words) { return Values{zu::CValue(uint32_t{words[0]}), {}, zu::CValue(uint32_t{words[2]})}; },
        nullptr, "", MissingAccessorPolicy::AllExisting);
    accessor.setData({7, 8, 9});
    EXPECT_EQ(points[0].written(), Values{zu::CValue(uint32_t{7})});
    EXPECT_TRUE(points[1].written().empty());
    EXPECT_EQ(points[2].written(), Values{zu::CValue(uint32_t{9})});
}

TEST(CdsDataToRegistersAccessorTest, EveryValueSetIsLoggedFromSetData)
{
    orv::test::LogCapture log(orv::test::LogCapture::g_functionAndMessage);
    const DataPoints points(three(0, 0, 0));
    CdsDataToRegistersAccessor accessor(3, points.accessors(), sum,
                                        [](const Words&) { return Values{zu::CValue(uint32_t{70000}), {}}; }, nullptr,
                                        "", MissingAccessorPolicy::AllExisting);
    accessor.setData({0, 0, 0});
    EXPECT_EQ(log.count("setData|Value set to CDS:70000"), 1u);
    // The invalid value is logged too, before it is skipped.
    EXPECT_EQ(log.count("setData|Value set to CDS:0"), 1u);
    EXPECT_TRUE(log.containsFrom("setData|Value set to CDS:70000", "CdsDataToRegistersAccessor"));
}

TEST(CdsDataToRegistersAccessorTest, MoreValuesThanDataPointsThrowTheRangeErrorAfterWritingTheOthers)
{
    const DataPoints points({zu::CValue(uint32_t{0}), zu::CValue(uint32_t{0})});
    CdsDataToRegistersAccessor accessor(3, points.accessors(), sum, oneValuePerRegister, nullptr, "",
                                        MissingAccessorPolicy::AllExisting);
    try {
        accessor.setData({4, 5, 6});
        FAIL() << "no range error";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "vector::_M_range_check: __n (which is 2) >= this->size() (which is 2)");
    }
    EXPECT_EQ(points[0].written(), Values{zu::CValue(uint32_t{4})});
    EXPECT_EQ(points[1].written(), Values{zu::CValue(uint32_t{5})});
}

TEST(CdsDataToRegistersAccessorTest, UnavailableOrWithoutFromRegistersNothingIsWritten)
{
    const DataPoints missing(three(0, 0, 0), {true, false, true});
    const auto unavailable = makeSum(missing, MissingAccessorPolicy::AllExisting);
    unavailable->setData({1, 2, 3});
    EXPECT_TRUE(unavailable->getData().empty());
    EXPECT_EQ(unavailable->getStrValue(), "");
    EXPECT_TRUE(missing[0].written().empty());

    const DataPoints points(three(0, 0, 0));
    CdsDataToRegistersAccessor readOnly(1, points.accessors(), sum, nullptr, nullptr, "",
                                        MissingAccessorPolicy::AllExisting);
    readOnly.setData({1});
    EXPECT_TRUE(points[0].written().empty());
}

TEST(CdsDataToRegistersAccessorTest, ExceptionsOfTheConversionsReachTheCaller)
{
    const DataPoints points(three(1, 2, 3));
    CdsDataToRegistersAccessor accessor(
        1, points.accessors(), [](const Values&) -> Words { throw std::domain_error("to"); },
        [](const Words&) -> Values { throw std::domain_error("from"); },
        [](const Values&) -> std::string { throw std::domain_error("text"); }, "", MissingAccessorPolicy::AllExisting);
    EXPECT_THROW(accessor.getData(), std::domain_error);
    EXPECT_THROW(accessor.setData({1}), std::domain_error);
    EXPECT_THROW(accessor.getStrValue(), std::domain_error);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_THROW(points[0].change(zu::CValue(uint32_t{5})), std::domain_error);
    // The cache keeps what was stored before the failure.
    EXPECT_EQ(accessor.updateCachedValues(), three(5, 2, 3));
}

TEST(CdsDataToRegistersAccessorTest, NotificationWithoutToRegistersIsACallError)
{
    const DataPoints points(three(1, 2, 3));
    CdsDataToRegistersAccessor accessor(1, points.accessors(), nullptr, nullptr, nullptr, "",
                                        MissingAccessorPolicy::AllExisting);
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_THROW(points[1].change(zu::CValue(uint32_t{5})), std::bad_function_call);
}

// A data point that throws on every read, as the data store does for an
// object that went away.
class FailingDataPoint : public FakeCdsDataAccessor {
public:
    using FakeCdsDataAccessor::FakeCdsDataAccessor;
    zu::CValue getCValue() const override { throw std::runtime_error("gone"); }
    void setUpdateCallback(std::function<void(const zu::CValue&)>) override {}
};

TEST(CdsDataToRegistersAccessorTest, DataStoreFailuresReachTheCallerAndKeepTheEarlierRefresh)
{
    auto* first = new FakeCdsDataAccessor(zu::CValue(uint32_t{1}));
    auto* third = new FakeCdsDataAccessor(zu::CValue(uint32_t{3}));
    CdsDataToRegistersAccessor accessor(1, {first, new FailingDataPoint(zu::CValue(uint32_t{2})), third}, sum,
                                        nullptr, nullptr, "", MissingAccessorPolicy::AllExisting);
    first->changeSilently(zu::CValue(uint32_t{11}));
    EXPECT_THROW(accessor.getData(), std::runtime_error);
    PublishedWords published;
    accessor.setCallback(published.callback());
    third->change(zu::CValue(uint32_t{5}));
    // 11 from the refresh that failed after it, nothing for the failing one.
    EXPECT_EQ(published.last(), Words{16});
}

TEST(CdsDataToRegistersAccessorTest, RepresentationIsTheTextOrFollowsTheSize)
{
    const DataPoints points(three(1, 2, 3));
    CdsDataToRegistersAccessor named(2, points.accessors(), nullptr, nullptr, nullptr, "VA x 10",
                                     MissingAccessorPolicy::AllExisting);
    EXPECT_EQ(named.getDataRepresentation(), "VA x 10");
    EXPECT_EQ(makeSum(DataPoints(three(1, 2, 3)), MissingAccessorPolicy::AllExisting)->getDataRepresentation(),
              "UInt16");
    EXPECT_EQ(makeSum(DataPoints(three(1, 2, 3)), MissingAccessorPolicy::AllExisting, 2)->getDataRepresentation(),
              "See Description");
    EXPECT_EQ(named.getSize(), 2);
}

// Counts its own destruction.
class CountedDataPoint : public FakeCdsDataAccessor {
public:
    CountedDataPoint(int& destroyed)
        : FakeCdsDataAccessor(zu::CValue(uint32_t{0}))
        , m_destroyed(destroyed)
    {
    }
    ~CountedDataPoint() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

TEST(CdsDataToRegistersAccessorTest, DataPointsAreOwnedAndDeletedWithTheComposite)
{
    int destroyed = 0;
    {
        CdsDataToRegistersAccessor accessor(1, {new CountedDataPoint(destroyed), new CountedDataPoint(destroyed)}, sum,
                                            nullptr, nullptr, "", MissingAccessorPolicy::AllExisting);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(CdsDataToRegistersAccessorTest, NullDataPointIsRefusedAndTheOthersAreStillDeleted)
{
    int destroyed = 0;
    EXPECT_THROW(CdsDataToRegistersAccessor(1, {new CountedDataPoint(destroyed), nullptr}, sum, nullptr, nullptr, "",
                                            MissingAccessorPolicy::AllExisting),
                 std::invalid_argument);
    EXPECT_EQ(destroyed, 1);
}

} // namespace
} // namespace orv::modbus::cds::test
