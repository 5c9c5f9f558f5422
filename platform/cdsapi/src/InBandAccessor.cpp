#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>

#include "ClientConnection.h"

#include <utility>

namespace cdsapi {

InBandAccessor::InBandAccessor(const std::string& clientName)
    // The store is reached first so that it outlives every client, the
    // process-wide ones included.
    : DataCalls(DataStore::instance())
    , m_clientName(clientName)
    , m_pConnection(std::make_unique<ClientConnection>(dataStore(), clientName))
{
}

InBandAccessor::~InBandAccessor() = default;

const std::string& InBandAccessor::getClientName() const
{
    return m_clientName;
}

void InBandAccessor::subscribeChannel(std::uint64_t channelId, ChannelCallback fn, zu::sub::subscription_type type,
                                      std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Channel, type, channelId, false,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId, event.value); },
        subscriptionId);
}

void InBandAccessor::subscribeDevice(std::uint64_t deviceId, DeviceCallback fn, zu::sub::subscription_type type,
                                     bool recursive, std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Device, type, deviceId, recursive,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId); }, subscriptionId);
}

void InBandAccessor::subscribeDeviceAlarms(std::uint64_t channelId, AlarmCallback fn, std::uint64_t* subscriptionId)
{
    m_pConnection->subscribe(
        DataStore::Target::Alarms, 0, channelId, false,
        [fn = std::move(fn)](const ClientConnection::Event& event) { fn(event.objectId, event.alarm); },
        subscriptionId);
}

void InBandAccessor::unsubscribe(std::uint64_t subscriptionId)
{
    m_pConnection->unsubscribe(subscriptionId);
}

} // namespace cdsapi
