#include <zu/CAlarmTrigger.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

TEST(CAlarmTriggerTest, CodeComesFirstThenTheOneByteFlag)
{
    static_assert(std::is_standard_layout_v<zu::CAlarmTrigger>);
    EXPECT_EQ(offsetof(zu::CAlarmTrigger, code), 0u);
    EXPECT_EQ(sizeof(zu::CAlarmTrigger::code), 4u);
    EXPECT_TRUE((std::is_same_v<decltype(zu::CAlarmTrigger::code), std::uint32_t>));
    EXPECT_EQ(offsetof(zu::CAlarmTrigger, flag), 4u);
    EXPECT_EQ(sizeof(zu::CAlarmTrigger::flag), 1u);
}

TEST(CAlarmTriggerTest, DefaultIsNoCodeNoFlag)
{
    const zu::CAlarmTrigger trigger;
    EXPECT_EQ(trigger.code, 0u);
    EXPECT_EQ(trigger.flag, 0u);
}

TEST(CAlarmTriggerTest, EqualityComparesEveryField)
{
    const zu::CAlarmTrigger trigger{7, 1, 2.5f};
    EXPECT_EQ(trigger, (zu::CAlarmTrigger{7, 1, 2.5f}));
    EXPECT_NE(trigger, (zu::CAlarmTrigger{6, 1, 2.5f}));
    EXPECT_NE(trigger, (zu::CAlarmTrigger{7, 0, 2.5f}));
    EXPECT_NE(trigger, (zu::CAlarmTrigger{7, 1, 3.0f}));
}

} // namespace
