#pragma once
// cdsapi::InBandAccessor and cdsapi::CdsAccessor: one client connection to
// the data store (cdsapi::DataStore::instance()).
//
// Choices this stand-in makes:
// - Ids: devices and channels share one id space, allocated from 1 upward;
//   0 and all ones are never the id of an object.
// - Every data call on a device or channel that does not exist throws
//   cdsapi::CdsError, except getChannelId (0 for a missing channel of an
//   existing device) and getCatchedChannelId (all ones for anything missing,
//   never throws). A TriggerId outside 0..3 also throws CdsError.
// - getSubDevicesIds(id, depth): depth 1 gives the direct sub-devices in
//   creation order; a larger depth gives every descendant down to that many
//   levels, in depth-first pre-order (a sub-device, then its own
//   sub-devices, then its next sibling); depth 0 or less gives nothing.
// - getDeviceByName: the device with that canonical name (the lowest id if
//   several share it); throws CdsError when none has it.
// - Writing a value of another kind than the channel's converts it to the
//   channel's kind with zu::CValue's conversions (an empty value becomes
//   false, 0 or the empty text). Every accepted write notifies, changed or
//   not.
// - Subscriptions are filters on the store's notifications: any id and any
//   subscription type can be subscribed; a type that never applies to that
//   kind of object simply never fires. The subscription id is written
//   through the given pointer (which may be null) before the subscription
//   can fire. Subscription ids are unique in the process; unsubscribing an id
//   that this client does not hold does nothing.
// - subscribeDevice's flag `recursive`: when true, the subscription also
//   fires for the same kind of change on any descendant of the device; the
//   callback then receives the descendant's id.
// - setDeviceAttribute's flag `onlyIfChanged`: when true, a text equal to
//   the current one is neither stored nor notified; when false the write is
//   always echoed.
// - The constructor's flag (in-band connection) is accepted for
//   compatibility; the in-process store is always reached in-band.
//
// Threads: each client owns one notification thread. Every callback of every
// subscription made through the client runs on it, one at a time, in the
// order the store made the changes; never on the caller's thread. A callback
// receives the state just after its change: the channel's value then (an
// empty value once the channel is gone). unsubscribe() waits for a running
// callback of that subscription (unless called from the notification thread
// itself) and no callback of it starts afterwards; callbacks may subscribe
// and unsubscribe, themselves included. An exception thrown by a callback is
// dropped. Destroying the client stops its thread: pending notifications are
// dropped and a running callback is waited for. A client must not be
// destroyed from one of its own callbacks.

#include <cdsapi/DataCalls.h>
#include <cdsapi/Types.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CDevice.h>
#include <zu/CValue.h>
#include <zu/sub/SubscriptionType.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace cdsapi {

class ClientConnection;
class DataStore;

// The in-band face of a client: every channel, device, attribute and
// subscription call.
class InBandAccessor : public DataCalls {
public:
    using ChannelCallback = std::function<void(std::uint64_t channelId, const zu::CValue& value)>;
    using DeviceCallback = std::function<void(std::uint64_t deviceId)>;
    using AlarmCallback = std::function<void(std::uint64_t channelId, const zu::CAlarmUpdate& update)>;

    virtual ~InBandAccessor();
    InBandAccessor(const InBandAccessor&) = delete;
    InBandAccessor& operator=(const InBandAccessor&) = delete;

    const std::string& getClientName() const;

    void subscribeChannel(std::uint64_t channelId, ChannelCallback fn, zu::sub::subscription_type type,
                          std::uint64_t* subscriptionId);
    void subscribeDevice(std::uint64_t deviceId, DeviceCallback fn, zu::sub::subscription_type type,
                         bool recursive, std::uint64_t* subscriptionId);
    void subscribeDeviceAlarms(std::uint64_t channelId, AlarmCallback fn, std::uint64_t* subscriptionId);
    void unsubscribe(std::uint64_t subscriptionId);

protected:
    explicit InBandAccessor(const std::string& clientName);

private:
    friend class DataAlarms;

    std::string m_clientName;
    std::unique_ptr<ClientConnection> m_pConnection;
};

// A client connection to the data store.
class CdsAccessor : public InBandAccessor {
public:
    CdsAccessor(const std::string& clientName, bool inBand);

    std::uint64_t getDeviceByName(const std::string& canonicalName) const;
};

} // namespace cdsapi
