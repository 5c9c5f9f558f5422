// Cost of answering a request through ModbusMap::processRequest (entry
// lookup, locking, and pushing writes to the accessors) against libmodbus
// answering the same request alone from a plain mapping of the same size.
// Both run over the same kind of socket pair, request and reply included.
#include "FakeRegistersAccessor.h"
#include "ModbusSocketPair.h"
#include "RatioReporter.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <modbus/modbus.h>
#include <sys/socket.h>

namespace orv::modbus::bench {
namespace {

// 200 holding-register entries, alternately two registers (a float) and one
// register wide, back to back from address 0: 300 registers.
constexpr int g_entries = 200;
constexpr int g_registers = 300;

std::unique_ptr<ModbusMap> makeMap()
{
    std::vector<ModbusMapEntry*> entries;
    uint16_t address = 0;
    for (int i = 0; i < g_entries; ++i) {
        const uint16_t size = i % 2 == 0 ? 2 : 1;
        // Costs next to nothing, so that the map and libmodbus are measured,
        // not a conversion.
        auto* accessor =
            new orv::test::FakeRegistersAccessor(size, std::vector<uint16_t>(size, static_cast<uint16_t>(i)));
        accessor->keepWrites(false);
        entries.push_back(new HoldingRegisters(address, accessor, true, "entry" + std::to_string(i), "", ""));
        address = static_cast<uint16_t>(address + size);
    }
    return std::make_unique<ModbusMap>("bench", entries, nullptr, ByteOrder::ABCD);
}

using orv::test::ModbusSocketPair;

constexpr uint8_t g_unitId = 1;

std::vector<uint8_t> readRequest(uint16_t count)
{
    return ModbusSocketPair::tcpFrame(1, g_unitId,
                                      {MODBUS_FC_READ_HOLDING_REGISTERS, 0, 0, static_cast<uint8_t>(count >> 8),
                                       static_cast<uint8_t>(count & 0xff)});
}

std::vector<uint8_t> writeRequest(uint16_t count)
{
    std::vector<uint8_t> pdu{MODBUS_FC_WRITE_MULTIPLE_REGISTERS, 0, 0, static_cast<uint8_t>(count >> 8),
                             static_cast<uint8_t>(count & 0xff), static_cast<uint8_t>(count * 2)};
    for (uint16_t i = 0; i < count; ++i) {
        pdu.push_back(0x12);
        pdu.push_back(static_cast<uint8_t>(i));
    }
    return ModbusSocketPair::tcpFrame(1, g_unitId, pdu);
}

using Answer = std::function<void(modbus_t*, uint8_t*, int)>;

// One request per iteration, all in this thread: the client end sends it,
// the server end receives and answers it, and the client end reads the
// whole reply.
void exchange(benchmark::State& state, const std::vector<uint8_t>& request, const Answer& answer)
{
    ModbusSocketPair wire;
    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    uint8_t reply[MODBUS_TCP_MAX_ADU_LENGTH];
    for (auto _ : state) {
        if (send(wire.clientSocket(), request.data(), request.size(), MSG_NOSIGNAL)
            != static_cast<ssize_t>(request.size())) {
            state.SkipWithError("the request was not sent");
            break;
        }
        const int length = modbus_receive(wire.server(), query);
        if (length <= 0) {
            state.SkipWithError("the request did not arrive");
            break;
        }
        answer(wire.server(), query, length);
        if (modbus_receive_confirmation(wire.client(), reply) <= 0) {
            state.SkipWithError("no reply");
            break;
        }
    }
}

void viaLibmodbus(benchmark::State& state, const std::vector<uint8_t>& request)
{
    modbus_mapping_t* mapping = modbus_mapping_new(0, 0, g_registers, 0);
    exchange(state, request,
             [mapping](modbus_t* ctx, uint8_t* query, int length) { modbus_reply(ctx, query, length, mapping); });
    modbus_mapping_free(mapping);
}

void viaMap(benchmark::State& state, const std::vector<uint8_t>& request)
{
    const auto map = makeMap();
    exchange(state, request, [&map](modbus_t* ctx, uint8_t* query, int length) {
        map->processRequest(ctx, query, static_cast<unsigned>(length), false, false, false);
    });
}

void registerCase(const std::string& name, const std::vector<uint8_t>& request)
{
    benchmark::RegisterBenchmark((name + "/" + RatioReporter::g_baseline).c_str(), viaLibmodbus, request);
    benchmark::RegisterBenchmark((name + "/" + RatioReporter::g_orv).c_str(), viaMap, request);
}

} // namespace
} // namespace orv::modbus::bench

int main(int argc, char** argv)
{
    using namespace orv::modbus::bench;
    registerCase("FC3_read_1", readRequest(1));
    registerCase("FC3_read_10", readRequest(10));
    registerCase("FC3_read_125", readRequest(125));
    registerCase("FC16_write_2", writeRequest(2));
    registerCase("FC16_write_100", writeRequest(100));
    return runWithRatios(argc, argv);
}
