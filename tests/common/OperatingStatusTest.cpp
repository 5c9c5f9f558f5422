#include <orv/common/service/OperatingStatus.h>

#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using orv::common::service::OperatingStatus;
using orv::common::service::toString;

TEST(OperatingStatusTest, InServiceValuesAreFifteenAndSixteen)
{
    EXPECT_EQ(static_cast<std::uint32_t>(OperatingStatus::Running), 15u);
    EXPECT_EQ(static_cast<std::uint32_t>(OperatingStatus::RunningDegraded), 16u);
    EXPECT_EQ(toString(OperatingStatus::Running), "Running");
    EXPECT_EQ(toString(static_cast<OperatingStatus>(15)), "Running");
    EXPECT_EQ(toString(static_cast<OperatingStatus>(16)), "RunningDegraded");
}

TEST(OperatingStatusTest, EveryNamedValueHasItsOwnName)
{
    EXPECT_EQ(toString(OperatingStatus::Unknown), "Unknown");
    EXPECT_EQ(toString(OperatingStatus::Maintenance), "Maintenance");
    EXPECT_EQ(toString(static_cast<OperatingStatus>(4)), "Stopped");
}

TEST(OperatingStatusTest, UnnamedValueShowsItsNumber)
{
    EXPECT_EQ(toString(static_cast<OperatingStatus>(17)), "OperatingStatus(17)");
    EXPECT_EQ(toString(static_cast<OperatingStatus>(0xFFFFFFFFu)), "OperatingStatus(4294967295)");
}

TEST(OperatingStatusTest, AnyUnsignedNumberConverts)
{
    static_assert(std::is_same_v<std::underlying_type_t<OperatingStatus>, std::uint32_t>);
    EXPECT_EQ(static_cast<std::uint32_t>(static_cast<OperatingStatus>(1234u)), 1234u);
}

} // namespace
