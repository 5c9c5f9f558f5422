#pragma once

#include <orv/modbus/cds/CdsDetectionBase.h>

#include <cdsapi/Types.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// Binds one attribute of one data-store device (its identification texts,
// for example) to the conversion accessors, as a string zu::CValue; writes
// convert the given value to text. Attribute 16 is computed instead: the
// number of sub-devices on all levels, as an unsigned 32-bit value, on every
// path (reads, the callback after a detection, device updates), read whether
// the device is found or not, never written; empty while no device is
// reached at all. The device is given
// by id, by canonical name, or by id plus a path of sub-device indices.
//
// Detection differs from the channel accessor's in two ways map authors
// must know: a failing lookup of the device's name is not "not found" but
// reaches the caller (the constructor, or the handler that re-detects), and
// a re-detection that lands on the device found before leaves the accessor
// not found. A settings event of the device (an attribute set, a channel or
// sub-device added or removed) re-detects, so afterwards the accessor's
// entries are unavailable until the device is gone and found again; device
// updates still reach the callback meanwhile.
//
// Threads and destruction as CdsDetectionBase describes.
class CdsDeviceAccessor : public CdsDetectionBase<CdsDeviceAccessor> {
public:
    using SubscriberSets = std::map<std::uint64_t, std::set<CdsDeviceAccessor*>>;
    using SubscriptionIds = std::map<std::uint64_t, std::uint64_t>;

    CdsDeviceAccessor(std::uint64_t deviceId, cdsapi::DeviceAttribute attribute);
    CdsDeviceAccessor(const std::string& deviceName, cdsapi::DeviceAttribute attribute);
    CdsDeviceAccessor(std::uint64_t deviceId, const std::vector<unsigned int>& subDevicePath,
                      cdsapi::DeviceAttribute attribute);
    ~CdsDeviceAccessor() override;

    void setCValue(const zu::CValue& value) override;
    zu::CValue getCValue() const override;

    // Calls the update callback with `value` when one is set.
    void callbackUpdateDeviceValue(const zu::CValue& value);

    // The device and attribute this accessor binds, for log lines.
    std::string describe() const;

    // Bookkeeping of the data-store subscriptions, per kind: who watches
    // which device, and the one subscription made for it. DeviceUpdate and
    // DeviceSettings are both subscription type 3, yet two subscriptions
    // with their own handlers. Unsubscribing is always safe.
    static void subscribeDeviceUpdate(std::uint64_t deviceId, CdsDeviceAccessor* accessor);
    static void subscribeDeviceSettings(std::uint64_t deviceId, CdsDeviceAccessor* accessor);
    static void unsubscribeDeviceUpdate(std::uint64_t deviceId, CdsDeviceAccessor* accessor);
    static void unsubscribeDeviceSettings(std::uint64_t deviceId, CdsDeviceAccessor* accessor);

    // Handlers of the data-store notifications, one per kind, each on a copy
    // of the device's watchers (std::out_of_range when there are none).
    static void cdsDeviceUpdate(std::uint64_t deviceId);
    static void cdsDeviceSettings(std::uint64_t deviceId);

    // Read them only while no accessor is being built, destroyed or notified.
    static SubscriberSets m_mapDeviceAccessorDeviceSubscriber;
    static SubscriptionIds m_mapDeviceAccessorDeviceSubscriberId;
    static SubscriberSets m_mapDeviceAccessorDeviceSettingsSubscriber;
    static SubscriptionIds m_mapDeviceAccessorDeviceSettingsSubscriberId;
    static SubscriberSets m_mapDeviceAccessorDeviceCreationSubscriber;
    static SubscriptionIds m_mapDeviceAccessorDeviceCreationSubscriberId;

private:
    CdsDeviceAccessor(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                      const std::vector<unsigned int>& subDevicePath, const std::string& deviceName,
                      cdsapi::DeviceAttribute attribute);

    // The device detection; see the class comment for its two differences.
    void detect() override;
    zu::CValue detectedValue() const override;
    // The attribute of `deviceId` as a string value, or the sub-device count.
    zu::CValue attributeOf(std::uint64_t deviceId) const;

    cdsapi::DeviceAttribute m_attribute;
};

} // namespace orv::modbus::cds
