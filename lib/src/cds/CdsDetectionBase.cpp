#include <orv/modbus/cds/CdsDetectionBase.h>

#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"
#include "DataStoreSubscriptions.h"
#include "DeviceCreationBook.h"

#include <exception>

namespace orv::modbus::cds {

namespace {

constexpr std::uint64_t g_allOnes = ~std::uint64_t{0};

} // namespace

template <typename Accessor>
CdsDetectionBase<Accessor>::CdsDetectionBase(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                             const std::vector<unsigned int>& subDevicePath,
                                             const std::string& deviceName)
    : m_deviceId(deviceId)
    , m_resolvedDeviceId(resolvedDeviceId)
    , m_subDevicePath(subDevicePath)
    , m_deviceName(deviceName)
{
}

template <typename Accessor>
bool CdsDetectionBase<Accessor>::isExistingInCds() const
{
    return m_found;
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::setUpdateCallback(std::function<void(const zu::CValue&)> callback)
{
    {
        std::lock_guard lock(m_callbackMutex);
        m_updateCallback = callback;
    }
    if (callback) {
        callback(getCValue());
    }
}

template <typename Accessor>
zu::CValue CdsDetectionBase<Accessor>::detectedValue() const
{
    return getCValue();
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::requestDetection()
{
    // A handler may ask for a detection while the constructor's one is still
    // running on another thread. Instead of running both at once on the same
    // members, the running one repeats until every request is served.
    if (m_detectionRequests.fetch_add(1) != 0) {
        return;
    }
    unsigned served = 1;
    for (;;) {
        try {
            detect();
        } catch (...) {
            m_detectionRequests = 0;
            throw;
        }
        const auto left = m_detectionRequests.fetch_sub(served) - served;
        if (left == 0) {
            break;
        }
        served = left;
    }
    if (const auto callback = updateCallback()) {
        callback(m_found ? detectedValue() : zu::CValue());
    }
}

template <typename Accessor>
std::optional<std::uint64_t> CdsDetectionBase<Accessor>::locateDevice(NameLookup nameLookup)
{
    auto& cds = CdsInBandAccessor::getInstance();
    if (m_deviceId == g_allOnes && nameLookup == NameLookup::Unguarded) {
        m_deviceId = cds.getDeviceByName(m_deviceName);
    }
    try {
        if (m_deviceId == g_allOnes) {
            m_deviceId = cds.getDeviceByName(m_deviceName);
        }
        cds.getDevice(m_deviceId);
        auto current = m_deviceId;
        for (const auto index : m_subDevicePath) {
            const auto subDevices = cds.getSubDevicesIds(current, 1);
            if (index >= subDevices.size()) {
                return std::nullopt;
            }
            current = subDevices[index];
        }
        return current;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::watchDeviceCreation()
{
    if (m_creationWatchId && *m_creationWatchId != m_deviceId) {
        stopWatchingDeviceCreation();
    }
    try {
        // Remembered before subscribing: the book keeps the accessor even
        // when the data store refuses the subscription.
        m_creationWatchId = m_deviceId;
        Accessor::subscribeDeviceCreation(m_deviceId, self());
    } catch (const std::exception&) {
        // Still not found; a later notification retries.
        CaughtFailures::log("Watching for the creation of a device", ORV_SOURCE_HERE);
    }
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::stopWatchingDeviceCreation()
{
    if (m_creationWatchId) {
        Accessor::unsubscribeDeviceCreation(*m_creationWatchId, self());
        m_creationWatchId.reset();
    }
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::subscribeDeviceCreation(std::uint64_t deviceId, Accessor* accessor)
{
    deviceCreationBook<Accessor>().add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_creation, &CdsDetectionBase::cdsDeviceCreation);
    });
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::unsubscribeDeviceCreation(std::uint64_t deviceId, Accessor* accessor)
{
    deviceCreationBook<Accessor>().remove(deviceId, accessor);
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::cdsDeviceCreation(std::uint64_t deviceId)
{
    Walk walk(m_walks, deviceCreationBook<Accessor>(), deviceId);
    redetectEach(walk);
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::callUpdateCallback(const zu::CValue& value)
{
    // A copy: the callback may destroy this accessor, and with it the
    // stored function.
    if (const auto callback = updateCallback()) {
        callback(value);
    }
}

template <typename Accessor>
std::string CdsDetectionBase<Accessor>::describeDevice() const
{
    return "device " + (m_deviceName.empty() ? std::to_string(m_deviceId) : "\"" + m_deviceName + "\"");
}

template <typename Accessor>
SubscriberWalks<Accessor> CdsDetectionBase<Accessor>::m_walks;

template <typename Accessor>
void CdsDetectionBase<Accessor>::redetectEach(Walk& walk)
{
    walk.forEachIsolated("Detection", [](Accessor* accessor) {
        static_cast<CdsDetectionBase*>(accessor)->requestDetection();
    });
}

template <typename Accessor>
void CdsDetectionBase<Accessor>::redetectVanished(Walk& walk)
{
    walk.forEach([](Accessor* accessor) { static_cast<CdsDetectionBase*>(accessor)->m_found = false; });
    redetectEach(walk);
}

template <typename Accessor>
std::function<void(const zu::CValue&)> CdsDetectionBase<Accessor>::updateCallback() const
{
    std::lock_guard lock(m_callbackMutex);
    return m_updateCallback;
}

template <typename Accessor>
Accessor* CdsDetectionBase<Accessor>::self()
{
    return static_cast<Accessor*>(this);
}

template class CdsDetectionBase<CdsChannelAccessor>;
template class CdsDetectionBase<CdsDeviceAccessor>;
template class CdsDetectionBase<CdsAlarmToOneDiscreteAccessor>;

} // namespace orv::modbus::cds
