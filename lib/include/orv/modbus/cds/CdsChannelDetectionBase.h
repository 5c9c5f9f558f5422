#pragma once

#include <orv/modbus/cds/CdsDetectionBase.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// The detection of a channel by its canonical name inside a device found as
// CdsDetectionBase finds it, shared by the channel accessor and the alarm
// accessor. They differ only in what they watch on a found channel:
// watchChannel and unwatchChannel. The device's settings are watched through
// `Accessor`'s static subscribeDeviceSettings and unsubscribeDeviceSettings.
template <typename Accessor>
class CdsChannelDetectionBase : public CdsDetectionBase<Accessor> {
public:
    // The device and channel this accessor binds, for log lines.
    std::string describe() const;

protected:
    CdsChannelDetectionBase(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                            const std::vector<unsigned int>& subDevicePath, const std::string& channelName,
                            const std::string& deviceName);

    void detect() final;

    // Watches the channel just found as `newChannelId`; m_channelId still
    // holds the one of the previous detection.
    virtual void watchChannel(std::uint64_t newChannelId) = 0;
    // Releases the watch of the channel m_channelId, when non-zero.
    virtual void unwatchChannel() = 0;

    std::string m_channelName;
    std::atomic<std::uint64_t> m_channelId{0};

private:
    std::uint64_t lookUpChannel() const;
};

} // namespace orv::modbus::cds
