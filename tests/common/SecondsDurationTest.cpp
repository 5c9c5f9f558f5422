#include <orv/common/time/SecondsDuration.h>

#include <chrono>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace {

using orv::common::time::SecondsDuration;
using Clock = std::chrono::steady_clock;

// The deadline must lie between the clock's readings taken just before and
// just after it was computed, each plus the duration.
void expectNowPlus(std::int64_t seconds)
{
    const auto before = Clock::now();
    const auto deadline = SecondsDuration(seconds).toTimepoint();
    const auto after = Clock::now();
    EXPECT_GE(deadline, before + std::chrono::seconds(seconds)) << seconds;
    EXPECT_LE(deadline, after + std::chrono::seconds(seconds)) << seconds;
}

TEST(SecondsDurationTest, HoldsItsCount)
{
    EXPECT_EQ(SecondsDuration().count(), 0);
    EXPECT_EQ(SecondsDuration(30).count(), 30);
    EXPECT_EQ(SecondsDuration(-2).count(), -2);
    EXPECT_EQ(SecondsDuration(30), SecondsDuration(30));
    EXPECT_NE(SecondsDuration(30), SecondsDuration(31));
}

TEST(SecondsDurationTest, TimepointIsNowPlusTheDuration)
{
    expectNowPlus(0);
    expectNowPlus(1);
    expectNowPlus(3600);
    expectNowPlus(-5);
}

TEST(SecondsDurationTest, ZeroIsAlreadyReachedAfterAnyClockReading)
{
    const auto deadline = SecondsDuration(0).toTimepoint();
    EXPECT_FALSE(Clock::now() < deadline);
}

TEST(SecondsDurationTest, LongestRepresentableDurationIsExact)
{
    // About 285 years; the clock counts nanoseconds up to about 292 years.
    expectNowPlus(9'000'000'000);
}

TEST(SecondsDurationTest, HugeDurationSaturatesToTheLatestTimepoint)
{
    EXPECT_EQ(SecondsDuration(std::numeric_limits<std::int64_t>::max()).toTimepoint(), Clock::time_point::max());
    EXPECT_EQ(SecondsDuration(9'300'000'000).toTimepoint(), Clock::time_point::max());
}

TEST(SecondsDurationTest, HugeNegativeDurationSaturatesToTheEarliestTimepoint)
{
    EXPECT_EQ(SecondsDuration(std::numeric_limits<std::int64_t>::min()).toTimepoint(), Clock::time_point::min());
    EXPECT_EQ(SecondsDuration(-9'300'000'000).toTimepoint(), Clock::time_point::min());
}

} // namespace
