#include <orv/modbus/cds/CdsChannelDetectionBase.h>

#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <exception>

namespace orv::modbus::cds {

template <typename Accessor>
CdsChannelDetectionBase<Accessor>::CdsChannelDetectionBase(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                                                           const std::vector<unsigned int>& subDevicePath,
                                                           const std::string& channelName,
                                                           const std::string& deviceName)
    : CdsDetectionBase<Accessor>(deviceId, resolvedDeviceId, subDevicePath, deviceName)
    , m_channelName(channelName)
{
}

template <typename Accessor>
std::string CdsChannelDetectionBase<Accessor>::describe() const
{
    return this->describeDevice() + " channel \"" + m_channelName + "\"";
}

template <typename Accessor>
void CdsChannelDetectionBase<Accessor>::detect()
{
    auto* accessor = static_cast<Accessor*>(this);
    std::uint64_t newChannelId = 0;
    if (const auto device = this->locateDevice(CdsDetectionBase<Accessor>::NameLookup::Guarded)) {
        if (*device != this->m_resolvedDeviceId) {
            // The settings watch of the previous device stays; it only goes
            // on the not-found path and with the accessor.
            Accessor::subscribeDeviceSettings(*device, accessor);
            unwatchChannel();
        }
        this->m_resolvedDeviceId = *device;
        newChannelId = lookUpChannel();
        if (newChannelId != 0) {
            watchChannel(newChannelId);
        }
        this->stopWatchingDeviceCreation();
        if (newChannelId == 0) {
            unwatchChannel();
        }
    } else {
        if (this->m_resolvedDeviceId != 0) {
            Accessor::unsubscribeDeviceSettings(this->m_resolvedDeviceId, accessor);
        }
        this->watchDeviceCreation();
        this->m_resolvedDeviceId = 0;
        unwatchChannel();
    }
    this->m_found = newChannelId != 0;
    m_channelId = newChannelId;
}

template <typename Accessor>
std::uint64_t CdsChannelDetectionBase<Accessor>::lookUpChannel() const
{
    try {
        return CdsInBandAccessor::getInstance().getChannelId(this->m_resolvedDeviceId, m_channelName);
    } catch (const std::exception&) {
        return 0;
    }
}

template class CdsChannelDetectionBase<CdsChannelAccessor>;
template class CdsChannelDetectionBase<CdsAlarmToOneDiscreteAccessor>;

} // namespace orv::modbus::cds
