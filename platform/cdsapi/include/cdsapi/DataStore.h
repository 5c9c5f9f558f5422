#pragma once
// cdsapi::DataStore: the data store itself, one per process, that every
// client (cdsapi::CdsAccessor) talks to. Its service side is how device
// drivers, the daemon's simulator and tests change the data.
//
// Choices this stand-in makes:
// - Devices and channels share one id space. Ids are allocated from 1
//   upward (the lowest id not in use at or above a running counter); an id
//   may also be given, but never 0, all ones, or one already in use
//   (std::invalid_argument). clear() empties the store and restarts ids at 1.
// - Canonical names must not be empty; channel names are unique within
//   their device (std::invalid_argument); device names need not be unique.
// - A channel's kind is the kind of its initial value (which must be valid);
//   a value of another kind is converted to it with zu::CValue's
//   conversions.
// - Device attributes are texts keyed by number; none is computed. An
//   attribute never set reads as the empty text.
// - Alarms: drivers raise and clear triggers (zu::CAlarmTrigger) on a
//   channel; a trigger is identified by its code, so raising a code already
//   raised replaces it. Clearing a code that is not raised changes nothing
//   and notifies nothing. The store does not evaluate thresholds.
// - Any operation on a device or channel that does not exist throws
//   cdsapi::CdsError.
//
// Notifications (subscription type, object id) made by each change, in this
// order, queued under the store's lock and delivered on each client's own
// notification thread:
//   channel value set                  15 on the channel
//   alarm enabled or disabled          5 on the channel, then device alarms
//                                      of the channel (an update with an
//                                      empty trigger and `active` = enabled)
//   any other alarm setting            2 on the channel
//   alarm raised or cleared            device alarms of the channel
//   device attribute set               3 on the device
//   channel added                      3 on its device
//   channel removed                    15 and 5 on it (empty value), then
//                                      3 on its device
//   device created                     13 on its id, 13 on all ones (the
//                                      callback gets the new id), then 3
//                                      on its parent (if any)
//   device removed                     for every channel and sub-device
//                                      inside it, depth first, what their
//                                      own removal notifies (without the 3
//                                      on a parent that goes too), then 3
//                                      on it and 3 on its parent (if any)
//
// Bounded backlog: a client whose subscribers fall behind the writers
// queues at most g_exactBacklog notifications plus one channel notification
// per subscription. Up to g_exactBacklog queued notifications each one is
// delivered; beyond, a channel notification (15, 5 or 2) supersedes the one
// of the same subscription still queued: the older is dropped, the newer
// joins the back of the queue. Delivery thus stays in the order of the
// changes and always ends with every channel's newest value; only values
// a subscriber had not caught up with are skipped. A subscriber that reads
// the channel back on each notification, as the library's accessors do,
// sees exactly what it would have seen without the merge. Device and alarm
// notifications are never merged. The notification thread, woken by a
// change to its empty queue, pauses 25 us and, when more changes came
// meanwhile, gathers them until 0.4 ms after its wake-up; then it delivers
// all that is queued. Writing many channels at once thus costs two
// wake-ups, not one per channel, and a single change waits only the short
// pause; a table built from notifications lags the store by at most
// 0.4 ms plus one pass over the queue.
//
// Writes through the service side notify exactly like writes from clients;
// setChannelAlarmSettings notifies as the single setters would, for each
// setting it changes (nothing when nothing changes).
//
// Seeds: loadSeedFile / loadSeed read a JSON document
//   {"devices": [ {"id": 10, "name": "ups",
//                  "attributes": {"Model": "X", "42": "text"},
//                  "channels": [ {"id": 11, "name": "Voltage", "kind": "float",
//                                 "value": 230.5,
//                                 "alarm": {"enabled": true,
//                                           "thresholds": [1, 2, 3, 4],
//                                           "thresholdEnabled": false,
//                                           "hysteresis": 0.5, "level": 2,
//                                           "active": [{"code": 7, "flag": 1,
//                                                       "threshold": 3}]}} ],
//                  "devices": [ ...sub-devices, same shape... ] } ]}
// "name" is required; "id", "attributes", "channels", "devices", "value"
// (default: false, 0 or "") and "alarm" (and each of its members) are
// optional. "kind" is one of "bool", "int32", "uint32", "float", "string";
// "value" must be a JSON value of that kind (an integer in range for int32
// and uint32). Attribute keys are a DeviceAttribute name or a decimal
// number; attribute values are strings. "thresholds" has exactly four
// numbers. Unknown members are refused. The seed adds to what the store
// holds. A seed with a bad shape is refused whole with std::runtime_error
// "<file>: <JSON pointer>: <reason>" and the store is left unchanged; a good
// seed notifies like the creations it makes, in document order.

#include <cdsapi/DataCalls.h>
#include <cdsapi/Types.h>

#include <zu/CAlarmTrigger.h>
#include <zu/CDevice.h>
#include <zu/CValue.h>
#include <zu/sub/SubscriptionType.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cdsapi {

class ClientConnection;

// The alarm settings of one channel.
struct ChannelAlarmSettings {
    bool enabled = false;
    std::array<float, 4> thresholds{};
    bool thresholdEnabled = false;
    float hysteresis = 0.0f;
    LevelAlarm level = LevelAlarm::None;

    friend bool operator==(const ChannelAlarmSettings&, const ChannelAlarmSettings&) = default;
};

// Where a channel sits and what it is called.
struct ChannelInfo {
    std::uint64_t id = 0;
    std::uint64_t deviceId = 0;
    std::string canonicalName;

    friend bool operator==(const ChannelInfo&, const ChannelInfo&) = default;
};

class DataStore : public DataCalls {
public:
    // How many notifications a client queues exactly, each delivered, before
    // a channel notification supersedes the queued one of the same
    // subscription (see "Bounded backlog" above).
    static constexpr std::size_t g_exactBacklog = 64;

    static DataStore& instance();

    DataStore(const DataStore&) = delete;
    DataStore& operator=(const DataStore&) = delete;

    // Service side: structure.
    std::uint64_t createDevice(const std::string& canonicalName, std::uint64_t parentId = 0,
                               const std::map<DeviceAttribute, std::string>& attributes = {},
                               std::uint64_t id = 0);
    void removeDevice(std::uint64_t deviceId);
    std::uint64_t addChannel(std::uint64_t deviceId, const std::string& canonicalName,
                             const zu::CValue& initialValue, const ChannelAlarmSettings& alarm = {},
                             std::uint64_t id = 0);
    void removeChannel(std::uint64_t channelId);
    void loadSeedFile(const std::string& path);
    void loadSeed(const std::string& jsonText, const std::string& sourceName);
    void clear();

    // Service side: alarms and enumeration.
    void setChannelAlarmSettings(std::uint64_t channelId, const ChannelAlarmSettings& alarm);
    ChannelAlarmSettings getChannelAlarmSettings(std::uint64_t channelId) const;
    void raiseAlarm(std::uint64_t channelId, const zu::CAlarmTrigger& trigger);
    void clearAlarm(std::uint64_t channelId, const zu::CAlarmTrigger& trigger);
    std::vector<zu::CAlarmTrigger> getActiveAlarms(std::uint64_t channelId) const;
    std::vector<std::uint64_t> getRootDevicesIds() const;
    std::vector<std::uint64_t> getChannelsIds(std::uint64_t deviceId) const;
    ChannelInfo getChannel(std::uint64_t channelId) const;
    // How many subscriptions of all clients are live now, so that a test
    // can tell that each one it caused was released exactly once.
    std::size_t subscriptionCount() const;

    // The data calls (DataCalls) are shared with the clients; a client has
    // getDeviceByName on CdsAccessor.
    std::uint64_t getDeviceByName(const std::string& canonicalName) const;

private:
    friend class ClientConnection;
    friend class DataCalls;
    friend class InBandAccessor;
    struct State;

    // What a subscription listens to.
    enum class Target : std::uint8_t { Channel, Device, Alarms };

    DataStore();
    ~DataStore();

    std::uint64_t allocateSubscriptionId();
    void addSubscription(ClientConnection& connection, std::uint64_t subscriptionId, Target target,
                         std::uint32_t type, std::uint64_t objectId, bool recursive);
    void removeSubscription(const ClientConnection& connection, std::uint64_t subscriptionId);
    void removeSubscriptions(const ClientConnection& connection);
    // Applies one change to a channel's alarm settings under the lock and tells the subscribers.
    void changeAlarmSettings(std::uint64_t channelId, const std::function<void(ChannelAlarmSettings&)>& change);

    mutable std::mutex m_mutex;
    std::unique_ptr<State> m_pState;
    std::atomic<std::uint64_t> m_lastSubscriptionId{0};
};

} // namespace cdsapi
