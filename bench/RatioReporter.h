#pragma once
// The benchmarks of this folder come in pairs: "<case>/baseline" measures
// the bare mechanism (libmodbus alone, a plain bit_cast, a bare data-store
// subscription) and "<case>/orv" the same work through this library. The
// reporter prints the usual console table and, at the end, the ratio
// orv / baseline of each case, so that results compare across machines
// without absolute thresholds.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace orv::modbus::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal, so that logs of a run stay plain text.
    RatioReporter()
        : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular)
    {
    }

    static constexpr const char* g_baseline = "baseline";
    static constexpr const char* g_orv = "orv";

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            // With repetitions, the median stands for the case.
            const bool usable = run.run_type == Run::RT_Iteration || run.aggregate_name == "median";
            if (run.error_occurred || !usable) {
                continue;
            }
            const auto slash = run.run_name.function_name.rfind('/');
            if (slash == std::string::npos) {
                continue;
            }
            auto& pair = m_cases[run.run_name.function_name.substr(0, slash)];
            const double unit = benchmark::GetTimeUnitMultiplier(run.time_unit);
            const Times times{run.GetAdjustedRealTime() / unit, run.GetAdjustedCPUTime() / unit};
            (run.run_name.function_name.substr(slash + 1) == g_baseline ? pair.baseline : pair.orv) = times;
        }
    }

    // One line per case measured on both sides: real times, and the ratios
    // of real and of CPU time (the CPU ratio is steadier on a loaded
    // machine, the real one includes waiting for other threads).
    void printRatios() const
    {
        std::printf("\n%-32s %14s %14s %10s %10s\n", "case", "baseline", "orv", "real ratio", "cpu ratio");
        for (const auto& [name, pair] : m_cases) {
            if (pair.baseline.real > 0.0 && pair.orv.real > 0.0 && pair.baseline.cpu > 0.0) {
                std::printf("%-32s %11.1f ns %11.1f ns %10.2f %10.2f\n", name.c_str(), pair.baseline.real * 1e9,
                            pair.orv.real * 1e9, pair.orv.real / pair.baseline.real, pair.orv.cpu / pair.baseline.cpu);
            }
        }
        std::fflush(stdout);
    }

private:
    // Seconds per iteration.
    struct Times {
        double real = 0.0;
        double cpu = 0.0;
    };

    struct Pair {
        Times baseline;
        Times orv;
    };

    std::map<std::string, Pair> m_cases;
};

// Runs the registered benchmarks with a RatioReporter and prints the ratios.
// Unless the command line says otherwise, each benchmark runs for a short
// minimum time, so that a whole program takes a few seconds.
inline int runWithRatios(int argc, char** argv)
{
    std::vector<char*> arguments(argv, argv + argc);
    bool minTimeGiven = false;
    for (char* argument : arguments) {
        minTimeGiven = minTimeGiven || std::string(argument).rfind("--benchmark_min_time", 0) == 0;
    }
    std::string shortMinTime = "--benchmark_min_time=0.1";
    if (!minTimeGiven) {
        arguments.push_back(shortMinTime.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}

} // namespace orv::modbus::bench
