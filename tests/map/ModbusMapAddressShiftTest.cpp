#include "EntryList.h"
#include "ModbusWire.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace orv::modbus::test {
namespace {

// One map may serve the serial line and TCP with different address shifts,
// from two threads. Each request must be answered with its own shift
// whatever the other thread sets meanwhile; here a thread flips the map's
// shift as fast as it can while requests of both kinds are answered.
TEST(ModbusMapAddressShiftTest, EachRequestIsAnsweredWithItsOwnShiftWhileAnotherThreadChangesIt)
{
    EntryList entries;
    entries.add<HoldingRegisters>(0, 1, true, {0x1111});
    entries.add<HoldingRegisters>(1, 1, true, {0x2222});
    ModbusMap map("shifted", entries.release(), nullptr, ByteOrder::ABCD);
    ModbusWire wire;

    std::atomic<bool> stop{false};
    std::thread flipper([&map, &stop] {
        for (unsigned i = 0; !stop; ++i) {
            map.setAddressShift(i % 2 == 0);
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    int wrong = 0;
    for (int i = 0; i < 4000 && wrong == 0 && std::chrono::steady_clock::now() < deadline; ++i) {
        const bool shifted = i % 2 == 1;
        // Address 0 unshifted and address 1 shifted are both table index 0.
        const auto reply = wire.exchange(map, readPdu(MODBUS_FC_READ_HOLDING_REGISTERS, shifted ? 1 : 0, 1),
                                         {false, false, shifted});
        if (reply != registersReplyPdu(MODBUS_FC_READ_HOLDING_REGISTERS, {0x1111})) {
            ++wrong;
        }
    }
    stop = true;
    flipper.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace orv::modbus::test
