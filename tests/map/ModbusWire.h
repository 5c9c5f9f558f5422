#pragma once
// Both ends of a Modbus TCP conversation over a socket pair: the server end
// is a real libmodbus TCP context that receives each request and hands it to
// ModbusMap::processRequest; the client end writes raw MBAP frames and reads
// the raw reply, so that tests check the bytes on the wire.

#include "ModbusSocketPair.h"

#include <orv/modbus/ModbusMap.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::test {

struct RequestFlags {
    bool skipReadChecks = false;
    bool readOnly = false;
    bool addressShift = false;
};

class ModbusWire {
public:
    ModbusWire();

    ModbusWire(const ModbusWire&) = delete;
    ModbusWire& operator=(const ModbusWire&) = delete;

    // Sends `pdu` as one request, lets `map` answer it and returns the
    // reply's PDU (empty when nothing was sent). The result of
    // processRequest goes to `processed`.
    std::vector<uint8_t> exchange(ModbusMap& map, const std::vector<uint8_t>& pdu, RequestFlags flags = {},
                                  bool* processed = nullptr);

    // Whether a reply is waiting at the client end right now.
    bool replyPending() const;

    int clientSocket() const
    {
        return m_sockets.clientSocket();
    }
    int serverSocket() const
    {
        return m_sockets.serverSocket();
    }

private:
    std::vector<uint8_t> readReply(uint16_t transactionId, std::chrono::milliseconds timeout);

    orv::test::ModbusSocketPair m_sockets;
    uint16_t m_transactionId = 0;
};

// Request PDUs.
std::vector<uint8_t> readPdu(uint8_t functionCode, uint16_t address, uint16_t count);
std::vector<uint8_t> writeSinglePdu(uint8_t functionCode, uint16_t address, uint16_t value);
std::vector<uint8_t> writeRegistersPdu(uint16_t address, const std::vector<uint16_t>& values);
std::vector<uint8_t> writeCoilsPdu(uint16_t address, const std::vector<bool>& bits);

// The exception code of a request outside every entry.
inline constexpr uint8_t g_illegalAddress = MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS;

// The PDU of an exception reply.
std::vector<uint8_t> exceptionPdu(uint8_t functionCode, uint8_t code);
// The PDU of a register read reply.
std::vector<uint8_t> registersReplyPdu(uint8_t functionCode, const std::vector<uint16_t>& values);

} // namespace orv::modbus::test
