#include "ServedMap.h"

namespace orv::test {

ServedMap::ServedMap(modbus::ModbusMap& map)
    : m_map(map)
{
    // Lets the serving loop look at its stop flag several times a second.
    modbus_set_indication_timeout(m_sockets.server(), 0, 50000);
    m_thread = std::thread([this] { serve(); });
}

ServedMap::~ServedMap()
{
    m_stop = true;
    m_thread.join();
}

modbus_t* ServedMap::client() const
{
    return m_sockets.client();
}

std::vector<std::uint16_t> ServedMap::readHolding(std::uint16_t address, int count) const
{
    std::vector<std::uint16_t> words(static_cast<std::size_t>(count));
    if (modbus_read_registers(client(), address, count, words.data()) != count) {
        return {};
    }
    return words;
}

std::vector<std::uint8_t> ServedMap::readCoils(std::uint16_t address, int count) const
{
    return readBits(modbus_read_bits, address, count);
}

std::vector<std::uint8_t> ServedMap::readDiscreteInputs(std::uint16_t address, int count) const
{
    return readBits(modbus_read_input_bits, address, count);
}

std::vector<std::uint8_t> ServedMap::readBits(int (*read)(modbus_t*, int, int, std::uint8_t*),
                                              std::uint16_t address, int count) const
{
    std::vector<std::uint8_t> bits(static_cast<std::size_t>(count));
    if (read(client(), address, count, bits.data()) != count) {
        return {};
    }
    return bits;
}

void ServedMap::serve()
{
    std::uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    while (!m_stop) {
        const int length = modbus_receive(m_sockets.server(), query);
        if (length > 0) {
            m_map.processRequest(m_sockets.server(), query, static_cast<unsigned>(length), false, false, false);
        }
    }
}

} // namespace orv::test
