#include <orv/modbus/cds/CdsDeviceAccessor.h>

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"
#include "DataStoreSubscriptions.h"
#include "DeviceCreationBook.h"
#include "ServerLogger.h"
#include "SubscriptionBook.h"

#include <limits>

namespace orv::modbus::cds {

CdsDeviceAccessor::SubscriberSets CdsDeviceAccessor::m_mapDeviceAccessorDeviceSubscriber;
CdsDeviceAccessor::SubscriptionIds CdsDeviceAccessor::m_mapDeviceAccessorDeviceSubscriberId;
CdsDeviceAccessor::SubscriberSets CdsDeviceAccessor::m_mapDeviceAccessorDeviceSettingsSubscriber;
CdsDeviceAccessor::SubscriptionIds CdsDeviceAccessor::m_mapDeviceAccessorDeviceSettingsSubscriberId;
CdsDeviceAccessor::SubscriberSets CdsDeviceAccessor::m_mapDeviceAccessorDeviceCreationSubscriber;
CdsDeviceAccessor::SubscriptionIds CdsDeviceAccessor::m_mapDeviceAccessorDeviceCreationSubscriberId;

namespace {

using Book = SubscriptionBook<CdsDeviceAccessor>;

constexpr std::uint64_t g_allOnes = std::numeric_limits<std::uint64_t>::max();
// The attribute that is the number of sub-devices, counted on every level.
constexpr auto g_subDeviceCount = static_cast<cdsapi::DeviceAttribute>(16);
constexpr std::int32_t g_allLevels = std::numeric_limits<std::int32_t>::max();

Book g_deviceUpdateBook{CdsDeviceAccessor::m_mapDeviceAccessorDeviceSubscriber,
                        CdsDeviceAccessor::m_mapDeviceAccessorDeviceSubscriberId};
Book g_deviceSettingsBook{CdsDeviceAccessor::m_mapDeviceAccessorDeviceSettingsSubscriber,
                          CdsDeviceAccessor::m_mapDeviceAccessorDeviceSettingsSubscriberId};
Book g_deviceCreationBook{CdsDeviceAccessor::m_mapDeviceAccessorDeviceCreationSubscriber,
                          CdsDeviceAccessor::m_mapDeviceAccessorDeviceCreationSubscriberId};

cdsapi::InBandAccessor& inBand()
{
    return CdsInBandAccessor::getInstance();
}

} // namespace

template <>
SubscriptionBook<CdsDeviceAccessor>& deviceCreationBook<CdsDeviceAccessor>()
{
    return g_deviceCreationBook;
}

CdsDeviceAccessor::CdsDeviceAccessor(std::uint64_t deviceId, cdsapi::DeviceAttribute attribute)
    : CdsDeviceAccessor(deviceId, 0, {}, "", attribute)
{
    requestDetection();
}

CdsDeviceAccessor::CdsDeviceAccessor(const std::string& deviceName, cdsapi::DeviceAttribute attribute)
    : CdsDeviceAccessor(g_allOnes, g_allOnes, {}, deviceName, attribute)
{
    requestDetection();
}

CdsDeviceAccessor::CdsDeviceAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                                     cdsapi::DeviceAttribute attribute)
    : CdsDeviceAccessor(deviceId, g_allOnes, subDevicePath, "", attribute)
{
    requestDetection();
}

CdsDeviceAccessor::CdsDeviceAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                     const std::vector<unsigned int>& subDevicePath, const std::string& deviceName,
                                     cdsapi::DeviceAttribute attribute)
    : CdsDetectionBase(deviceId, resolvedDeviceId, subDevicePath, deviceName)
    , m_attribute(attribute)
{
}

CdsDeviceAccessor::~CdsDeviceAccessor()
{
    try {
        releaseUnused<CdsDeviceAccessor>(leaveBookkeeping(
            m_walks, {&g_deviceUpdateBook, &g_deviceSettingsBook, &g_deviceCreationBook}, this));
    } catch (...) {
        // Nothing may leave a destructor.
        CaughtFailures::log("Leaving the subscriptions of a device accessor", ORV_SOURCE_HERE);
    }
}

void CdsDeviceAccessor::setCValue(const zu::CValue& value)
{
    if (m_found && m_attribute != g_subDeviceCount) {
        inBand().setDeviceAttribute(m_resolvedDeviceId, m_attribute, value.as_string(), false);
    }
}

zu::CValue CdsDeviceAccessor::getCValue() const
{
    // Read once: detection may move the accessor to another device meanwhile.
    const std::uint64_t device = m_resolvedDeviceId;
    if (m_attribute == g_subDeviceCount) {
        // Counted whatever the found flag says. While no device is reached
        // there is nothing to count: asking the data store about device 0
        // would only fail, and a map holding the accessor (a site map on a
        // gateway without that device) must still build.
        return device == 0 ? zu::CValue() : attributeOf(device);
    }
    return m_found ? attributeOf(device) : zu::CValue();
}

zu::CValue CdsDeviceAccessor::detectedValue() const
{
    return attributeOf(m_resolvedDeviceId);
}

zu::CValue CdsDeviceAccessor::attributeOf(std::uint64_t deviceId) const
{
    if (m_attribute == g_subDeviceCount) {
        return zu::CValue(static_cast<std::uint32_t>(inBand().getSubDevicesIds(deviceId, g_allLevels).size()));
    }
    return zu::CValue(inBand().getDeviceAttribute(deviceId, m_attribute));
}

void CdsDeviceAccessor::callbackUpdateDeviceValue(const zu::CValue& value)
{
    callUpdateCallback(value);
}

std::string CdsDeviceAccessor::describe() const
{
    return describeDevice() + " attribute " + std::to_string(static_cast<std::uint32_t>(m_attribute));
}

void CdsDeviceAccessor::detect()
{
    bool found = false;
    if (const auto device = locateDevice(NameLookup::Unguarded)) {
        if (*device != m_resolvedDeviceId) {
            subscribeDeviceSettings(*device, this);
            if (m_resolvedDeviceId != 0) {
                unsubscribeDeviceUpdate(m_resolvedDeviceId, this);
            }
            subscribeDeviceUpdate(*device, this);
            found = true;
        }
        // Landing on the device found before leaves the accessor not found,
        // as required of this accessor: after a settings event of its own
        // device it stays not found until the device is gone and found
        // again. Its subscriptions stay, so device updates still reach the
        // callback.
        m_resolvedDeviceId = *device;
        stopWatchingDeviceCreation();
    } else {
        if (m_resolvedDeviceId != 0) {
            unsubscribeDeviceSettings(m_resolvedDeviceId, this);
            if (m_found) {
                unsubscribeDeviceUpdate(m_resolvedDeviceId, this);
            }
        }
        watchDeviceCreation();
        m_resolvedDeviceId = 0;
    }
    m_found = found;
}

void CdsDeviceAccessor::subscribeDeviceUpdate(std::uint64_t deviceId, CdsDeviceAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceUpdate with the cannonical name {}", accessor->m_deviceName);
    const bool created = g_deviceUpdateBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_settings, &CdsDeviceAccessor::cdsDeviceUpdate);
    });
    if (created) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceUpdate create subscribe on the device Id {}", deviceId);
    }
}

void CdsDeviceAccessor::subscribeDeviceSettings(std::uint64_t deviceId, CdsDeviceAccessor* accessor)
{
    g_deviceSettingsBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_settings, &CdsDeviceAccessor::cdsDeviceSettings);
    });
}

void CdsDeviceAccessor::unsubscribeDeviceUpdate(std::uint64_t deviceId, CdsDeviceAccessor* accessor)
{
    g_deviceUpdateBook.remove(deviceId, accessor);
}

void CdsDeviceAccessor::unsubscribeDeviceSettings(std::uint64_t deviceId, CdsDeviceAccessor* accessor)
{
    g_deviceSettingsBook.remove(deviceId, accessor);
}

void CdsDeviceAccessor::cdsDeviceUpdate(std::uint64_t deviceId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Device update with the device id {}", deviceId);
    Walk walk(m_walks, g_deviceUpdateBook, deviceId);
    // A failing read or callback costs only its own accessor its device.
    walk.forEachRecovering(
        "Device update",
        [deviceId](CdsDeviceAccessor* accessor) {
            accessor->callbackUpdateDeviceValue(accessor->attributeOf(deviceId));
        },
        [](CdsDeviceAccessor* accessor) {
            accessor->m_found = false;
            accessor->requestDetection();
        });
}

void CdsDeviceAccessor::cdsDeviceSettings(std::uint64_t deviceId)
{
    Walk walk(m_walks, g_deviceSettingsBook, deviceId);
    redetectEach(walk);
}

} // namespace orv::modbus::cds
