#pragma once
// cdsapi::DataCalls: the data calls on the store's devices and channels,
// the same for a client (cdsapi::InBandAccessor) and for the store's service
// side (cdsapi::DataStore), which both are. Any call on a device or channel
// that does not exist throws CdsError, except the two id lookups:
// getChannelId gives 0 and getCatchedChannelId all ones for a channel that
// is not there. A write notifies every subscriber of the change, whoever
// made it.

#include <cdsapi/Types.h>

#include <zu/CDevice.h>
#include <zu/CValue.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cdsapi {

class DataStore;

class DataCalls {
public:
    DataCalls(const DataCalls&) = delete;
    DataCalls& operator=(const DataCalls&) = delete;

    zu::CDevice getDevice(std::uint64_t deviceId) const;
    std::vector<std::uint64_t> getSubDevicesIds(std::uint64_t deviceId, std::int32_t depth) const;
    std::uint64_t getChannelId(std::uint64_t deviceId, const std::string& channelName) const;
    std::uint64_t getCatchedChannelId(std::uint64_t deviceId, const std::string& channelName) const;

    zu::CValue getChannelCValue(std::uint64_t channelId) const;
    void setChannelCValue(std::uint64_t channelId, const zu::CValue& value);

    bool getChannelAlarmEnabled(std::uint64_t channelId) const;
    void setChannelAlarmEnabled(std::uint64_t channelId, bool enabled);
    float getChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger) const;
    void setChannelAlarmTriggerThreshold(std::uint64_t channelId, TriggerId trigger, float threshold);
    bool getChannelAlarmTriggerThreshold(std::uint64_t channelId) const;
    void setChannelAlarmTriggerThreshold(std::uint64_t channelId, bool thresholdEnabled);
    float getChannelAlarmHysteresis(std::uint64_t channelId) const;
    void setChannelAlarmHysteresis(std::uint64_t channelId, float hysteresis);
    LevelAlarm getChannelAlarmLevel(std::uint64_t channelId) const;
    void setChannelAlarmLevel(std::uint64_t channelId, LevelAlarm level);

    std::string getDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute) const;
    void setDeviceAttribute(std::uint64_t deviceId, DeviceAttribute attribute, const std::string& text,
                            bool onlyIfChanged = false);

protected:
    explicit DataCalls(DataStore& store);
    ~DataCalls() = default;

    DataStore& dataStore() const;

private:
    DataStore& m_dataStore;
};

} // namespace cdsapi
