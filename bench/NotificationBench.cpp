// How fast a data-store change reaches a map's table through the whole
// chain (store -> CdsChannelAccessor -> CdsFloatAccessor -> HoldingRegisters
// -> tab_registers), against a bare subscription callback on the same
// data-store client, which sees the same notification thread. Latency is one
// change at a time; throughput a burst of changes waited for at its last.
//
// Then the memory a data point costs: allocations (counted by this
// program's own operator new) and live heap bytes (malloc's own count, which
// includes libmodbus' tables), per map entry with its accessors against a
// bare CdsChannelAccessor.
#include "RatioReporter.h"
#include "SpinUntil.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <cdsapi/DataStore.h>

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<std::size_t> g_allocations{0};
std::atomic<std::size_t> g_allocatedBytes{0};

} // namespace

// This program counts every allocation, so its operator new and delete pair
// malloc with free; GCC cannot see that pairing once it inlines them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    g_allocatedBytes.fetch_add(size, std::memory_order_relaxed);
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

#pragma GCC diagnostic pop

namespace orv::modbus::bench {
namespace {

constexpr int g_burst = 64;
constexpr int g_memoryDataPoints = 200;
constexpr uint16_t g_address = 0;

cdsapi::DataStore& store()
{
    return cdsapi::DataStore::instance();
}

// The channel every timing case changes.
struct Channel {
    uint64_t device = 0;
    uint64_t id = 0;
};

const Channel& timedChannel()
{
    static const Channel channel = [] {
        const uint64_t device = store().createDevice("bench");
        return Channel{device, store().addChannel(device, "value", zu::CValue(0.0f))};
    }();
    return channel;
}

// A new value for each change, exact as a float.
float nextValue()
{
    static float value = 0.0f;
    value = value >= 1 << 22 ? 1.0f : value + 1.0f;
    return value;
}

std::vector<uint16_t> wordsOf(float value)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    return {static_cast<uint16_t>(bits >> 16), static_cast<uint16_t>(bits & 0xffff)};
}

// One map holding the timed channel as a float in holding registers 0-1.
class FloatInMap {
public:
    FloatInMap()
    {
        auto channel = std::make_shared<cds::CdsChannelAccessor>(timedChannel().device, "value",
                                                                 cds::DataType::ChannelValue);
        m_pEntry = new HoldingRegisters(g_address, new cds::CdsFloatAccessor(channel, 1.0f, 1), true, "value", "", "V");
        m_pMap = std::make_unique<ModbusMap>("bench", std::vector<ModbusMapEntry*>{m_pEntry}, nullptr, ByteOrder::ABCD);
    }

    bool shows(float value) const
    {
        return m_pEntry->getValue() == wordsOf(value);
    }

private:
    HoldingRegisters* m_pEntry; // owned by the map
    std::unique_ptr<ModbusMap> m_pMap;
};

// A bare subscription to the timed channel that keeps the last value seen.
class BareSubscription {
public:
    BareSubscription()
    {
        cds::CdsInBandAccessor::getInstance().subscribeChannel(
            timedChannel().id, [this](uint64_t, const zu::CValue& value) { m_seen = value.as_float(); },
            zu::sub::channel_value_update, &m_subscription);
    }

    ~BareSubscription()
    {
        cds::CdsInBandAccessor::getInstance().unsubscribe(m_subscription);
    }

    BareSubscription(const BareSubscription&) = delete;
    BareSubscription& operator=(const BareSubscription&) = delete;

    bool shows(float value) const
    {
        return m_seen.load() == value;
    }

private:
    uint64_t m_subscription = 0;
    std::atomic<float> m_seen{-1.0f};
};

// Each iteration makes `changes` changes and waits until the last one shows.
template <class Listener>
void changeAndWait(benchmark::State& state, int changes)
{
    const Listener listener;
    for (auto _ : state) {
        float value = 0.0f;
        for (int i = 0; i < changes; ++i) {
            value = nextValue();
            store().setChannelCValue(timedChannel().id, zu::CValue(value));
        }
        if (!spinUntil([&] { return listener.shows(value); })) {
            state.SkipWithError("the change did not arrive within a second");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * changes);
}

void registerCases()
{
    const auto add = [](const std::string& name, const char* side, void (*function)(benchmark::State&)) {
        benchmark::RegisterBenchmark((name + "/" + side).c_str(), function);
    };
    add("Latency_one_change", RatioReporter::g_baseline, [](benchmark::State& s) { changeAndWait<BareSubscription>(s, 1); });
    add("Latency_one_change", RatioReporter::g_orv, [](benchmark::State& s) { changeAndWait<FloatInMap>(s, 1); });
    add("Throughput_burst_64", RatioReporter::g_baseline,
        [](benchmark::State& s) { changeAndWait<BareSubscription>(s, g_burst); });
    add("Throughput_burst_64", RatioReporter::g_orv, [](benchmark::State& s) { changeAndWait<FloatInMap>(s, g_burst); });
}

// Memory.

using Names = std::vector<std::string>;

struct Counters {
    std::size_t allocations;
    std::size_t allocatedBytes;
    std::size_t liveBytes;

    static Counters now()
    {
        return {g_allocations.load(), g_allocatedBytes.load(), mallinfo2().uordblks};
    }
};

struct Footprint {
    double allocations;
    double allocatedBytes;
    double liveBytes;
};

// What building `count` data points with `build` costs per data point, while
// what it built is still alive.
template <class Build>
Footprint footprintOf(int count, Build build)
{
    const auto before = Counters::now();
    const auto built = build();
    const auto after = Counters::now();
    const auto perPoint = [count](std::size_t from, std::size_t to) {
        return (static_cast<double>(to) - static_cast<double>(from)) / count;
    };
    return {perPoint(before.allocations, after.allocations), perPoint(before.allocatedBytes, after.allocatedBytes),
            perPoint(before.liveBytes, after.liveBytes)};
}

Names memoryChannels()
{
    const uint64_t device = store().createDevice("memory");
    Names names;
    for (int i = 0; i < g_memoryDataPoints; ++i) {
        names.push_back("point" + std::to_string(i));
        store().addChannel(device, names.back(), zu::CValue(static_cast<float>(i)));
    }
    return names;
}

std::vector<std::unique_ptr<cds::CdsChannelAccessor>> bareAccessors(uint64_t device, const Names& names)
{
    std::vector<std::unique_ptr<cds::CdsChannelAccessor>> accessors;
    for (const auto& name : names) {
        accessors.push_back(std::make_unique<cds::CdsChannelAccessor>(device, name, cds::DataType::ChannelValue));
    }
    return accessors;
}

std::unique_ptr<ModbusMap> mapOf(uint64_t device, const Names& names)
{
    std::vector<ModbusMapEntry*> entries;
    uint16_t address = 0;
    for (const auto& name : names) {
        auto channel = std::make_shared<cds::CdsChannelAccessor>(device, name, cds::DataType::ChannelValue);
        entries.push_back(new HoldingRegisters(address, new cds::CdsFloatAccessor(channel, 1.0f, 1), true, name, "",
                                               "V"));
        address = static_cast<uint16_t>(address + 2);
    }
    return std::make_unique<ModbusMap>("memory", entries, nullptr, ByteOrder::ABCD);
}

void reportMemory()
{
    const auto names = memoryChannels();
    const uint64_t device = store().getDeviceByName("memory");
    // What is made once per process (loggers, static bookkeeping) is made
    // before anything is counted.
    (void)bareAccessors(device, {names.front()});
    (void)mapOf(device, {names.front()});
    const auto bare = footprintOf(g_memoryDataPoints, [&] { return bareAccessors(device, names); });
    const auto inMap = footprintOf(g_memoryDataPoints, [&] { return mapOf(device, names); });
    std::printf("\nmemory per data point, %d data points %16s %16s %16s\n", g_memoryDataPoints, "allocations",
                "bytes allocated", "live heap bytes");
    std::printf("%-42s %16.1f %16.1f %16.1f\n", "bare CdsChannelAccessor", bare.allocations, bare.allocatedBytes,
                bare.liveBytes);
    std::printf("%-42s %16.1f %16.1f %16.1f\n", "map entry (float over a channel accessor)", inMap.allocations,
                inMap.allocatedBytes, inMap.liveBytes);
    std::printf("%-42s %16.2f %16.2f %16.2f\n", "ratio map entry / bare accessor", inMap.allocations / bare.allocations,
                inMap.allocatedBytes / bare.allocatedBytes, inMap.liveBytes / bare.liveBytes);
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    using namespace orv::modbus::bench;
    // Creates the data-store client and its notification thread before
    // anything is measured.
    (void)orv::modbus::cds::CdsInBandAccessor::getInstance();
    (void)timedChannel();
    registerCases();
    const int result = runWithRatios(argc, argv);
    if (result == 0) {
        reportMemory();
    }
    return result;
}
