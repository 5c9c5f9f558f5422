#pragma once

#include <orv/modbus/cds/CdsDataAccessor.h>
#include <orv/modbus/cds/SubscriberWalks.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// What the channel, device and alarm accessors share to find their device
// in the data store: the device given by id, by canonical name, or by id plus
// a path of sub-device indices; the watch for the creation of a device not
// (or no longer) there; detections that never run twice at once on one
// accessor; and the one update callback, told after every detection.
//
// `Accessor` is the concrete class (CdsChannelAccessor, CdsDeviceAccessor,
// CdsAlarmToOneDiscreteAccessor). It keeps its own bookkeeping of
// subscriptions, the book of the creation watch included (see
// deviceCreationBook), and provides its detection as detect().
//
// Destruction is safe from any thread, the notification thread included: an
// accessor may be destroyed by a callback, its own or another accessor's (a
// plug-in tearing down a group of entries, a map destroyed from a
// notification). Destroyed on another thread, it waits for a running handler
// of its class to finish; destroyed inside a handler, it is skipped by the
// rest of that handler's walk (see SubscriberWalks; every handler walks
// under m_walks, every destructor leaves it first). One accessor whose
// detection or callback fails never keeps the others of the same object from
// theirs.
template <typename Accessor>
class CdsDetectionBase : public CdsDataAccessor {
public:
    CdsDetectionBase(const CdsDetectionBase&) = delete;
    CdsDetectionBase& operator=(const CdsDetectionBase&) = delete;

    bool isExistingInCds() const override;
    void setUpdateCallback(std::function<void(const zu::CValue&)> callback) override;

    // The watches for the creation of a device, kept for all accessors of
    // the class in the class's DeviceCreation maps. Unsubscribing is always
    // safe, also for ids never subscribed.
    static void subscribeDeviceCreation(std::uint64_t deviceId, Accessor* accessor);
    static void unsubscribeDeviceCreation(std::uint64_t deviceId, Accessor* accessor);
    // Handler of the creation of a device: every accessor of the class
    // watching for it detects again (std::out_of_range when none does).
    static void cdsDeviceCreation(std::uint64_t deviceId);

protected:
    using Walk = typename SubscriberWalks<Accessor>::Walk;

    // Whether a failing lookup of the device's name means "not found" or
    // reaches the caller of the detection.
    enum class NameLookup { Guarded, Unguarded };

    // `deviceId` all ones: the device is given by `deviceName`.
    CdsDetectionBase(std::uint64_t deviceId, std::uint64_t resolvedDeviceId,
                     const std::vector<unsigned int>& subDevicePath, const std::string& deviceName);
    ~CdsDetectionBase() override = default;

    // The detection of the concrete class; leaves m_found as it found.
    virtual void detect() = 0;
    // What the update callback hears after a detection that found the
    // object.
    virtual zu::CValue detectedValue() const;

    // Runs detect(), or, when a detection of this accessor is already
    // running on another thread, makes that one run once more; then tells
    // the update callback, as the last use of this accessor (the callback
    // may destroy it).
    void requestDetection();

    // The device the object lives in: the device id (looked up by name
    // first when it is all ones), followed down the sub-device path; nothing
    // when it cannot be reached.
    std::optional<std::uint64_t> locateDevice(NameLookup nameLookup);

    // The watch for the creation of the configured device, made under the
    // device id of the moment (all ones for a device given by name and not
    // found yet) and released under that same id, even after the device id
    // has changed. A refused subscription is dropped: still not found.
    void watchDeviceCreation();
    void stopWatchingDeviceCreation();

    // Calls the update callback with `value` when one is set.
    void callUpdateCallback(const zu::CValue& value);

    // The device as configured, for log lines.
    std::string describeDevice() const;

    // Detects again every accessor of the walk, each on its own.
    static void redetectEach(Walk& walk);
    // The watched object vanished: all of the walk are not found, then each
    // detects again.
    static void redetectVanished(Walk& walk);

    std::uint64_t m_deviceId;
    // Written by detection on a notification thread, read by requests and
    // by a map being built on other threads.
    std::atomic<std::uint64_t> m_resolvedDeviceId;
    std::vector<unsigned int> m_subDevicePath;
    std::string m_deviceName;
    std::atomic<bool> m_found{false};

    // The walks of every handler of the class over its watchers. Not a
    // function-local static: it must outlive the data-store client, whose
    // notification thread may run a handler until the client goes.
    static SubscriberWalks<Accessor> m_walks;

private:
    std::function<void(const zu::CValue&)> updateCallback() const;
    Accessor* self();

    std::function<void(const zu::CValue&)> m_updateCallback;
    mutable std::mutex m_callbackMutex;
    std::optional<std::uint64_t> m_creationWatchId;
    // Detection requests not yet served; see requestDetection().
    std::atomic<unsigned> m_detectionRequests{0};
};

} // namespace orv::modbus::cds
