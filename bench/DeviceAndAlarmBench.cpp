// The device and alarm accessors on the real data-store client, against the
// bare data-store calls and subscriptions they are built on, in the same
// process and on the same notification thread (as NotificationBench does for
// the channel accessor).
//
// Reads: getCValue() of the accessor against the same data-store calls made
// by hand. Notifications: a change made on the store's service side until it
// shows, one change at a time; the alarm through a discrete entry of a map
// (store -> CdsAlarmToOneDiscreteAccessor -> CdsBooleanToOneDiscreteAccessor
// -> Discretes), the device attribute at the accessor's update callback
// (the same change also re-detects the accessor through its device-settings
// handler, which tells the callback an empty value; only the text counts).
#include "RatioReporter.h"
#include "SpinUntil.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <cdsapi/DataAlarms.h>
#include <cdsapi/DataStore.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orv::modbus::bench {
namespace {

using cdsapi::DeviceAttribute;

constexpr auto g_subDeviceCount = static_cast<DeviceAttribute>(16);
constexpr std::int32_t g_allLevels = std::numeric_limits<std::int32_t>::max();
// The trigger whose class the alarm accessor of type 4 reports.
constexpr zu::CAlarmTrigger g_trigger{7, 1, 253.0f};

cdsapi::DataStore& store()
{
    return cdsapi::DataStore::instance();
}

cdsapi::InBandAccessor& inBand()
{
    return cds::CdsInBandAccessor::getInstance();
}

// A meter with three sub-devices and an alarm-enabled voltage channel.
struct Meter {
    std::uint64_t device = 0;
    std::uint64_t voltage = 0;
};

const Meter& meter()
{
    static const Meter meter = [] {
        const auto device = store().createDevice("meter", 0, {{DeviceAttribute::Model, "PM-3"}});
        for (const char* phase : {"L1", "L2", "L3"}) {
            store().createDevice(phase, device);
        }
        cdsapi::ChannelAlarmSettings alarm;
        alarm.enabled = true;
        return Meter{device, store().addChannel(device, "Voltage", zu::CValue(230.0f), alarm)};
    }();
    return meter;
}

// Runs `work` once per iteration, keeping its result alive.
template <class Work>
void measure(benchmark::State& state, Work work)
{
    for (auto _ : state) {
        auto result = work();
        benchmark::DoNotOptimize(result);
    }
}

// Each iteration makes one change and waits until `listener` shows it.
template <class Listener, class Change>
void changeAndWait(benchmark::State& state, Change change)
{
    Listener listener;
    unsigned step = 0;
    for (auto _ : state) {
        ++step;
        change(step);
        if (!spinUntil([&] { return listener.shows(step); })) {
            state.SkipWithError("the change did not arrive within a second");
            break;
        }
    }
}

// Alarm changes: odd steps raise the trigger, even steps clear it.

void toggleAlarm(unsigned step)
{
    if (step % 2 == 1) {
        store().raiseAlarm(meter().voltage, g_trigger);
    } else {
        store().clearAlarm(meter().voltage, g_trigger);
    }
}

// A bare alarm subscription that reads the most critical alarm, as anyone
// who wants the alarm's state must.
class BareAlarmSubscription {
public:
    BareAlarmSubscription()
    {
        inBand().subscribeDeviceAlarms(
            meter().voltage,
            [this](std::uint64_t, const zu::CAlarmUpdate&) {
                m_active = cdsapi::DataAlarms(inBand()).getMostCritical(meter().voltage).has_value();
            },
            &m_subscription);
    }

    ~BareAlarmSubscription()
    {
        inBand().unsubscribe(m_subscription);
    }

    BareAlarmSubscription(const BareAlarmSubscription&) = delete;
    BareAlarmSubscription& operator=(const BareAlarmSubscription&) = delete;

    bool shows(unsigned step) const
    {
        return m_active.load() == (step % 2 == 1);
    }

private:
    std::uint64_t m_subscription = 0;
    std::atomic<bool> m_active{false};
};

// The alarm of type 4 as discrete 0 of a map.
class AlarmInMap {
public:
    AlarmInMap()
    {
        auto alarm = std::make_shared<cds::CdsAlarmToOneDiscreteAccessor>(meter().device, "Voltage",
                                                                          cds::AlarmType::Class4);
        m_pEntry = new Discretes(0, new cds::CdsBooleanToOneDiscreteAccessor(alarm, cds::DiscreteModifier::None),
                                 false, "alarm", "", "on", "off");
        m_pMap = std::make_unique<ModbusMap>("bench", std::vector<ModbusMapEntry*>{m_pEntry}, nullptr,
                                             ByteOrder::ABCD);
    }

    bool shows(unsigned step) const
    {
        return m_pEntry->getValue() == std::vector<uint8_t>{static_cast<uint8_t>(step % 2)};
    }

private:
    Discretes* m_pEntry; // owned by the map
    std::unique_ptr<ModbusMap> m_pMap;
};

// Attribute changes: a new model text per step.

std::string modelOf(unsigned step)
{
    return "PM-" + std::to_string(step);
}

void changeModel(unsigned step)
{
    store().setDeviceAttribute(meter().device, DeviceAttribute::Model, modelOf(step));
}

// The last model text a listener was told.
class SeenText {
public:
    void see(const std::string& text)
    {
        std::lock_guard lock(m_mutex);
        m_text = text;
    }

    bool is(const std::string& text) const
    {
        std::lock_guard lock(m_mutex);
        return m_text == text;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text;
};

// A bare device subscription that reads the attribute, as anyone who wants
// its text must.
class BareDeviceSubscription {
public:
    BareDeviceSubscription()
    {
        inBand().subscribeDevice(
            meter().device,
            [this](std::uint64_t deviceId) { m_seen.see(inBand().getDeviceAttribute(deviceId, DeviceAttribute::Model)); },
            zu::sub::device_settings, false, &m_subscription);
    }

    ~BareDeviceSubscription()
    {
        inBand().unsubscribe(m_subscription);
    }

    BareDeviceSubscription(const BareDeviceSubscription&) = delete;
    BareDeviceSubscription& operator=(const BareDeviceSubscription&) = delete;

    bool shows(unsigned step) const
    {
        return m_seen.is(modelOf(step));
    }

private:
    std::uint64_t m_subscription = 0;
    SeenText m_seen;
};

class DeviceAccessorCallback {
public:
    DeviceAccessorCallback()
        : m_accessor(meter().device, DeviceAttribute::Model)
    {
        m_accessor.setUpdateCallback([this](const zu::CValue& value) {
            if (value.is_valid()) {
                m_seen.see(value.as_string());
            }
        });
    }

    bool shows(unsigned step) const
    {
        return m_seen.is(modelOf(step));
    }

private:
    SeenText m_seen;
    cds::CdsDeviceAccessor m_accessor;
};

void registerReads()
{
    // The accessors live as long as the program: the benchmarks registered
    // below refer to them.
    static const cds::CdsDeviceAccessor model(meter().device, DeviceAttribute::Model);
    static const cds::CdsDeviceAccessor subDevices(meter().device, g_subDeviceCount);
    static const cds::CdsAlarmToOneDiscreteAccessor alarm(meter().device, "Voltage", cds::AlarmType::Class4);
    static const cds::CdsAlarmToOneDiscreteAccessor thresholdFlag(meter().device, "Voltage",
                                                                  cds::AlarmType::ThresholdFlag);

    const auto add = [](const std::string& name, const std::string& side, auto function) {
        benchmark::RegisterBenchmark((name + "/" + side).c_str(), function);
    };
    const std::string baseline = RatioReporter::g_baseline;
    const std::string orv = RatioReporter::g_orv;
    const auto device = meter().device;
    const auto voltage = meter().voltage;

    add("DeviceAttribute_read", baseline, [device](benchmark::State& s) {
        measure(s, [device] { return zu::CValue(inBand().getDeviceAttribute(device, DeviceAttribute::Model)); });
    });
    add("DeviceAttribute_read", orv, [](benchmark::State& s) { measure(s, [] { return model.getCValue(); }); });

    add("SubDeviceCount_read", baseline, [device](benchmark::State& s) {
        measure(s, [device] {
            return zu::CValue(static_cast<std::uint32_t>(inBand().getSubDevicesIds(device, g_allLevels).size()));
        });
    });
    add("SubDeviceCount_read", orv, [](benchmark::State& s) { measure(s, [] { return subDevices.getCValue(); }); });

    add("AlarmClass_read", baseline, [voltage](benchmark::State& s) {
        measure(s, [voltage] {
            const auto trigger = cdsapi::DataAlarms(inBand()).getMostCritical(voltage);
            return zu::CValue(inBand().getChannelAlarmEnabled(voltage) && trigger && trigger->code == g_trigger.code);
        });
    });
    add("AlarmClass_read", orv, [](benchmark::State& s) { measure(s, [] { return alarm.getCValue(); }); });

    add("AlarmThresholdFlag_read", baseline, [voltage](benchmark::State& s) {
        measure(s, [voltage] {
            return zu::CValue(inBand().getChannelAlarmEnabled(voltage) &&
                              inBand().getChannelCValue(voltage) ==
                                  zu::CValue(inBand().getChannelAlarmTriggerThreshold(voltage)));
        });
    });
    add("AlarmThresholdFlag_read", orv, [](benchmark::State& s) { measure(s, [] { return thresholdFlag.getCValue(); }); });
}

void registerNotifications()
{
    const auto add = [](const std::string& name, const char* side, void (*function)(benchmark::State&)) {
        benchmark::RegisterBenchmark((name + "/" + side).c_str(), function);
    };
    add("Alarm_notify", RatioReporter::g_baseline,
        [](benchmark::State& s) { changeAndWait<BareAlarmSubscription>(s, toggleAlarm); });
    add("Alarm_notify", RatioReporter::g_orv, [](benchmark::State& s) { changeAndWait<AlarmInMap>(s, toggleAlarm); });
    add("DeviceAttribute_notify", RatioReporter::g_baseline,
        [](benchmark::State& s) { changeAndWait<BareDeviceSubscription>(s, changeModel); });
    add("DeviceAttribute_notify", RatioReporter::g_orv,
        [](benchmark::State& s) { changeAndWait<DeviceAccessorCallback>(s, changeModel); });
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    using namespace orv::modbus::bench;
    // Creates the data-store client and its notification thread, and the
    // meter, before anything is measured.
    (void)inBand();
    (void)meter();
    registerReads();
    registerNotifications();
    return runWithRatios(argc, argv);
}
