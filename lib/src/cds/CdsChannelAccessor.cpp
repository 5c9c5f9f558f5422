#include <orv/modbus/cds/CdsChannelAccessor.h>

#include <orv/modbus/cds/CdsInBandAccessor.h>

#include "CaughtFailures.h"
#include "ServerLogger.h"
#include "SubscriptionBook.h"

#include <exception>
#include <limits>
#include <utility>

namespace orv::modbus::cds {

CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriberId;
CdsChannelAccessor::SubscriberSets CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriber;
CdsChannelAccessor::SubscriptionIds CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriberId;

namespace {

using Book = SubscriptionBook<CdsChannelAccessor>;
using Handler = void (*)(std::uint64_t);

constexpr std::uint64_t g_allOnes = std::numeric_limits<std::uint64_t>::max();

Book g_channelUpdateBook{CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriber,
                         CdsChannelAccessor::m_mapChannelAccessorChannelUpdateSubscriberId};
Book g_channelStateBook{CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriber,
                        CdsChannelAccessor::m_mapChannelAccessorChannelStateSubscriberId};
Book g_channelSettingsBook{CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriber,
                           CdsChannelAccessor::m_mapChannelAccessorChannelSettingsSubscriberId};
Book g_deviceSettingsBook{CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriber,
                          CdsChannelAccessor::m_mapChannelAccessorDeviceSettingsSubscriberId};
Book g_deviceCreationBook{CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriber,
                          CdsChannelAccessor::m_mapChannelAccessorDeviceCreationSubscriberId};

// Every handler walks the watchers under it; every destructor leaves it
// before the books.
SubscriberWalks<CdsChannelAccessor> g_walks;

cdsapi::InBandAccessor& inBand()
{
    return CdsInBandAccessor::getInstance();
}

// Nothing escapes into the data store's notification thread: a notification
// for an object nobody watches any more (std::out_of_range) or a failing
// re-detection is logged at debug level and over.
void dispatch(Handler handler, std::uint64_t objectId) noexcept
{
    try {
        handler(objectId);
    } catch (...) {
        CaughtFailures::log("A data-store notification", ORV_SOURCE_HERE);
    }
}

std::uint64_t subscribeChannelTo(std::uint64_t channelId, zu::sub::subscription_type type, Handler handler)
{
    std::uint64_t subscriptionId = 0;
    inBand().subscribeChannel(
        channelId, [handler, channelId](std::uint64_t, const zu::CValue&) { dispatch(handler, channelId); }, type,
        &subscriptionId);
    return subscriptionId;
}

std::uint64_t subscribeDeviceTo(std::uint64_t deviceId, zu::sub::subscription_type type, Handler handler)
{
    std::uint64_t subscriptionId = 0;
    inBand().subscribeDevice(
        deviceId, [handler, deviceId](std::uint64_t) { dispatch(handler, deviceId); }, type, false,
        &subscriptionId);
    return subscriptionId;
}

cdsapi::TriggerId triggerOf(DataType type)
{
    return static_cast<cdsapi::TriggerId>(static_cast<std::uint32_t>(type) -
                                          static_cast<std::uint32_t>(DataType::AlarmTriggerThreshold0));
}

} // namespace

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, const std::string& channelName, DataType type)
    : CdsChannelAccessor(deviceId, 0, {}, channelName, "", type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(const std::string& deviceName, const std::string& channelName,
                                       DataType type)
    : CdsChannelAccessor(g_allOnes, g_allOnes, {}, channelName, deviceName, type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                                       const std::string& channelName, DataType type)
    : CdsChannelAccessor(deviceId, g_allOnes, subDevicePath, channelName, "", type)
{
    requestDetection();
}

CdsChannelAccessor::CdsChannelAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                       const std::vector<unsigned int>& subDevicePath,
                                       const std::string& channelName, const std::string& deviceName,
                                       DataType type)
    : m_deviceId(deviceId)
    , m_resolvedDeviceId(resolvedDeviceId)
    , m_subDevicePath(subDevicePath)
    , m_channelName(channelName)
    , m_deviceName(deviceName)
    , m_dataType(type)
{
}

CdsChannelAccessor::~CdsChannelAccessor()
{
    try {
        // Every book, not only the ids stored now: a detection may have left
        // this accessor watching an earlier device or channel.
        std::vector<std::uint64_t> unused;
        {
            const auto walksLeft = g_walks.leave(this);
            if (m_channelId != 0 && m_dataType > DataType::AlarmEnabled) {
                SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeChannelSettings with the cannonical name {}",
                                    m_channelName);
            }
            if (m_resolvedDeviceId != 0) {
                SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings with the cannonical name {}",
                                    m_channelName);
            }
            for (Book* book : {&g_channelUpdateBook, &g_channelStateBook, &g_channelSettingsBook,
                               &g_deviceCreationBook}) {
                for (const auto& [objectId, subscriptionId] : book->forget(this)) {
                    unused.push_back(subscriptionId);
                }
            }
            for (const auto& [deviceId, subscriptionId] : g_deviceSettingsBook.forget(this)) {
                SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings remove subscribe for the deviceId {}",
                                    deviceId);
                unused.push_back(subscriptionId);
            }
        }
        for (const auto subscriptionId : unused) {
            Book::release(subscriptionId);
        }
    } catch (...) {
        // Nothing may leave a destructor.
        CaughtFailures::log("Leaving the subscriptions of a channel accessor", ORV_SOURCE_HERE);
    }
}

void CdsChannelAccessor::setCValue(const zu::CValue& value)
{
    if (!m_found) {
        return;
    }
    const auto channelId = m_channelId.load();
    auto& cds = inBand();
    switch (m_dataType) {
    case DataType::ChannelValue:
        cds.setChannelCValue(channelId, value);
        break;
    case DataType::AlarmEnabled:
        cds.setChannelAlarmEnabled(channelId, value.as_bool());
        break;
    case DataType::AlarmTriggerThreshold0:
    case DataType::AlarmTriggerThreshold1:
    case DataType::AlarmTriggerThreshold2:
    case DataType::AlarmTriggerThreshold3:
        cds.setChannelAlarmTriggerThreshold(channelId, triggerOf(m_dataType), value.as_float());
        break;
    case DataType::AlarmTriggerThresholdEnabled:
        cds.setChannelAlarmTriggerThreshold(channelId, value.as_bool());
        break;
    case DataType::AlarmHysteresis:
        cds.setChannelAlarmHysteresis(channelId, value.as_float());
        break;
    case DataType::AlarmLevel:
        cds.setChannelAlarmLevel(channelId, static_cast<cdsapi::LevelAlarm>(value.as_int32()));
        break;
    }
}

zu::CValue CdsChannelAccessor::getCValue() const
{
    if (!m_found) {
        return {};
    }
    const auto channelId = m_channelId.load();
    const auto& cds = inBand();
    switch (m_dataType) {
    case DataType::ChannelValue:
        return cds.getChannelCValue(channelId);
    case DataType::AlarmEnabled:
        return zu::CValue(cds.getChannelAlarmEnabled(channelId));
    case DataType::AlarmTriggerThreshold0:
    case DataType::AlarmTriggerThreshold1:
    case DataType::AlarmTriggerThreshold2:
    case DataType::AlarmTriggerThreshold3:
        return zu::CValue(cds.getChannelAlarmTriggerThreshold(channelId, triggerOf(m_dataType)));
    case DataType::AlarmTriggerThresholdEnabled:
        return zu::CValue(cds.getChannelAlarmTriggerThreshold(channelId));
    case DataType::AlarmHysteresis:
        return zu::CValue(cds.getChannelAlarmHysteresis(channelId));
    case DataType::AlarmLevel:
        return zu::CValue(static_cast<std::int32_t>(cds.getChannelAlarmLevel(channelId)));
    }
    return {};
}

bool CdsChannelAccessor::isExistingInCds() const
{
    return m_found;
}

void CdsChannelAccessor::setUpdateCallback(std::function<void(const zu::CValue&)> callback)
{
    {
        std::lock_guard lock(m_callbackMutex);
        m_updateCallback = callback;
    }
    if (callback) {
        callback(getCValue());
    }
}

void CdsChannelAccessor::callbackUpdateChannelValue(const zu::CValue& value)
{
    // A copy: the callback may destroy this accessor, and with it the
    // stored function.
    if (const auto callback = updateCallback()) {
        callback(value);
    }
}

std::function<void(const zu::CValue&)> CdsChannelAccessor::updateCallback() const
{
    std::lock_guard lock(m_callbackMutex);
    return m_updateCallback;
}

std::string CdsChannelAccessor::describe() const
{
    const std::string device = m_deviceName.empty() ? std::to_string(m_deviceId) : "\"" + m_deviceName + "\"";
    return "device " + device + " channel \"" + m_channelName + "\"";
}

void CdsChannelAccessor::requestDetection()
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
            detectChannel();
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
    reportDetection();
}

void CdsChannelAccessor::reportDetection()
{
    if (const auto callback = updateCallback()) {
        callback(m_found ? getCValue() : zu::CValue());
    }
}

void CdsChannelAccessor::detectChannel()
{
    std::uint64_t newChannelId = 0;
    if (const auto device = locateDevice()) {
        if (*device != m_resolvedDeviceId) {
            // The settings watch of the previous device stays; it only goes
            // on the not-found path and with the accessor.
            subscribeDeviceSettings(*device, this);
            releaseChannelSubscription();
        }
        m_resolvedDeviceId = *device;
        newChannelId = lookUpChannel();
        if (newChannelId != 0) {
            subscribeChannel(newChannelId);
        }
        stopWatchingDeviceCreation();
        if (newChannelId == 0) {
            releaseChannelSubscription();
        }
    } else {
        if (m_resolvedDeviceId != 0) {
            unsubscribeDeviceSettings(m_resolvedDeviceId, this);
        }
        watchDeviceCreation();
        m_resolvedDeviceId = 0;
        releaseChannelSubscription();
    }
    m_found = newChannelId != 0;
    m_channelId = newChannelId;
}

std::optional<std::uint64_t> CdsChannelAccessor::locateDevice()
{
    try {
        auto& cds = CdsInBandAccessor::getInstance();
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

std::uint64_t CdsChannelAccessor::lookUpChannel() const
{
    try {
        return inBand().getChannelId(m_resolvedDeviceId, m_channelName);
    } catch (const std::exception&) {
        return 0;
    }
}

void CdsChannelAccessor::subscribeChannel(std::uint64_t newChannelId)
{
    switch (m_dataType) {
    case DataType::ChannelValue:
        subscribeChannelUpdate(newChannelId, this);
        break;
    case DataType::AlarmEnabled:
        // The state watch follows the channel id stored by the previous
        // detection (0 on the first one), not the one just found.
        subscribeChannelState(m_channelId, this);
        break;
    default:
        subscribeChannelSettings(newChannelId, this);
        break;
    }
}

void CdsChannelAccessor::releaseChannelSubscription()
{
    const auto channelId = m_channelId.load();
    if (channelId == 0) {
        return;
    }
    switch (m_dataType) {
    case DataType::ChannelValue:
        unsubscribeChannelUpdate(channelId, this);
        break;
    case DataType::AlarmEnabled:
        unsubscribeChannelState(channelId, this);
        break;
    default:
        unsubscribeChannelSettings(channelId, this);
        break;
    }
}

void CdsChannelAccessor::watchDeviceCreation()
{
    if (m_creationWatchId && *m_creationWatchId != m_deviceId) {
        stopWatchingDeviceCreation();
    }
    try {
        // Remembered before subscribing: the book keeps the accessor even
        // when the data store refuses the subscription.
        m_creationWatchId = m_deviceId;
        subscribeDeviceCreation(m_deviceId, this);
    } catch (const std::exception&) {
        // Still not found; a later notification retries.
        CaughtFailures::log("Watching for the creation of a device", ORV_SOURCE_HERE);
    }
}

void CdsChannelAccessor::stopWatchingDeviceCreation()
{
    if (m_creationWatchId) {
        unsubscribeDeviceCreation(*m_creationWatchId, this);
        m_creationWatchId.reset();
    }
}

void CdsChannelAccessor::subscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelUpdateBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_value_update, &CdsChannelAccessor::cdsChannelUpdate);
    });
}

void CdsChannelAccessor::subscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelStateBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_state, &CdsChannelAccessor::cdsChannelState);
    });
}

void CdsChannelAccessor::subscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeChannelSettings with the cannonical name {}", accessor->m_channelName);
    const bool created = g_channelSettingsBook.add(channelId, accessor, [channelId] {
        return subscribeChannelTo(channelId, zu::sub::channel_settings, &CdsChannelAccessor::cdsChannelSettings);
    });
    if (created) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeChannelSettings create subscribe on the channel Id={}", channelId);
    }
}

void CdsChannelAccessor::subscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceSettings with the cannonical name {}", accessor->m_channelName);
    const bool created = g_deviceSettingsBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_settings, &CdsChannelAccessor::cdsDeviceSettings);
    });
    if (created) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "subscribeDeviceSettings create subscribe for the deviceId {}", deviceId);
    }
}

void CdsChannelAccessor::subscribeDeviceCreation(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    g_deviceCreationBook.add(deviceId, accessor, [deviceId] {
        return subscribeDeviceTo(deviceId, zu::sub::device_creation, &CdsChannelAccessor::cdsDeviceCreation);
    });
}

void CdsChannelAccessor::unsubscribeChannelUpdate(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelUpdateBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeChannelState(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    g_channelStateBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeChannelSettings(std::uint64_t channelId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeChannelSettings with the cannonical name {}", accessor->m_channelName);
    g_channelSettingsBook.remove(channelId, accessor);
}

void CdsChannelAccessor::unsubscribeDeviceSettings(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings with the cannonical name {}", accessor->m_channelName);
    if (g_deviceSettingsBook.remove(deviceId, accessor)) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "unsubscribeDeviceSettings remove subscribe for the deviceId {}", deviceId);
    }
}

void CdsChannelAccessor::unsubscribeDeviceCreation(std::uint64_t deviceId, CdsChannelAccessor* accessor)
{
    g_deviceCreationBook.remove(deviceId, accessor);
}

void CdsChannelAccessor::cdsChannelUpdate(std::uint64_t channelId)
{
    Walk walk(g_walks, g_channelUpdateBook, channelId);
    try {
        const auto value = inBand().getChannelCValue(channelId);
        walk.forEach([&value](CdsChannelAccessor* accessor) { accessor->callbackUpdateChannelValue(value); });
    } catch (...) {
        redetect(walk);
    }
}

void CdsChannelAccessor::cdsChannelState(std::uint64_t channelId)
{
    Walk walk(g_walks, g_channelStateBook, channelId);
    try {
        // Read only to learn that the channel still exists.
        inBand().getChannelCValue(channelId);
        const zu::CValue enabled(inBand().getChannelAlarmEnabled(channelId));
        walk.forEach([&enabled](CdsChannelAccessor* accessor) { accessor->callbackUpdateChannelValue(enabled); });
    } catch (...) {
        redetect(walk);
    }
}

void CdsChannelAccessor::cdsChannelSettings(std::uint64_t channelId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Channel settings with the channel id {}", channelId);
    Walk walk(g_walks, g_channelSettingsBook, channelId);
    try {
        inBand().getChannelCValue(channelId);
    } catch (...) {
        redetect(walk);
        return;
    }
    walk.forEachIsolated("Settings update", [](CdsChannelAccessor* accessor) {
        accessor->callbackUpdateChannelValue(accessor->getCValue());
    });
}

void CdsChannelAccessor::cdsDeviceSettings(std::uint64_t deviceId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Device settings callback with the device id {}", deviceId);
    Walk walk(g_walks, g_deviceSettingsBook, deviceId);
    walk.forEachIsolated("Detection", [](CdsChannelAccessor* accessor) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "cannonical name  {}", accessor->m_channelName);
        accessor->requestDetection();
    });
}

void CdsChannelAccessor::cdsDeviceCreation(std::uint64_t deviceId)
{
    Walk walk(g_walks, g_deviceCreationBook, deviceId);
    walk.forEachIsolated("Detection", [](CdsChannelAccessor* accessor) { accessor->requestDetection(); });
}

void CdsChannelAccessor::redetect(Walk& walk)
{
    walk.forEach([](CdsChannelAccessor* accessor) { accessor->m_found = false; });
    walk.forEachIsolated("Detection", [](CdsChannelAccessor* accessor) { accessor->requestDetection(); });
}

} // namespace orv::modbus::cds
