#pragma once
// Builds the entry vector a ModbusMap is constructed from, keeping the fake
// accessors so that tests can fire updates and inspect writes.

#include "FakeRegistersAccessor.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/ModbusMapEntry.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::test {

using orv::test::FakeDiscretesAccessor;
using orv::test::FakeRegistersAccessor;

class EntryList {
public:
    EntryList() = default;
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;

    ~EntryList()
    {
        for (ModbusMapEntry* entry : m_entries) {
            delete entry;
        }
    }

    template <class Entry>
    std::shared_ptr<FakeRegistersAccessor> add(uint16_t address, uint16_t size, bool writable = true,
                                               std::vector<uint16_t> initial = {}, const std::string& name = "entry",
                                               bool* destroyed = nullptr)
    {
        auto accessor = std::make_shared<FakeRegistersAccessor>(size, std::move(initial), destroyed);
        m_entries.push_back(new Entry(address, accessor, writable, name, "description of " + name, "unit"));
        return accessor;
    }

    std::shared_ptr<FakeDiscretesAccessor> addDiscretes(uint16_t address, uint16_t size, bool writable = true,
                                                        std::vector<uint8_t> initial = {},
                                                        const std::string& name = "entry")
    {
        auto accessor = std::make_shared<FakeDiscretesAccessor>(size, std::move(initial));
        m_entries.push_back(
            new Discretes(address, accessor, writable, name, "description of " + name, "closed", "open"));
        return accessor;
    }

    // Hands the entries over to the map being built.
    std::vector<ModbusMapEntry*> release()
    {
        return std::exchange(m_entries, {});
    }

private:
    std::vector<ModbusMapEntry*> m_entries;
};

} // namespace orv::modbus::test
