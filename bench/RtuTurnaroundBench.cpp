// RTU turnaround on a socat pseudo-terminal pair at 115200 bit/s: the time
// from the last byte of a request to the first byte of its answer, through
// a running ModbusServer ("orv") beside a bare libmodbus RTU server
// (modbus_receive and modbus_reply on a modbus_mapping_t, "baseline").

#include "FakeRegistersAccessor.h"
#include "RatioReporter.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/ModbusServer.h>

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <modbus/modbus.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern char** environ;

namespace orv::modbus::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int g_registers = 10;
constexpr int g_baud = 115200;
constexpr int g_unit = 1;

// A socat pair in a fresh temporary directory: `server` and `master` links.
class PtyPair {
public:
    PtyPair()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "orv-rtu-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        m_directory = pattern;
        std::string server = "pty,raw,echo=0,link=" + serverEnd();
        std::string master = "pty,raw,echo=0,link=" + masterEnd();
        char program[] = "socat";
        char* argv[] = {program, server.data(), master.data(), nullptr};
        if (posix_spawn(&m_pid, "/usr/bin/socat", nullptr, nullptr, argv, environ) != 0) {
            throw std::runtime_error("cannot start socat");
        }
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (!(std::filesystem::exists(serverEnd()) && std::filesystem::exists(masterEnd()))) {
            if (Clock::now() > deadline) {
                throw std::runtime_error("socat made no links");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    ~PtyPair()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
        std::filesystem::remove_all(m_directory);
    }
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    std::string serverEnd() const { return m_directory + "/server"; }
    std::string masterEnd() const { return m_directory + "/master"; }

private:
    std::string m_directory;
    pid_t m_pid = -1;
};

std::vector<uint8_t> withCrc(std::vector<uint8_t> bytes)
{
    boost::crc_optimal<16, 0x8005, 0xFFFF, 0, true, true> crc;
    crc.process_bytes(bytes.data(), bytes.size());
    bytes.push_back(static_cast<uint8_t>(crc.checksum() & 0xFF));
    bytes.push_back(static_cast<uint8_t>(crc.checksum() >> 8));
    return bytes;
}

std::vector<uint8_t> readRequest()
{
    return withCrc({g_unit, MODBUS_FC_READ_HOLDING_REGISTERS, 0, 0, 0, g_registers});
}

std::vector<uint8_t> writeRequest()
{
    std::vector<uint8_t> bytes{g_unit, MODBUS_FC_WRITE_MULTIPLE_REGISTERS, 0, 0, 0, g_registers, 2 * g_registers};
    bytes.resize(bytes.size() + 2 * g_registers, 1);
    return withCrc(bytes);
}

// The line settings both servers use: RS-485 mode, RTS up, as the daemon.
modbus_t* serverContext(const std::string& device, int slave)
{
    modbus_t* context = modbus_new_rtu(device.c_str(), g_baud, 'N', 8, 1);
    modbus_rtu_set_serial_mode(context, MODBUS_RTU_RS485);
    modbus_rtu_set_rts(context, MODBUS_RTU_RTS_UP);
    modbus_set_slave(context, slave);
    modbus_set_indication_timeout(context, 0, 200'000);
    if (modbus_connect(context) == -1) {
        throw std::runtime_error("cannot open " + device);
    }
    return context;
}

// The bare server: libmodbus alone, on its own thread.
class BareServer {
public:
    explicit BareServer(const std::string& device)
        : m_pContext(serverContext(device, g_unit))
        , m_pMapping(modbus_mapping_new(0, 0, g_registers, 0))
        , m_thread([this] { serve(); })
    {
    }
    ~BareServer()
    {
        m_stop = true;
        m_thread.join();
        modbus_mapping_free(m_pMapping);
        modbus_close(m_pContext);
        modbus_free(m_pContext);
    }
    BareServer(const BareServer&) = delete;
    BareServer& operator=(const BareServer&) = delete;

private:
    void serve()
    {
        uint8_t query[MODBUS_RTU_MAX_ADU_LENGTH];
        while (!m_stop) {
            const int length = modbus_receive(m_pContext, query);
            if (length > 0) {
                modbus_reply(m_pContext, query, length, m_pMapping);
            }
        }
    }

    modbus_t* m_pContext;
    modbus_mapping_t* m_pMapping;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// The server of this library with one map at unit 1.
class OrvServer {
public:
    explicit OrvServer(const std::string& device)
    {
        ModbusServerSettings settings;
        settings.rtuEnabled = true;
        settings.rtuDevice = device;
        settings.baudRate = common::BaudRate::Baud115200;
        m_pServer = std::make_unique<ModbusServer>(settings, false);
        auto* accessor = new orv::test::FakeRegistersAccessor(g_registers, std::vector<uint16_t>(g_registers, 7));
        // Runs for as long as the benchmark wants: what clients write is not kept.
        accessor->keepWrites(false);
        auto map = std::make_shared<ModbusMap>(
            "bench", std::vector<ModbusMapEntry*>{new HoldingRegisters(0, accessor, true, "block", "", "")}, nullptr,
            ByteOrder::ABCD);
        ModbusMapsConfiguration configuration;
        configuration.rtuMaps[g_unit] =
            std::make_shared<ModbusMapSettings>(map, false, false, false, std::vector<std::regex>{});
        m_pServer->run(configuration);
    }

private:
    std::unique_ptr<ModbusServer> m_pServer;
};

int openMaster(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
    return fd;
}

// Reads one answer of `expected` bytes; false when it does not come in 1 s.
bool readAnswer(int fd, std::size_t expected, Clock::time_point& firstByte)
{
    uint8_t answer[MODBUS_RTU_MAX_ADU_LENGTH];
    std::size_t got = 0;
    while (got < expected) {
        pollfd watched{fd, POLLIN, 0};
        if (poll(&watched, 1, 1000) <= 0) {
            return false;
        }
        if (got == 0) {
            firstByte = Clock::now();
        }
        const ssize_t count = read(fd, answer + got, sizeof(answer) - got);
        if (count <= 0) {
            return false;
        }
        got += static_cast<std::size_t>(count);
    }
    return true;
}

template <class Server>
void turnaround(benchmark::State& state, const std::vector<uint8_t>& request, std::size_t answerLength)
{
    PtyPair line;
    Server server(line.serverEnd());
    const int master = openMaster(line.masterEnd());
    for (auto _ : state) {
        if (write(master, request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
            state.SkipWithError("short write");
            break;
        }
        const Clock::time_point sent = Clock::now();
        Clock::time_point firstByte;
        if (!readAnswer(master, answerLength, firstByte)) {
            state.SkipWithError("no answer");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(firstByte - sent).count());
    }
    close(master);
}

void registerCase(const std::string& name, const std::vector<uint8_t>& request, std::size_t answerLength)
{
    benchmark::RegisterBenchmark((name + "/" + RatioReporter::g_baseline).c_str(), turnaround<BareServer>, request,
                                 answerLength)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((name + "/" + RatioReporter::g_orv).c_str(), turnaround<OrvServer>, request,
                                 answerLength)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    using namespace orv::modbus::bench;
    // Unit, code, byte count, the words, CRC; unit, code, address, count, CRC.
    registerCase("RTU_FC3_read_10", readRequest(), 3 + 2 * g_registers + 2);
    registerCase("RTU_FC16_write_10", writeRequest(), 8);
    return runWithRatios(argc, argv);
}
