#include "OneChannelFixture.h"

#include <cdsapi/DataAlarms.h>

#include <gtest/gtest.h>

namespace cdsapi::test {
namespace {

class DataAlarmsTest : public OneChannelFixture {
protected:
    DataAlarmsTest()
        : OneChannelFixture("ups", "Battery", zu::CValue(50.0f))
    {
    }
};

TEST_F(DataAlarmsTest, NoActiveAlarmGivesNothing)
{
    DataAlarms alarms(*client);
    EXPECT_FALSE(alarms.getMostCritical(channel).has_value());

    store.setChannelAlarmEnabled(channel, true);
    EXPECT_FALSE(alarms.getMostCritical(channel).has_value());
}

TEST_F(DataAlarmsTest, MostCriticalIsTheHighestFlagThenTheHighestCode)
{
    DataAlarms alarms(*client);
    store.raiseAlarm(channel, zu::CAlarmTrigger{9, 0, 1.0f});
    EXPECT_EQ(alarms.getMostCritical(channel).value_or(zu::CAlarmTrigger{}), (zu::CAlarmTrigger{9, 0, 1.0f}));

    store.raiseAlarm(channel, zu::CAlarmTrigger{7, 1, 2.0f});
    store.raiseAlarm(channel, zu::CAlarmTrigger{3, 1, 3.0f});
    EXPECT_EQ(alarms.getMostCritical(channel).value_or(zu::CAlarmTrigger{}), (zu::CAlarmTrigger{7, 1, 2.0f}));

    // Raising a code again replaces its trigger.
    store.raiseAlarm(channel, zu::CAlarmTrigger{3, 2, 4.0f});
    EXPECT_EQ(alarms.getMostCritical(channel).value_or(zu::CAlarmTrigger{}), (zu::CAlarmTrigger{3, 2, 4.0f}));
    EXPECT_EQ(store.getActiveAlarms(channel).size(), 3u);

    store.clearAlarm(channel, zu::CAlarmTrigger{3, 0, 0.0f});
    EXPECT_EQ(alarms.getMostCritical(channel).value_or(zu::CAlarmTrigger{}), (zu::CAlarmTrigger{7, 1, 2.0f}));
    store.clearAlarm(channel, zu::CAlarmTrigger{7, 0, 0.0f});
    store.clearAlarm(channel, zu::CAlarmTrigger{9, 0, 0.0f});
    EXPECT_FALSE(alarms.getMostCritical(channel).has_value());
}

TEST_F(DataAlarmsTest, AbsentChannelThrows)
{
    DataAlarms alarms(*client);
    EXPECT_THROW(alarms.getMostCritical(4242), CdsError);
    EXPECT_THROW(store.raiseAlarm(4242, zu::CAlarmTrigger{}), CdsError);
    EXPECT_THROW(store.clearAlarm(4242, zu::CAlarmTrigger{}), CdsError);
}

TEST_F(DataAlarmsTest, RemovedChannelTakesItsAlarmsAlong)
{
    DataAlarms alarms(*client);
    store.raiseAlarm(channel, zu::CAlarmTrigger{7, 1, 0.0f});
    store.removeChannel(channel);
    EXPECT_THROW(alarms.getMostCritical(channel), CdsError);
}

} // namespace
} // namespace cdsapi::test
