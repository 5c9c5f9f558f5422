#include "DataStoreSubscriptions.h"

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"

namespace orv::modbus::cds {

namespace {

// Nothing escapes into the data store's notification thread: a notification
// for an object nobody watches any more (std::out_of_range) or a failing
// re-detection is logged at debug level and over.
void dispatch(NotificationHandler handler, std::uint64_t objectId) noexcept
{
    try {
        handler(objectId);
    } catch (...) {
        CaughtFailures::log("A data-store notification", ORV_SOURCE_HERE);
    }
}

} // namespace

std::uint64_t subscribeChannelTo(std::uint64_t channelId, zu::sub::subscription_type type,
                                 NotificationHandler handler)
{
    std::uint64_t subscriptionId = 0;
    CdsInBandAccessor::getInstance().subscribeChannel(
        channelId, [handler, channelId](std::uint64_t, const zu::CValue&) { dispatch(handler, channelId); }, type,
        &subscriptionId);
    return subscriptionId;
}

std::uint64_t subscribeDeviceTo(std::uint64_t deviceId, zu::sub::subscription_type type,
                                NotificationHandler handler)
{
    std::uint64_t subscriptionId = 0;
    CdsInBandAccessor::getInstance().subscribeDevice(
        deviceId, [handler, deviceId](std::uint64_t) { dispatch(handler, deviceId); }, type, false,
        &subscriptionId);
    return subscriptionId;
}

std::uint64_t subscribeAlarmsTo(std::uint64_t channelId, NotificationHandler handler)
{
    std::uint64_t subscriptionId = 0;
    CdsInBandAccessor::getInstance().subscribeDeviceAlarms(
        channelId, [handler, channelId](std::uint64_t, const zu::CAlarmUpdate&) { dispatch(handler, channelId); },
        &subscriptionId);
    return subscriptionId;
}

} // namespace orv::modbus::cds
