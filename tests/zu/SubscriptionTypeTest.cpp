#include <zu/sub/SubscriptionType.h>

#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

TEST(SubscriptionTypeTest, NamedValuesHaveThePlatformNumbers)
{
    EXPECT_EQ(zu::sub::channel_settings, 2u);
    EXPECT_EQ(zu::sub::device_settings, 3u);
    EXPECT_EQ(zu::sub::channel_state, 5u);
    EXPECT_EQ(zu::sub::device_creation, 13u);
    EXPECT_EQ(zu::sub::channel_value_update, 15u);
}

TEST(SubscriptionTypeTest, AnyNumberConverts)
{
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<zu::sub::subscription_type>, std::uint32_t>));
    EXPECT_EQ(static_cast<std::uint32_t>(static_cast<zu::sub::subscription_type>(99)), 99u);
    EXPECT_EQ(static_cast<std::uint32_t>(static_cast<zu::sub::subscription_type>(0xFFFFFFFFu)), 0xFFFFFFFFu);
}

} // namespace
