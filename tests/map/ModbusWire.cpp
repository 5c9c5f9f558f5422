#include "ModbusWire.h"

#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>

namespace orv::modbus::test {

namespace {

constexpr std::size_t g_mbapLength = 7;
constexpr uint8_t g_unitId = 17;

void appendWord(std::vector<uint8_t>& bytes, uint16_t word)
{
    bytes.push_back(static_cast<uint8_t>(word >> 8));
    bytes.push_back(static_cast<uint8_t>(word & 0xff));
}

uint16_t wordAt(const std::vector<uint8_t>& bytes, std::size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

// Reads exactly `count` bytes unless the deadline passes first.
bool readExactly(int socket, std::vector<uint8_t>& into, std::size_t count,
                 std::chrono::steady_clock::time_point deadline)
{
    while (into.size() < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd descriptor{socket, POLLIN, 0};
        if (left.count() <= 0 || poll(&descriptor, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        uint8_t buffer[512];
        const ssize_t received = recv(socket, buffer, count - into.size(), 0);
        if (received <= 0) {
            return false;
        }
        into.insert(into.end(), buffer, buffer + received);
    }
    return true;
}

} // namespace

ModbusWire::ModbusWire()
{
    // libmodbus waits this long before some exception replies (to flush
    // the rest of a bad request); keep it short for tests.
    modbus_set_response_timeout(m_sockets.server(), 0, 50000);
}

std::vector<uint8_t> ModbusWire::exchange(ModbusMap& map, const std::vector<uint8_t>& pdu, RequestFlags flags,
                                          bool* processed)
{
    const uint16_t transactionId = ++m_transactionId;
    const std::vector<uint8_t> frame = orv::test::ModbusSocketPair::tcpFrame(transactionId, g_unitId, pdu);
    if (send(m_sockets.clientSocket(), frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size())) {
        throw std::runtime_error("sending the request failed");
    }
    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    const int length = modbus_receive(m_sockets.server(), query);
    if (length <= 0) {
        throw std::runtime_error("modbus_receive failed");
    }
    const bool result = map.processRequest(m_sockets.server(), query, static_cast<unsigned>(length),
                                           flags.skipReadChecks, flags.readOnly, flags.addressShift);
    if (processed != nullptr) {
        *processed = result;
    }
    // A missing reply is only noticed by waiting for it a little.
    return readReply(transactionId, std::chrono::milliseconds(result ? 2000 : 100));
}

bool ModbusWire::replyPending() const
{
    pollfd descriptor{m_sockets.clientSocket(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 1;
}

std::vector<uint8_t> ModbusWire::readReply(uint16_t transactionId, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::vector<uint8_t> reply;
    if (!readExactly(m_sockets.clientSocket(), reply, g_mbapLength, deadline)) {
        if (!reply.empty()) {
            throw std::runtime_error("truncated MBAP header");
        }
        return {};
    }
    if (wordAt(reply, 0) != transactionId || wordAt(reply, 2) != 0 || reply[6] != g_unitId) {
        throw std::runtime_error("reply header does not echo the request");
    }
    const std::size_t total = g_mbapLength - 1 + wordAt(reply, 4);
    if (!readExactly(m_sockets.clientSocket(), reply, total, deadline)) {
        throw std::runtime_error("reply shorter than its MBAP length");
    }
    return {reply.begin() + g_mbapLength, reply.end()};
}

std::vector<uint8_t> readPdu(uint8_t functionCode, uint16_t address, uint16_t count)
{
    std::vector<uint8_t> pdu{functionCode};
    appendWord(pdu, address);
    appendWord(pdu, count);
    return pdu;
}

std::vector<uint8_t> writeSinglePdu(uint8_t functionCode, uint16_t address, uint16_t value)
{
    return readPdu(functionCode, address, value);
}

std::vector<uint8_t> writeRegistersPdu(uint16_t address, const std::vector<uint16_t>& values)
{
    std::vector<uint8_t> pdu = readPdu(MODBUS_FC_WRITE_MULTIPLE_REGISTERS, address,
                                       static_cast<uint16_t>(values.size()));
    pdu.push_back(static_cast<uint8_t>(values.size() * 2));
    for (uint16_t value : values) {
        appendWord(pdu, value);
    }
    return pdu;
}

std::vector<uint8_t> writeCoilsPdu(uint16_t address, const std::vector<bool>& bits)
{
    std::vector<uint8_t> pdu = readPdu(MODBUS_FC_WRITE_MULTIPLE_COILS, address, static_cast<uint16_t>(bits.size()));
    std::vector<uint8_t> packed((bits.size() + 7) / 8, 0);
    for (std::size_t i = 0; i < bits.size(); ++i) {
        packed[i / 8] |= static_cast<uint8_t>(bits[i] ? 1 << (i % 8) : 0);
    }
    pdu.push_back(static_cast<uint8_t>(packed.size()));
    pdu.insert(pdu.end(), packed.begin(), packed.end());
    return pdu;
}

std::vector<uint8_t> exceptionPdu(uint8_t functionCode, uint8_t code)
{
    return {static_cast<uint8_t>(functionCode | 0x80), code};
}

std::vector<uint8_t> registersReplyPdu(uint8_t functionCode, const std::vector<uint16_t>& values)
{
    std::vector<uint8_t> pdu{functionCode, static_cast<uint8_t>(values.size() * 2)};
    for (uint16_t value : values) {
        appendWord(pdu, value);
    }
    return pdu;
}

} // namespace orv::modbus::test
