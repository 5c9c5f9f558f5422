#include <orv/modbus/ModbusMap.h>

#include <orv/modbus/ModbusException.h>

#include "RequestLength.h"
#include "ServerLogger.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace orv::modbus {

namespace {

using EntryIndex = std::map<uint16_t, std::shared_ptr<ModbusMapEntry>>;

const char* kindWord(int type)
{
    switch (type) {
    case ModbusMapEntry::g_typeDiscretes:
        return "discrete";
    case ModbusMapEntry::g_typeRegisters:
        return "input register";
    case ModbusMapEntry::g_typeHoldingRegisters:
        return "holding register";
    default:
        return "register";
    }
}

// Highest address + 1, wrapping to 0 when the index holds 65535.
uint16_t tableSize(const EntryIndex& index)
{
    return index.empty() ? 0 : static_cast<uint16_t>(index.rbegin()->first + 1);
}

// Consecutive table addresses named by a request, wrapping past 65535.
struct AddressRange {
    uint16_t first;
    uint16_t count;

    uint16_t at(uint16_t offset) const { return static_cast<uint16_t>(first + offset); }
};

uint16_t firstAddress(const uint8_t* pdu, bool addressShift)
{
    return static_cast<uint16_t>(requestAddress(pdu) - (addressShift ? 1 : 0));
}

// The addresses of a read or multiple-write request.
AddressRange requestRange(const uint8_t* pdu, bool addressShift)
{
    return {firstAddress(pdu, addressShift), requestQuantity(pdu)};
}

// The address of a single-write request (function codes 5 and 6).
AddressRange singleAddress(const uint8_t* pdu, bool addressShift)
{
    return {firstAddress(pdu, addressShift), 1};
}

// What processRequest logs for a function code, or nullptr for none.
const char* requestLogText(uint8_t functionCode, bool skipReadChecks)
{
    switch (functionCode) {
    case MODBUS_FC_READ_COILS:
    case MODBUS_FC_READ_DISCRETE_INPUTS:
        return "Read discret";
    case MODBUS_FC_READ_HOLDING_REGISTERS:
        return skipReadChecks ? nullptr : "Read holding registers";
    case MODBUS_FC_READ_INPUT_REGISTERS:
        return "Read input registers";
    case MODBUS_FC_WRITE_SINGLE_COIL:
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
        return "Write discret input";
    case MODBUS_FC_WRITE_SINGLE_REGISTER:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return "Write register";
    default:
        return nullptr;
    }
}

// Whether the `length` bytes of `query` hold everything this map and
// libmodbus read of the request: the function code and its fields and data.
// modbus_receive only delivers such frames; other callers may not.
bool isComplete(const uint8_t* query, unsigned length, int headerLength)
{
    if (headerLength < 0 || length <= static_cast<unsigned>(headerLength)) {
        return false;
    }
    const std::size_t available = length - static_cast<unsigned>(headerLength);
    return pduLength(query + headerLength, available) <= available;
}

// libmodbus subtracts the start fields from every request address.
void setStarts(modbus_mapping_t& tables, bool addressShift)
{
    const int start = addressShift ? 1 : 0;
    tables.start_bits = start;
    tables.start_input_bits = start;
    tables.start_input_registers = start;
    tables.start_registers = start;
}

// Whether libmodbus wrote a write request into the tables. It refuses, with
// an exception reply and without writing, a count outside the protocol's
// limits, a coil value other than on or off, and any address outside the
// table; the entries found for the request do not size the tables (a legacy
// entry alone may size them).
bool writesTables(const uint8_t* pdu, const modbus_mapping_t& tables)
{
    const int address = requestAddress(pdu);
    const auto fits = [address](int start, int count, int size) {
        return address - start >= 0 && address - start + count <= size;
    };
    // The count of a multiple write, the value of a single one.
    const int count = requestQuantity(pdu);
    switch (pdu[0]) {
    case MODBUS_FC_WRITE_SINGLE_COIL:
        return (count == 0 || count == 0xFF00) && fits(tables.start_bits, 1, tables.nb_bits);
    case MODBUS_FC_WRITE_SINGLE_REGISTER:
        return fits(tables.start_registers, 1, tables.nb_registers);
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
        return count >= 1 && count <= MODBUS_MAX_WRITE_BITS && fits(tables.start_bits, count, tables.nb_bits);
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return count >= 1 && count <= MODBUS_MAX_WRITE_REGISTERS
            && fits(tables.start_registers, count, tables.nb_registers);
    default:
        return false;
    }
}

// Whether what modbus_reply sent (`sent` bytes) was the normal reply to a
// write: that echoes address and count, 5 bytes after the header, where an
// exception reply has 2 and at most a 2-byte checksum. Nothing sent (an RTU
// broadcast, or a client gone) tells neither.
bool repliedNormally(int sent, int headerLength)
{
    return sent <= 0 || sent - headerLength >= 5;
}

// Whether `entry` lies wholly inside the table the write `functionCode`
// went to, so that all the words it would pass on are the client's.
bool liesInside(const ModbusMapEntry& entry, const modbus_mapping_t& tables, uint8_t functionCode)
{
    const bool bits = functionCode == MODBUS_FC_WRITE_SINGLE_COIL || functionCode == MODBUS_FC_WRITE_MULTIPLE_COILS;
    return entry.getAddress() + entry.getSize() <= (bits ? tables.nb_bits : tables.nb_registers);
}

// Whether `address` is one of the keys `entry` holds in its index. The same
// 16-bit arithmetic as when the keys were registered, so a span that wraps
// past 65535 matches too.
bool inSpan(const ModbusMapEntry& entry, uint16_t address)
{
    return static_cast<uint16_t>(address - entry.getAddress()) < entry.getSize();
}

// Finds, for the addresses of one request taken one after the other, the
// entry covering each in the first of its indexes that has one (the preferred
// index, then the fallback), or throws exception 2 when none has it.
// Looking every address up costs most of a large request; but an entry holds
// every key of its span in its index, so inside the span of the entry found
// last that index answers with it again, and only an index preferred to it
// still needs asking. And as the addresses ascend, each index is first asked
// at the position after its previous answer, and searched only when that
// position holds another address.
class EntryResolver {
public:
    explicit EntryResolver(const EntryIndex& preferred, const EntryIndex* fallback = nullptr)
        : m_indexes{Cursor{&preferred}, Cursor{fallback}}
        , m_indexCount(fallback ? 2 : 1)
    {
    }

    ModbusMapEntry& resolve(uint16_t address)
    {
        const bool inLastSpan = m_pLast != nullptr && inSpan(*m_pLast, address);
        const size_t asked = inLastSpan ? m_lastRank : m_indexCount;
        for (size_t rank = 0; rank < asked; ++rank) {
            if (ModbusMapEntry* found = m_indexes[rank].find(address)) {
                m_pLast = found;
                m_lastRank = rank;
                return *m_pLast;
            }
        }
        if (inLastSpan) {
            return *m_pLast;
        }
        throw ModbusException(ModbusException::g_illegalDataAddress);
    }

private:
    // One index and where its next lookup starts: the first key not below
    // `next`, valid while `positioned`.
    struct Cursor {
        const EntryIndex* pIndex;
        EntryIndex::const_iterator position{};
        uint16_t next = 0;
        bool positioned = false;

        ModbusMapEntry* find(uint16_t address)
        {
            if (!positioned || next != address) {
                position = pIndex->lower_bound(address);
            }
            ModbusMapEntry* found = nullptr;
            if (position != pIndex->end() && position->first == address) {
                found = position->second.get();
                ++position;
            }
            // Past 65535 the addresses start again at 0.
            positioned = address != UINT16_MAX;
            next = static_cast<uint16_t>(address + 1);
            return found;
        }
    };

    std::array<Cursor, 2> m_indexes;
    size_t m_indexCount;
    ModbusMapEntry* m_pLast = nullptr;
    size_t m_lastRank = 0;
};

} // namespace

ModbusMap::ModbusMap(const std::string& mapId, std::vector<ModbusMapEntry*> entries,
                     MapAvailableAccessor* availableAccessor, ByteOrder byteOrder)
    : m_pAvailableAccessor(availableAccessor)
    , m_mapId(mapId)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Create a modbus mapping...");
    std::vector<std::shared_ptr<ModbusMapEntry>> owned;
    owned.reserve(entries.size());
    try {
        for (ModbusMapEntry*& entry : entries) {
            owned.emplace_back(std::exchange(entry, nullptr));
            registerEntry(owned.back());
        }
    } catch (...) {
        // The map owns every entry it was given, also those it never reached.
        for (ModbusMapEntry* entry : entries) {
            delete entry;
        }
        throw;
    }
    allocateMapping();
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Initialize the values...");
    try {
        attachEntries(owned, byteOrder);
    } catch (...) {
        // As in the destructor: no entry may write into the freed tables.
        releaseEntries();
        modbus_mapping_free(m_pMapping);
        throw;
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Initialize the values...Done.");
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Create a mobbus mapping...Done.");
}

void ModbusMap::attachEntries(const std::vector<std::shared_ptr<ModbusMapEntry>>& entries, ByteOrder byteOrder)
{
    for (const auto& entry : entries) {
        entry->setByteOrder(byteOrder);
        entry->setMapping(m_pMapping);
    }
}

ModbusMap::~ModbusMap()
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Deleting the mapping...");
    releaseEntries();
    modbus_mapping_free(m_pMapping);
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Deleting the mapping...Done.");
}

// Data-store notifications may still arrive on another thread and write into
// the tables through an entry. Detach every entry and drop it (its accessor
// stops listening when it goes) before the tables are freed.
void ModbusMap::releaseEntries()
{
    for (EntryIndex* index : {&m_discretes, &m_inputRegisters, &m_holdingRegisters, &m_legacyRegisters}) {
        for (const auto& [address, entry] : *index) {
            entry->setMapping(nullptr);
        }
        index->clear();
    }
}

void ModbusMap::registerEntry(const std::shared_ptr<ModbusMapEntry>& entry)
{
    EntryIndex& index = indexOf(entry->getType());
    for (uint16_t i = 0; i < entry->getSize(); ++i) {
        const auto address = static_cast<uint16_t>(entry->getAddress() + i);
        const auto [existing, inserted] = index.emplace(address, entry);
        if (!inserted) {
            throw std::runtime_error("Failed to allocate the mapping: entry at " + std::string(kindWord(entry->getType()))
                                     + " address " + std::to_string(address) + " from element starting at "
                                     + std::to_string(entry->getAddress()) + " already exist.\n"
                                     + "Current entry: " + entry->getName() + "\n"
                                     + "Existing entry: " + existing->second->getName() + "\n");
        }
    }
}

ModbusMap::EntryIndex& ModbusMap::indexOf(int type)
{
    switch (type) {
    case ModbusMapEntry::g_typeDiscretes:
        return m_discretes;
    case ModbusMapEntry::g_typeRegisters:
        return m_inputRegisters;
    case ModbusMapEntry::g_typeHoldingRegisters:
        return m_holdingRegisters;
    default:
        return m_legacyRegisters;
    }
}

void ModbusMap::allocateMapping()
{
    const uint16_t bits = tableSize(m_discretes);
    const uint16_t legacy = tableSize(m_legacyRegisters);
    // Legacy entries live in both register tables, so they alone size them.
    const uint16_t registers = legacy != 0 ? legacy : tableSize(m_holdingRegisters);
    const uint16_t inputRegisters = legacy != 0 ? legacy : tableSize(m_inputRegisters);
    m_pMapping = modbus_mapping_new(bits, bits, registers, inputRegisters);
    if (m_pMapping == nullptr) {
        throw std::runtime_error(std::string("Failed to allocate the mapping: ") + modbus_strerror(errno));
    }
}

std::string ModbusMap::getMapId() const
{
    return m_mapId;
}

bool ModbusMap::isMapAvailable() const
{
    return !m_pAvailableAccessor || m_pAvailableAccessor->isAvailable();
}

std::string ModbusMap::notAvailableUserMessage() const
{
    return m_pAvailableAccessor ? m_pAvailableAccessor->notAvailableMessage() : std::string();
}

std::vector<uint16_t> ModbusMap::getAddresses(int headerLength, uint8_t* query, bool addressShift)
{
    const AddressRange range = requestRange(query + headerLength, addressShift);
    std::vector<uint16_t> addresses;
    addresses.reserve(range.count);
    for (uint16_t i = 0; i < range.count; ++i) {
        addresses.push_back(range.at(i));
    }
    return addresses;
}

void ModbusMap::setAddressShift(bool shift)
{
    setStarts(*m_pMapping, shift);
}

modbus_mapping_t ModbusMap::tablesFor(bool addressShift) const
{
    modbus_mapping_t tables{};
    tables.nb_bits = m_pMapping->nb_bits;
    tables.nb_input_bits = m_pMapping->nb_input_bits;
    tables.nb_input_registers = m_pMapping->nb_input_registers;
    tables.nb_registers = m_pMapping->nb_registers;
    tables.tab_bits = m_pMapping->tab_bits;
    tables.tab_input_bits = m_pMapping->tab_input_bits;
    tables.tab_input_registers = m_pMapping->tab_input_registers;
    tables.tab_registers = m_pMapping->tab_registers;
    setStarts(tables, addressShift);
    return tables;
}

bool ModbusMap::processRequest(modbus_t* ctx, uint8_t* query, unsigned length, bool skipReadChecks, bool readOnly,
                               bool addressShift)
{
    if (!isMapAvailable()) {
        return false;
    }
    const int headerLength = modbus_get_header_length(ctx);
    if (!isComplete(query, length, headerLength)) {
        // Too short to answer, even with an exception reply.
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Incomplete request of {} bytes dropped", length);
        return false;
    }
    if (const char* text = requestLogText(query[headerLength], skipReadChecks)) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "{}", text);
    }
    EntrySet touched;
    bool pushToAccessors = false;
    try {
        pushToAccessors = collectEntries(query, headerLength, skipReadChecks, readOnly, addressShift, touched);
    } catch (const ModbusException& refusal) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), " Error!");
        modbus_reply_exception(ctx, query, refusal.getCode());
        return false;
    }
    const int sent = replyLocked(ctx, query, length, addressShift, touched);
    // A write refused by libmodbus changes nothing in the data store.
    const modbus_mapping_t tables = tablesFor(addressShift);
    const uint8_t* pdu = query + headerLength;
    if (pushToAccessors && repliedNormally(sent, headerLength) && writesTables(pdu, tables)) {
        for (const auto& [key, entry] : touched) {
            if (liesInside(*entry, tables, pdu[0])) {
                entry->updateDataInAccessor();
            }
        }
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Processing a request... Done.");
    return true;
}

bool ModbusMap::collectEntries(uint8_t* query, int headerLength, bool skipReadChecks, bool readOnly,
                               bool addressShift, EntrySet& touched) const
{
    const uint8_t* pdu = query + headerLength;
    // Consecutive addresses mostly hit the entry added last, so only that
    // one is checked here; sortTouched drops the other repeats.
    const auto addEntry = [&touched](ModbusMapEntry& entry) {
        if (touched.empty() || touched.back().second != &entry) {
            touched.emplace_back(std::make_pair(entry.getAddress(), entry.getType()), &entry);
        }
    };
    // Locking order, each entry once. An entry can come back after another:
    // a legacy entry around a holding one, or in a range wrapping past 65535.
    const auto sortTouched = [&touched] {
        const auto byKey = [](const auto& left, const auto& right) { return left.first < right.first; };
        // Mostly they come in order already, each once.
        if (std::is_sorted(touched.begin(), touched.end(), byKey)) {
            return;
        }
        std::sort(touched.begin(), touched.end(), byKey);
        touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    };
    // Every address must belong to an available entry, unless reads are
    // left to libmodbus alone. Nothing goes back to the accessors.
    const auto collectReads = [&](EntryResolver resolver) {
        if (skipReadChecks) {
            return false;
        }
        const AddressRange range = requestRange(pdu, addressShift);
        for (uint16_t i = 0; i < range.count; ++i) {
            ModbusMapEntry& entry = resolver.resolve(range.at(i));
            if (!entry.isAvailable()) {
                throw ModbusException(ModbusException::g_illegalDataAddress);
            }
            addEntry(entry);
        }
        sortTouched();
        return false;
    };
    // Every address must belong to an entry that may be written now; the
    // written contents go back to the accessors.
    const auto collectWrites = [&](const AddressRange& range, EntryResolver resolver) {
        for (uint16_t i = 0; i < range.count; ++i) {
            ModbusMapEntry& entry = resolver.resolve(range.at(i));
            if (readOnly || !entry.isWritable() || !entry.isAvailable()) {
                throw ModbusException(ModbusException::g_illegalFunction);
            }
            addEntry(entry);
        }
        sortTouched();
        return true;
    };

    switch (pdu[0]) {
    case MODBUS_FC_READ_COILS:
    case MODBUS_FC_READ_DISCRETE_INPUTS:
        return collectReads(EntryResolver(m_discretes));
    case MODBUS_FC_READ_HOLDING_REGISTERS:
        return collectReads(EntryResolver(m_holdingRegisters, &m_legacyRegisters));
    case MODBUS_FC_READ_INPUT_REGISTERS:
        return collectReads(EntryResolver(m_inputRegisters, &m_legacyRegisters));
    case MODBUS_FC_WRITE_SINGLE_COIL:
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
        return collectWrites(pdu[0] == MODBUS_FC_WRITE_SINGLE_COIL ? singleAddress(pdu, addressShift)
                                                         : requestRange(pdu, addressShift),
                             EntryResolver(m_discretes));
    case MODBUS_FC_WRITE_SINGLE_REGISTER:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return collectWrites(pdu[0] == MODBUS_FC_WRITE_SINGLE_REGISTER ? singleAddress(pdu, addressShift)
                                                             : requestRange(pdu, addressShift),
                             EntryResolver(m_holdingRegisters, &m_legacyRegisters));
    default:
        throw ModbusException(ModbusException::g_illegalFunction);
    }
}

int ModbusMap::replyLocked(modbus_t* ctx, uint8_t* query, unsigned length, bool addressShift,
                           const EntrySet& touched)
{
    // Always in ascending address order, so that two requests touching
    // overlapping entries cannot deadlock.
    std::vector<std::unique_lock<ModbusMapEntry>> locks;
    locks.reserve(touched.size());
    for (const auto& [key, entry] : touched) {
        locks.emplace_back(*entry);
    }
    modbus_mapping_t tables = tablesFor(addressShift);
    const int sent = modbus_reply(ctx, query, static_cast<int>(length), &tables);
    for (auto& lock : locks) {
        lock.unlock();
    }
    return sent;
}

} // namespace orv::modbus
