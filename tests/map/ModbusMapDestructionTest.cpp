// A map destroyed while its accessors still deliver changes from their own
// threads: every entry must be detached and released (stopping its
// accessor) before the tables go, so that no late change writes into freed
// tables. The sanitizer build turns such a write into a failure.

#include "ModbusWire.h"
#include "WaitUntil.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/RegistersDataAccessor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace orv::modbus::test {
namespace {

using orv::test::waitUntil;

constexpr int g_rounds = 200;

// A data point that never stops changing: once the entry has set its
// callback, a thread of the accessor calls it with a new value over and over
// until the accessor is destroyed.
class ChangingRegistersAccessor : public RegistersDataAccessor {
public:
    ChangingRegistersAccessor(uint16_t size, std::atomic<int>& alive)
        : m_size(size)
        , m_alive(alive)
    {
        ++m_alive;
    }

    ~ChangingRegistersAccessor() override
    {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        --m_alive;
    }

    ChangingRegistersAccessor(const ChangingRegistersAccessor&) = delete;
    ChangingRegistersAccessor& operator=(const ChangingRegistersAccessor&) = delete;

    void setData(const std::vector<uint16_t>& /*data*/) override {}
    std::vector<uint16_t> getData() const override { return std::vector<uint16_t>(m_size, 0); }
    std::string getDataRepresentation() const override { return "changing"; }
    bool isDataAvailable() const override { return true; }
    std::string getStrValue() const override { return "changing"; }
    uint16_t getSize() const override { return m_size; }

    // The entry sets its callback once when it is built and once more when
    // it is destroyed: the second time waits for a running call, so that the
    // old callback is never called into a dying entry.
    void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) override
    {
        std::lock_guard lock(m_callbackMutex);
        m_callback = std::move(callback);
        if (!m_thread.joinable()) {
            m_thread = std::thread([this] { run(); });
        }
    }

    int changes() const { return m_changes; }

private:
    void run()
    {
        for (uint16_t word = 1; !m_stop; word = static_cast<uint16_t>(word % 0xffff + 1)) {
            {
                std::lock_guard lock(m_callbackMutex);
                m_callback(std::vector<uint16_t>(m_size, word));
            }
            ++m_changes;
            // Leaves the test's own thread a share of a busy machine.
            std::this_thread::yield();
        }
    }

    const uint16_t m_size;
    std::atomic<int>& m_alive;
    std::mutex m_callbackMutex;
    std::function<void(const std::vector<uint16_t>&)> m_callback;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_changes{0};
    std::thread m_thread;
};

TEST(ModbusMapDestructionTest, MapDestroyedWhileAccessorThreadsDeliverChanges)
{
    std::atomic<int> alive{0};
    ModbusWire wire;
    for (int round = 0; round < g_rounds; ++round) {
        auto* holding = new ChangingRegistersAccessor(2, alive);
        auto* input = new ChangingRegistersAccessor(1, alive);
        auto* legacy = new ChangingRegistersAccessor(3, alive);
        auto map = std::make_unique<ModbusMap>(
            "changing",
            std::vector<ModbusMapEntry*>{new HoldingRegisters(0, holding, true, "holding", "", ""),
                                         new Registers(0, input, false, "input", "", ""),
                                         new LegacyRegisters(10, legacy, true, "legacy", "", "")},
            nullptr, ByteOrder::ABCD);

        // Changes flow into the mapped tables before the map goes: each
        // accessor completes two more, so one of them began after mapping.
        const std::vector<std::pair<ChangingRegistersAccessor*, int>> counted{
            {holding, holding->changes()}, {input, input->changes()}, {legacy, legacy->changes()}};
        ASSERT_TRUE(waitUntil([&] {
            return std::all_of(counted.begin(), counted.end(),
                               [](const auto& count) { return count.first->changes() > count.second + 1; });
        })) << "round " << round;
        const auto reply = wire.exchange(*map, readPdu(MODBUS_FC_READ_HOLDING_REGISTERS, 0, 1));
        ASSERT_EQ(reply.size(), 4u) << "round " << round;
        EXPECT_NE(reply[2] << 8 | reply[3], 0) << "round " << round;

        map.reset();
        EXPECT_EQ(alive, 0) << "round " << round << ": the map kept an accessor alive";
    }
}

} // namespace
} // namespace orv::modbus::test
