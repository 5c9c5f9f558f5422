// The real request path end to end: libmodbus clients over loopback TCP to
// a ModbusServer whose map holds 125 holding registers, each an unsigned
// 32-bit data-store channel through CdsUint32ToOneRegisterAccessor over
// CdsChannelAccessor, beside a bare libmodbus server (modbus_receive +
// modbus_reply on a modbus_mapping_t) measured in the same run. Prints, per
// request kind and number of connections, requests per second, p50/p99
// latency and the server's CPU time per request for both, and the ratio of
// the CPU times; then the time from a data-store change to the new value in
// the map's table while 8 clients write 100 registers back to back; then
// the time from loading a plug-in of 10,000 store-backed entries to its
// first answer.
//
// Usage: EndToEndBench [--seconds=S] [--only=TEXT]
//   S: per measured case and server, default 1, taken in 5 alternating
//      rounds so that both servers share the machine's ups and downs (the
//      CPU ratio is the median of the rounds' ratios);
//   TEXT: only the cases whose name contains it (for profiling).
#include "BareModbusServer.h"
#include "LoadRun.h"
#include "StoreBackedMap.h"
#include "TableProbe.h"

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/SupportedMaps.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orv::modbus::bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned g_entries = 125;
// Registers 100 to 124 are never written by the clients; the change-to-table
// measurement changes their channels in the store.
constexpr unsigned g_firstProbed = 100;
constexpr int g_unitId = 1;

std::uint16_t freePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (probe < 0 || bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("no free port");
    }
    ::close(probe);
    return ntohs(address.sin_port);
}

// Opens something on a free port, trying another port when one is taken
// meanwhile (other programs on this machine pick ports too).
template <typename Result>
Result onFreePort(std::uint16_t& port, const std::function<Result(std::uint16_t)>& open)
{
    for (int attempt = 0;; ++attempt) {
        port = freePort();
        try {
            return open(port);
        } catch (const std::runtime_error&) {
            if (attempt == 9) {
                throw;
            }
        }
    }
}

std::unique_ptr<ModbusServer> serveMap(std::shared_ptr<ModbusMap> map, std::uint16_t& port)
{
    ModbusMapsConfiguration maps;
    maps.tcpMaps[g_unitId] =
        std::make_shared<ModbusMapSettings>(std::move(map), false, false, false, std::vector<std::regex>{std::regex(".")});
    auto server = onFreePort<std::unique_ptr<ModbusServer>>(port, [](std::uint16_t freePort) {
        ModbusServerSettings settings;
        settings.tcpEnabled = true;
        settings.tcpPort = freePort;
        return std::make_unique<ModbusServer>(settings, false);
    });
    server->run(maps);
    return server;
}

double percentile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

const char* describe(const LoadCase& load)
{
    static std::string text;
    text = std::string(load.request == Request::Read ? "FC3 read " : "FC16 write ") + std::to_string(load.count)
        + ", " + std::to_string(load.connections) + (load.connections == 1 ? " client" : " clients");
    return text.c_str();
}

struct Options {
    milliseconds duration{1000};
    std::string only;
};

constexpr int g_rounds = 5;

struct Comparison {
    LoadFigures bare;
    LoadFigures orv;
    // The median of the rounds' ratios: other work on the machine comes and
    // goes, and a round it hit is an outlier here.
    double cpuRatio = 0.0;
};

// Alternates short runs on both servers.
Comparison compareOnce(const LoadRun& bare, const LoadRun& orv, const LoadCase& load)
{
    std::vector<LoadFigures> bareRounds;
    std::vector<LoadFigures> orvRounds;
    std::vector<double> ratios;
    for (int round = 0; round < g_rounds; ++round) {
        bareRounds.push_back(bare.run(load));
        orvRounds.push_back(orv.run(load));
        ratios.push_back(orvRounds.back().serverCpuMicroseconds / bareRounds.back().serverCpuMicroseconds);
    }
    return {combine(bareRounds), combine(orvRounds), percentile(ratios, 0.5)};
}

void compareServers(std::uint16_t barePort, std::uint16_t orvPort, const Options& options)
{
    constexpr long g_maxRequestsPerClient = 2'000'000;
    const LoadRun bare(barePort, g_unitId, options.duration / g_rounds, g_maxRequestsPerClient);
    const LoadRun orv(orvPort, g_unitId, options.duration / g_rounds, g_maxRequestsPerClient);
    std::printf("| request | bare: req/s | bare: p50 / p99 us | bare: server CPU us/req | orv: req/s "
                "| orv: p50 / p99 us | orv: server CPU us/req | CPU ratio |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    for (const int connections : {1, 8}) {
        for (const LoadCase load : {LoadCase{Request::Read, 1, connections}, LoadCase{Request::Read, 125, connections},
                                    LoadCase{Request::Write, 1, connections},
                                    LoadCase{Request::Write, 100, connections}}) {
            if (std::string(describe(load)).find(options.only) == std::string::npos) {
                continue;
            }
            const auto [base, ours, ratio] = compareOnce(bare, orv, load);
            std::printf("| %s | %.1fk | %.0f / %.0f | %.1f | %.1fk | %.0f / %.0f | %.1f | **%.2f** |%s\n",
                        describe(load), base.requestsPerSecond / 1e3, base.p50Microseconds, base.p99Microseconds,
                        base.serverCpuMicroseconds, ours.requestsPerSecond / 1e3, ours.p50Microseconds,
                        ours.p99Microseconds, ours.serverCpuMicroseconds,
                        ratio,
                        base.failures + ours.failures != 0 ? " (requests failed!)" : "");
            std::fflush(stdout);
        }
    }
}

// Changes the probed channels in the store one after the other while 8
// clients write registers 0 to 99, and reports how long each change took to
// reach the table.
void measureChangeToTable(std::uint16_t orvPort, std::uint64_t deviceId, std::vector<TableProbe*> probes,
                          milliseconds duration)
{
    auto& store = cdsapi::DataStore::instance();
    std::vector<std::uint64_t> channels;
    for (unsigned i = 0; i < probes.size(); ++i) {
        channels.push_back(store.getChannelId(deviceId, benchChannelName(g_firstProbed + i)));
    }
    std::vector<double> latencies;
    long lost = 0;
    LoadFigures load;
    std::thread writers([&] { load = LoadRun(orvPort, g_unitId, duration, 2'000'000).run({Request::Write, 100, 8}); });
    const auto end = Clock::now() + duration;
    for (unsigned sample = 0; sample < 2000 && Clock::now() < end; ++sample) {
        TableProbe& probe = *probes[sample % probes.size()];
        const auto value = static_cast<uint16_t>(1000 + sample);
        probe.expect(value);
        const auto changed = Clock::now().time_since_epoch().count();
        store.setChannelCValue(channels[sample % probes.size()], zu::CValue(std::uint32_t{value}));
        const auto deadline = Clock::now() + std::chrono::seconds(1);
        while (probe.seenAt() == 0 && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        if (probe.seenAt() == 0) {
            ++lost;
        } else {
            latencies.push_back(static_cast<double>(probe.seenAt() - changed) * 1e-3);
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    writers.join();
    std::printf("\ndata-store change to table, under 8 clients writing 100 registers (%.1fk req/s): "
                "p50 %.0f us, p99 %.0f us, %zu changes%s\n",
                load.requestsPerSecond / 1e3, percentile(latencies, 0.5), percentile(latencies, 0.99),
                latencies.size(), lost != 0 ? ", SOME NEVER ARRIVED" : "");
}

// Loads the 10,000-entry plug-in and waits for the answer to a read of its
// last register, which must show the value its channel holds.
void measureLargeMap(std::uint64_t deviceId)
{
    auto& store = cdsapi::DataStore::instance();
    constexpr std::uint32_t g_marker = 4242;
    store.setChannelCValue(store.getChannelId(deviceId, benchChannelName(ORV_BENCH_LARGE_ENTRIES - 1)),
                           zu::CValue(g_marker));
    const auto begin = Clock::now();
    SupportedMaps::getInstance().createMap("bench-large", ORV_BENCH_LARGE_PLUGIN);
    const auto loaded = Clock::now();
    std::uint16_t port = 0;
    const auto server = serveMap(SupportedMaps::getInstance().getMap("bench-large"), port);
    bool answered = false;
    while (!answered && Clock::now() - begin < std::chrono::seconds(10)) {
        modbus_t* context = modbus_new_tcp("127.0.0.1", port);
        uint16_t word = 0;
        answered = modbus_set_slave(context, g_unitId) == 0 && modbus_connect(context) == 0
            && modbus_read_registers(context, ORV_BENCH_LARGE_ENTRIES - 1, 1, &word) == 1 && word == g_marker;
        modbus_close(context);
        modbus_free(context);
    }
    const auto ms = [begin](Clock::time_point at) { return std::chrono::duration<double, std::milli>(at - begin).count(); };
    std::printf("map of %d store-backed entries: plug-in loaded and map built in %.0f ms, first answer after %.0f ms%s\n",
                ORV_BENCH_LARGE_ENTRIES, ms(loaded), ms(Clock::now()), answered ? "" : " (NO ANSWER)");
}

Options optionsFrom(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--seconds=", 0) == 0) {
            options.duration = milliseconds(static_cast<long>(std::clamp(std::stod(argument.substr(10)), 0.1, 60.0) * 1000));
        } else if (argument.rfind("--only=", 0) == 0) {
            options.only = argument.substr(7);
        }
    }
    return options;
}

int run(int argc, char** argv)
{
    const Options options = optionsFrom(argc, argv);
    const milliseconds duration = options.duration;
    const std::uint64_t deviceId = seedBenchDevice("bench-small", g_entries);
    const std::uint64_t largeDeviceId = seedBenchDevice(ORV_BENCH_LARGE_DEVICE, ORV_BENCH_LARGE_ENTRIES);
    std::vector<TableProbe*> probes;
    std::shared_ptr<ModbusMap> map(
        makeStoreBackedMap("bench-small", "bench-small", g_entries,
                           [&probes](unsigned index, std::shared_ptr<RegistersDataAccessor> accessor)
                               -> std::shared_ptr<RegistersDataAccessor> {
                               if (index < g_firstProbed) {
                                   return accessor;
                               }
                               auto probe = std::make_shared<TableProbe>(std::move(accessor));
                               probes.push_back(probe.get());
                               return probe;
                           }));
    std::uint16_t orvPort = 0;
    const auto orvServer = serveMap(map, orvPort);
    std::uint16_t barePort = 0;
    const auto bareServer = onFreePort<std::unique_ptr<BareModbusServer>>(
        barePort, [](std::uint16_t port) { return std::make_unique<BareModbusServer>(port, g_entries); });
    std::printf("End to end over loopback TCP, %ld ms per case and server; server CPU = process CPU less the "
                "clients' threads; CPU ratio = median of %d rounds\n\n",
                static_cast<long>(duration.count()), g_rounds);
    compareServers(barePort, orvPort, options);
    if (options.only.empty()) {
        measureChangeToTable(orvPort, deviceId, probes, duration * 2);
        measureLargeMap(largeDeviceId);
    }
    return 0;
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    try {
        return orv::modbus::bench::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "EndToEndBench: %s\n", error.what());
        return 1;
    }
}
