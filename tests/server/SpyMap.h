#pragma once

#include "FakeRegistersAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace orv::modbus::test {

using orv::test::FakeRegistersAccessor;

// A real map that records the flags of every processRequest call and can
// run a hook before answering (to block or throw).
class SpyMap : public ModbusMap {
public:
    struct Flags {
        bool skipReadChecks;
        bool readOnly;
        bool addressShift;
    };

    explicit SpyMap(std::vector<ModbusMapEntry*> entries)
        : ModbusMap("spy", std::move(entries), nullptr, ByteOrder::ABCD)
    {
    }

    bool processRequest(modbus_t* ctx, uint8_t* query, unsigned length, bool skipReadChecks, bool readOnly,
                        bool addressShift) override
    {
        std::function<void()> hook;
        {
            std::lock_guard lock(m_mutex);
            m_calls.push_back({skipReadChecks, readOnly, addressShift});
            hook = m_beforeReply;
        }
        if (hook) {
            hook();
        }
        return ModbusMap::processRequest(ctx, query, length, skipReadChecks, readOnly, addressShift);
    }

    void setBeforeReply(std::function<void()> hook)
    {
        std::lock_guard lock(m_mutex);
        m_beforeReply = std::move(hook);
    }

    std::vector<Flags> calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Flags> m_calls;
    std::function<void()> m_beforeReply;
};

// What the entry "pair" holds.
inline const std::vector<std::uint16_t> g_pairWords{11, 12};

// Holding registers 0-1 (g_pairWords) and 10 (word 100), all writable.
// Address 20 has no entry: reading it is refused with exception 2.
inline std::vector<ModbusMapEntry*> testEntries()
{
    return {new HoldingRegisters(0, new FakeRegistersAccessor(2, g_pairWords), true, "pair", "two words", ""),
            new HoldingRegisters(10, new FakeRegistersAccessor(1, {100}), true, "single", "one word", "")};
}

inline std::shared_ptr<SpyMap> makeSpyMap()
{
    return std::make_shared<SpyMap>(testEntries());
}

} // namespace orv::modbus::test
