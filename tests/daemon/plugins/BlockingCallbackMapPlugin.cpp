// A map plug-in with a data-store client of its own whose callback blocks
// for 200 ms on every change of the simulated voltage: a slow plug-in that
// must not hold up the other units. Its one register always reads 42.

#include "FakeRegistersAccessor.h"

#include <cdsapi/CdsAccessor.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace {

class BlockingCallbackAccessor : public orv::test::FakeRegistersAccessor {
public:
    BlockingCallbackAccessor()
        : FakeRegistersAccessor(1, {42})
        , m_client("blocking-callback-map", true)
    {
        const auto meter = m_client.getDeviceByName("meter-1");
        m_client.subscribeChannel(
            m_client.getChannelId(meter, "Voltage"),
            [this](std::uint64_t, const zu::CValue&) {
                if (!m_announced.exchange(true)) {
                    std::fprintf(stderr, "blocking callback entered\n");
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
            },
            zu::sub::channel_value_update, nullptr);
    }

private:
    std::atomic<bool> m_announced{false};
    cdsapi::CdsAccessor m_client;
};

} // namespace

extern "C" orv::modbus::ModbusMap* createMap()
{
    return new orv::modbus::ModbusMap(
        "blocking-callback-map",
        {new orv::modbus::HoldingRegisters(0, new BlockingCallbackAccessor, false, "answer", "always 42", "")},
        nullptr, orv::modbus::ByteOrder::ABCD);
}
