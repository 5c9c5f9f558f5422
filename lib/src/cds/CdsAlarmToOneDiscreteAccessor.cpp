#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <cdsapi/DataAlarms.h>

#include "CaughtFailures.h"
#include "DataStoreSubscriptions.h"
#include "DeviceCreationBook.h"
#include "SubscriptionBook.h"

#include <limits>

namespace orv::modbus::cds {

CdsAlarmToOneDiscreteAccessor::SubscriberSets CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorChannelAlarmSubscriber;
CdsAlarmToOneDiscreteAccessor::SubscriptionIds
    CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorChannelAlarmSubscriberId;
CdsAlarmToOneDiscreteAccessor::SubscriberSets
    CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorDeviceSettingsSubscriber;
CdsAlarmToOneDiscreteAccessor::SubscriptionIds
    CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorDeviceSettingsSubscriberId;
CdsAlarmToOneDiscreteAccessor::SubscriberSets
    CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorDeviceCreationSubscriber;
CdsAlarmToOneDiscreteAccessor::SubscriptionIds
    CdsAlarmToOneDiscreteAccessor::m_mapChannelAccessorDeviceCreationSubscriberId;

namespace {

using Accessor = CdsAlarmToOneDiscreteAccessor;
using Book = SubscriptionBook<Accessor>;

constexpr std::uint64_t g_allOnes = std::numeric_limits<std::uint64_t>::max();
// The trigger code and flag the class number looks at.
constexpr std::uint32_t g_specialCode = 7;
constexpr std::uint8_t g_specialFlag = 1;

Book g_channelAlarmBook{Accessor::m_mapChannelAccessorChannelAlarmSubscriber,
                        Accessor::m_mapChannelAccessorChannelAlarmSubscriberId};
Book g_deviceSettingsBook{Accessor::m_mapChannelAccessorDeviceSettingsSubscriber,
                          Accessor::m_mapChannelAccessorDeviceSettingsSubscriberId};
Book g_deviceCreationBook{Accessor::m_mapChannelAccessorDeviceCreationSubscriber,
                          Accessor::m_mapChannelAccessorDeviceCreationSubscriberId};

cdsapi::InBandAccessor& inBand()
{
    return CdsInBandAccessor::getInstance();
}

// The class number of `trigger`: 3 with the special flag, else 1; the
// special code makes it 4 or 2. So types 1 and 3 never match the special
// code, types 2 and 4 only ever match it, and each pair differs by the flag.
std::uint32_t classNumber(const zu::CAlarmTrigger& trigger)
{
    const std::uint32_t number = trigger.flag == g_specialFlag ? 3 : 1;
    return trigger.code == g_specialCode ? number + 1 : number;
}

} // namespace

template <>
SubscriptionBook<CdsAlarmToOneDiscreteAccessor>& deviceCreationBook<CdsAlarmToOneDiscreteAccessor>()
{
    return g_deviceCreationBook;
}

Accessor::CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, const std::string& channelName, AlarmType type)
    : CdsAlarmToOneDiscreteAccessor(deviceId, 0, {}, channelName, "", type)
{
    requestDetection();
}

Accessor::CdsAlarmToOneDiscreteAccessor(const std::string& deviceName, const std::string& channelName,
                                        AlarmType type)
    : CdsAlarmToOneDiscreteAccessor(g_allOnes, g_allOnes, {}, channelName, deviceName, type)
{
    requestDetection();
}

Accessor::CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                                        const std::string& channelName, AlarmType type)
    : CdsAlarmToOneDiscreteAccessor(deviceId, g_allOnes, subDevicePath, channelName, "", type)
{
    requestDetection();
}

Accessor::CdsAlarmToOneDiscreteAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                        const std::vector<unsigned int>& subDevicePath,
                                        const std::string& channelName, const std::string& deviceName,
                                        AlarmType type)
    : CdsChannelDetectionBase(deviceId, resolvedDeviceId, subDevicePath, channelName, deviceName)
    , m_alarmType(type)
{
}

Accessor::~CdsAlarmToOneDiscreteAccessor()
{
    try {
        releaseUnused<Accessor>(leaveBookkeeping(
            m_walks, {&g_channelAlarmBook, &g_deviceSettingsBook, &g_deviceCreationBook}, this));
    } catch (...) {
        // Nothing may leave a destructor.
        CaughtFailures::log("Leaving the subscriptions of an alarm accessor", ORV_SOURCE_HERE);
    }
}

void Accessor::setCValue(const zu::CValue&)
{
}

zu::CValue Accessor::getCValue() const
{
    if (!m_found) {
        return zu::CValue(false);
    }
    const auto channelId = m_channelId.load();
    auto& cds = inBand();
    if (!cds.getChannelAlarmEnabled(channelId)) {
        return zu::CValue(false);
    }
    if (m_alarmType == AlarmType::ThresholdFlag) {
        return zu::CValue(cds.getChannelCValue(channelId) == zu::CValue(cds.getChannelAlarmTriggerThreshold(channelId)));
    }
    return zu::CValue(matchesMostCriticalAlarm());
}

bool Accessor::matchesMostCriticalAlarm() const
{
    auto& cds = inBand();
    const auto channelId = cds.getChannelId(m_resolvedDeviceId, m_channelName);
    const auto trigger = cdsapi::DataAlarms(cds).getMostCritical(channelId);
    return trigger && classNumber(*trigger) == static_cast<std::uint32_t>(m_alarmType);
}

void Accessor::callbackUpdateChannelValue(const zu::CValue& value)
{
    callUpdateCallback(value);
}

void Accessor::watchChannel(std::uint64_t newChannelId)
{
    subscribeChannelAlarm(newChannelId, this);
}

void Accessor::unwatchChannel()
{
    if (const auto channelId = m_channelId.load(); channelId != 0) {
        unsubscribeChannelAlarm(channelId, this);
    }
}

void Accessor::subscribeChannelAlarm(std::uint64_t channelId, Accessor* accessor)
{
    g_channelAlarmBook.add(channelId, accessor,
                           [channelId] { return subscribeAlarmsTo(channelId, &Accessor::cdsChannelAlarm); });
}

void Accessor::subscribeDeviceSettings(std::uint64_t deviceId, Accessor* accessor)
{
    g_deviceSettingsBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_settings, &Accessor::cdsDeviceSettings);
    });
}

void Accessor::unsubscribeChannelAlarm(std::uint64_t channelId, Accessor* accessor)
{
    g_channelAlarmBook.remove(channelId, accessor);
}

void Accessor::unsubscribeDeviceSettings(std::uint64_t deviceId, Accessor* accessor)
{
    g_deviceSettingsBook.remove(deviceId, accessor);
}

void Accessor::cdsChannelAlarm(std::uint64_t channelId)
{
    Walk walk(m_walks, g_channelAlarmBook, channelId);
    try {
        // Read only to learn that the channel still exists.
        inBand().getChannelCValue(channelId);
    } catch (...) {
        redetectVanished(walk);
        return;
    }
    walk.forEachIsolated("Alarm update",
                         [](Accessor* accessor) { accessor->callbackUpdateChannelValue(accessor->getCValue()); });
}

void Accessor::cdsDeviceSettings(std::uint64_t deviceId)
{
    Walk walk(m_walks, g_deviceSettingsBook, deviceId);
    redetectEach(walk);
}

} // namespace orv::modbus::cds
