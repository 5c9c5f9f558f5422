#pragma once
// One measured load on a Modbus TCP server: `connections` libmodbus clients,
// each on its own thread, send one kind of request back to back for a
// bounded time and count. What the server spent is the CPU time of the whole
// process less that of the client threads (the main thread only waits), so
// it covers every thread the server uses, the data-store notification
// thread included.

#include <modbus/modbus.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orv::modbus::bench {

enum class Request { Read, Write };

struct LoadCase {
    Request request;
    int count;
    int connections;
};

struct LoadFigures {
    double requestsPerSecond = 0.0;
    double p50Microseconds = 0.0;
    double p99Microseconds = 0.0;
    double serverCpuMicroseconds = 0.0;
    long failures = 0;
    double wallSeconds = 0.0;
};

inline double cpuSeconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Rounds of the same load as one: requests and CPU time add up, the
// percentiles are those of the rounds' medians and worst 1 % averaged by
// request count.
inline LoadFigures combine(const std::vector<LoadFigures>& rounds)
{
    LoadFigures total;
    double requests = 0.0;
    double seconds = 0.0;
    double cpu = 0.0;
    for (const auto& round : rounds) {
        const double count = round.requestsPerSecond * round.wallSeconds;
        requests += count;
        seconds += round.wallSeconds;
        cpu += round.serverCpuMicroseconds * count;
        total.p50Microseconds += round.p50Microseconds * count;
        total.p99Microseconds += round.p99Microseconds * count;
        total.failures += round.failures;
    }
    if (requests > 0.0) {
        total.requestsPerSecond = requests / seconds;
        total.serverCpuMicroseconds = cpu / requests;
        total.p50Microseconds /= requests;
        total.p99Microseconds /= requests;
        total.wallSeconds = seconds;
    }
    return total;
}

class LoadRun {
public:
    using Clock = std::chrono::steady_clock;

    LoadRun(std::uint16_t port, int unitId, std::chrono::milliseconds duration, long maxRequestsPerClient)
        : m_port(port)
        , m_unitId(unitId)
        , m_duration(duration)
        , m_maxRequests(maxRequestsPerClient)
    {
    }

    LoadFigures run(const LoadCase& load) const
    {
        std::vector<Client> clients(static_cast<std::size_t>(load.connections));
        std::latch connected(load.connections + 1);
        std::latch started(1);
        std::vector<std::thread> threads;
        for (auto& client : clients) {
            threads.emplace_back([&] { runClient(load, client, connected, started); });
        }
        connected.arrive_and_wait();
        const double processBefore = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        const auto begin = Clock::now();
        started.count_down();
        for (auto& thread : threads) {
            thread.join();
        }
        const double wall = std::chrono::duration<double>(Clock::now() - begin).count();
        const double processCpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - processBefore;
        return summarise(clients, wall, processCpu);
    }

private:
    struct Client {
        std::vector<std::uint32_t> latenciesNs;
        double cpu = 0.0;
        long failures = 0;
    };

    void runClient(const LoadCase& load, Client& client, std::latch& connected, std::latch& started) const
    {
        modbus_t* context = modbus_new_tcp("127.0.0.1", m_port);
        const bool usable = context != nullptr && modbus_set_slave(context, m_unitId) == 0
            && modbus_connect(context) == 0;
        client.latenciesNs.reserve(static_cast<std::size_t>(std::min<long>(m_maxRequests, 1'000'000)));
        connected.count_down();
        started.wait();
        const double cpuBefore = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        if (usable) {
            exchange(context, load, client);
        } else {
            ++client.failures;
        }
        client.cpu = cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - cpuBefore;
        if (context != nullptr) {
            modbus_close(context);
            modbus_free(context);
        }
    }

    void exchange(modbus_t* context, const LoadCase& load, Client& client) const
    {
        std::vector<uint16_t> words(static_cast<std::size_t>(load.count), 0);
        const auto end = Clock::now() + m_duration;
        for (long i = 0; i < m_maxRequests && Clock::now() < end; ++i) {
            const auto sent = Clock::now();
            int rc = 0;
            if (load.request == Request::Read) {
                rc = modbus_read_registers(context, 0, load.count, words.data());
            } else {
                std::fill(words.begin(), words.end(), static_cast<uint16_t>(i));
                rc = load.count == 1 ? modbus_write_register(context, static_cast<int>(i % 100), words[0])
                                     : modbus_write_registers(context, 0, load.count, words.data());
            }
            if (rc == -1) {
                ++client.failures;
                continue;
            }
            client.latenciesNs.push_back(static_cast<std::uint32_t>(
                std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - sent).count()));
        }
    }

    static LoadFigures summarise(const std::vector<Client>& clients, double wall, double processCpu)
    {
        std::vector<std::uint32_t> latencies;
        double clientCpu = 0.0;
        LoadFigures figures;
        for (const auto& client : clients) {
            latencies.insert(latencies.end(), client.latenciesNs.begin(), client.latenciesNs.end());
            clientCpu += client.cpu;
            figures.failures += client.failures;
        }
        if (latencies.empty()) {
            figures.wallSeconds = wall;
            return figures;
        }
        std::sort(latencies.begin(), latencies.end());
        const auto at = [&latencies](double share) {
            return latencies[static_cast<std::size_t>(share * static_cast<double>(latencies.size() - 1))] * 1e-3;
        };
        const auto requests = static_cast<double>(latencies.size());
        figures.requestsPerSecond = requests / wall;
        figures.wallSeconds = wall;
        figures.p50Microseconds = at(0.50);
        figures.p99Microseconds = at(0.99);
        figures.serverCpuMicroseconds = std::max(0.0, processCpu - clientCpu) / requests * 1e6;
        return figures;
    }

    std::uint16_t m_port;
    int m_unitId;
    std::chrono::milliseconds m_duration;
    long m_maxRequests;
};

} // namespace orv::modbus::bench
