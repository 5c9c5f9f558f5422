#pragma once
// The map the request fuzz target talks to: entries of every kind, writable
// and read-only, available and not, single- and multi-register, with gaps
// between them. After each request it checks what no request may ever
// cause: a table element outside every entry that is not 0, a read-only or
// unavailable entry whose tables changed, a write that reached an accessor
// with the wrong number of words, or a table that no longer matches what
// was last pushed to its accessor.

#include "FakeRegistersAccessor.h"
#include "FuzzFailure.h"
#include "TableProbe.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/ModbusMapEntry.h>
#include <orv/modbus/Registers.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::fuzz {

// The entries' accessors hold a fixed value, record every write a request
// pushes to them and never report a change of their own, so that whatever
// the tables hold was put there by the map or by a request.
using orv::test::FakeAccessor;
using orv::test::FakeDiscretesAccessor;
using orv::test::FakeRegistersAccessor;

class FuzzMap {
public:
    // `readOnly` is the flag the requests are processed with: no write may
    // then reach any accessor.
    explicit FuzzMap(bool readOnly)
        : m_readOnly(readOnly)
    {
        std::vector<ModbusMapEntry*> entries;
        for (const auto& layout : g_layouts) {
            entries.push_back(makeEntry(layout));
        }
        auto probeAccessor = fake<FakeRegistersAccessor>(initialWords(g_probeAddress, 2), true);
        m_slots.push_back({{ModbusMapEntry::g_typeRegisters, g_probeAddress, 2, false, true}, probeAccessor, {}});
        m_pProbe = new TableProbe(g_probeAddress, probeAccessor, false, "probe", "", "");
        entries.push_back(m_pProbe);
        m_pMap = std::make_unique<ModbusMap>("fuzz", entries, nullptr, ByteOrder::ABCD);
    }

    ModbusMap& map()
    {
        return *m_pMap;
    }

    void checkInvariants() const
    {
        const modbus_mapping_t& tables = *m_pProbe->tables();
        checkGaps(tables);
        for (const auto& slot : m_slots) {
            checkSlot(tables, slot);
        }
    }

private:
    struct EntryLayout {
        int type;
        uint16_t address;
        uint16_t size;
        bool writable;
        bool available;
    };

    struct Slot {
        EntryLayout layout;
        std::shared_ptr<FakeRegistersAccessor> registers;
        std::shared_ptr<FakeDiscretesAccessor> discretes;
    };

    static constexpr int g_discrete = ModbusMapEntry::g_typeDiscretes;
    static constexpr int g_input = ModbusMapEntry::g_typeRegisters;
    static constexpr int g_holding = ModbusMapEntry::g_typeHoldingRegisters;
    static constexpr int g_legacy = ModbusMapEntry::g_typeLegacyRegisters;
    static constexpr uint16_t g_probeAddress = 31;

    // The legacy entry at 50 is the highest register address: a legacy
    // entry sizes both register tables, so no other register entry may lie
    // above it.
    static constexpr std::array<EntryLayout, 14> g_layouts{{
        {g_discrete, 0, 2, true, true},
        {g_discrete, 5, 1, false, true},
        {g_discrete, 6, 1, true, false},
        {g_holding, 10, 2, true, true},
        {g_holding, 12, 1, false, true},
        {g_holding, 13, 1, true, true},
        {g_holding, 15, 1, true, false},
        {g_holding, 20, 4, true, true},
        {g_input, 30, 1, false, true},
        {g_input, 33, 1, true, false},
        {g_legacy, 40, 2, true, true},
        {g_legacy, 44, 1, true, false},
        {g_legacy, 46, 3, true, true},
        {g_legacy, 50, 1, false, true},
    }};

    static std::vector<uint16_t> initialWords(uint16_t address, uint16_t size)
    {
        std::vector<uint16_t> words;
        for (uint16_t i = 0; i < size; ++i) {
            words.push_back(static_cast<uint16_t>(0xa000 | (address + i)));
        }
        return words;
    }

    template <class Accessor, class Values>
    static std::shared_ptr<Accessor> fake(Values initial, bool available)
    {
        auto accessor = std::make_shared<Accessor>(static_cast<uint16_t>(initial.size()), std::move(initial));
        accessor->setAvailable(available);
        return accessor;
    }

    ModbusMapEntry* makeEntry(const EntryLayout& layout)
    {
        const std::string name = "entry" + std::to_string(layout.type) + "-" + std::to_string(layout.address);
        if (layout.type == g_discrete) {
            auto accessor = fake<FakeDiscretesAccessor>(std::vector<uint8_t>(layout.size, 1), layout.available);
            m_slots.push_back({layout, {}, accessor});
            return new Discretes(layout.address, accessor, layout.writable, name, "", "on", "off");
        }
        auto accessor = fake<FakeRegistersAccessor>(initialWords(layout.address, layout.size), layout.available);
        m_slots.push_back({layout, accessor, {}});
        if (layout.type == g_input) {
            return new Registers(layout.address, accessor, layout.writable, name, "", "");
        }
        if (layout.type == g_holding) {
            return new HoldingRegisters(layout.address, accessor, layout.writable, name, "", "");
        }
        return new LegacyRegisters(layout.address, accessor, layout.writable, name, "", "");
    }

    // Which elements of one table some entry covers.
    std::vector<bool> coverage(int count, std::initializer_list<int> types) const
    {
        std::vector<bool> covered(static_cast<std::size_t>(count), false);
        for (const auto& slot : m_slots) {
            for (int type : types) {
                if (slot.layout.type != type) {
                    continue;
                }
                for (int i = slot.layout.address; i < slot.layout.address + slot.layout.size && i < count; ++i) {
                    covered[static_cast<std::size_t>(i)] = true;
                }
            }
        }
        return covered;
    }

    template <class Word>
    static void checkZeroOutside(const Word* table, int count, const std::vector<bool>& covered, const char* name)
    {
        for (int i = 0; i < count; ++i) {
            require(covered[static_cast<std::size_t>(i)] || table[i] == 0,
                    std::string(name) + "[" + std::to_string(i) + "] outside every entry is " +
                        std::to_string(table[i]));
        }
    }

    void checkGaps(const modbus_mapping_t& tables) const
    {
        const auto bits = coverage(tables.nb_bits, {g_discrete});
        checkZeroOutside(tables.tab_bits, tables.nb_bits, bits, "tab_bits");
        checkZeroOutside(tables.tab_input_bits, tables.nb_input_bits, bits, "tab_input_bits");
        checkZeroOutside(tables.tab_registers, tables.nb_registers, coverage(tables.nb_registers, {g_holding, g_legacy}),
                         "tab_registers");
        checkZeroOutside(tables.tab_input_registers, tables.nb_input_registers,
                         coverage(tables.nb_input_registers, {g_input, g_legacy}), "tab_input_registers");
    }

    template <class Word>
    static std::vector<Word> slice(const Word* table, const EntryLayout& layout)
    {
        return std::vector<Word>(table + layout.address, table + layout.address + layout.size);
    }

    template <class Word, class Interface>
    void checkWrites(const FakeAccessor<Word, Interface>& accessor, const EntryLayout& layout,
                     const std::vector<Word>& written, const std::vector<std::vector<Word>>& untouched) const
    {
        const std::string where = "entry of kind " + std::to_string(layout.type) + " at " + std::to_string(layout.address);
        const auto writes = accessor.written();
        require(writes.empty() || (layout.writable && layout.available && !m_readOnly),
                where + " got a write although it must refuse it");
        for (const auto& write : writes) {
            require(write.size() == layout.size, where + " got " + std::to_string(write.size()) + " words");
        }
        if (writes.empty()) {
            for (const auto& copy : untouched) {
                require(copy == accessor.getData(), where + " changed in the tables without a write");
            }
            return;
        }
        require(writes.back() == written, where + ": the tables differ from the last value pushed to the accessor");
    }

    void checkSlot(const modbus_mapping_t& tables, const Slot& slot) const
    {
        const auto& layout = slot.layout;
        if (layout.type == g_discrete) {
            checkWrites(*slot.discretes, layout, slice(tables.tab_bits, layout),
                        {slice(tables.tab_bits, layout), slice(tables.tab_input_bits, layout)});
            return;
        }
        const auto holding = slice(tables.tab_registers, layout);
        const auto input = slice(tables.tab_input_registers, layout);
        if (layout.type == g_input) {
            checkWrites(*slot.registers, layout, input, {input});
        } else if (layout.type == g_holding) {
            checkWrites(*slot.registers, layout, holding, {holding});
        } else {
            checkWrites(*slot.registers, layout, holding, {holding, input});
            require(holding == input, "legacy entry at " + std::to_string(layout.address) +
                                          ": the input copy does not follow the holding copy");
        }
    }

    bool m_readOnly;
    std::vector<Slot> m_slots;
    TableProbe* m_pProbe = nullptr;
    std::unique_ptr<ModbusMap> m_pMap;
};

} // namespace orv::modbus::fuzz
