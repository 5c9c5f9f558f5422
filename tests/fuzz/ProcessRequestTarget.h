#pragma once
// Fuzz target of ModbusMap::processRequest: arbitrary bytes arrive on a
// libmodbus server context (TCP, or RTU over the same kind of socket) as a
// client would send them, every frame libmodbus accepts goes through
// processRequest on a FuzzMap, and after each the map's invariants and the
// reply on the wire are checked.
//
// Layout of one input:
//   byte 0, bit 0  skipReadChecks
//           bit 1  readOnly
//           bit 2  addressShift
//           bit 3  RTU instead of TCP
//           bit 4  RTU only: send the bytes as they are instead of appending
//                  the frame's CRC (which almost always makes a bad frame)
//   the rest       TCP: a byte stream, of which up to g_maxFrames frames are
//                  answered; RTU: one frame (unit id, PDU).

#include "FuzzFailure.h"
#include "FuzzMap.h"
#include "ModbusSocketPair.h"

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::fuzz {

class ProcessRequestTarget {
public:
    // What became of one frame.
    enum class Outcome {
        Dropped,  // libmodbus delivered no frame from the bytes left (bad CRC, too short)
        Refused,  // processRequest sent an exception reply
        Answered, // processRequest let libmodbus answer
    };

    static std::vector<Outcome> run(const uint8_t* data, std::size_t size)
    {
        if (size == 0) {
            return {};
        }
        const Flags flags{data[0]};
        ProcessRequestTarget target(flags);
        std::vector<uint8_t> stream(data + 1, data + size);
        if (flags.rtu() && !flags.rawRtu()) {
            appendCrc(stream);
        }
        target.send(stream);
        return target.answerFrames();
    }

private:
    static constexpr int g_maxFrames = 4;
    static constexpr uint8_t g_exceptionOffset = 0x80;

    struct Flags {
        uint8_t bits;
        bool skipReadChecks() const { return bits & 0x01; }
        bool readOnly() const { return bits & 0x02; }
        bool addressShift() const { return bits & 0x04; }
        bool rtu() const { return bits & 0x08; }
        bool rawRtu() const { return bits & 0x10; }
    };

    explicit ProcessRequestTarget(Flags flags)
        : m_flags(flags)
        , m_map(flags.readOnly())
        , m_wire(flags.rtu() ? orv::test::ModbusSocketPair::Framing::Rtu : orv::test::ModbusSocketPair::Framing::Tcp)
    {
        // Every byte is sent before the first receive, so nothing is worth
        // waiting for; libmodbus also sleeps the response timeout before
        // some exception replies.
        modbus_set_indication_timeout(m_wire.server(), 0, 1);
        modbus_set_byte_timeout(m_wire.server(), 0, 1);
        modbus_set_response_timeout(m_wire.server(), 0, 1);
    }

    // The standard Modbus RTU CRC, low byte first on the wire.
    static void appendCrc(std::vector<uint8_t>& frame)
    {
        uint16_t crc = 0xffff;
        for (uint8_t byte : frame) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit) {
                crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xa001) : static_cast<uint16_t>(crc >> 1);
            }
        }
        frame.push_back(static_cast<uint8_t>(crc & 0xff));
        frame.push_back(static_cast<uint8_t>(crc >> 8));
    }

    void send(const std::vector<uint8_t>& stream)
    {
        if (m_flags.rtu() && !stream.empty()) {
            // libmodbus drops RTU frames for other unit ids before checking
            // them; the server itself picks its map by unit id.
            modbus_set_slave(m_wire.server(), stream[0] <= 247 ? stream[0] : 0);
        }
        // What does not fit into the socket's buffer is simply not sent.
        if (!stream.empty()) {
            (void)::send(m_wire.clientSocket(), stream.data(), stream.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        shutdown(m_wire.clientSocket(), SHUT_WR);
    }

    std::vector<Outcome> answerFrames()
    {
        std::vector<Outcome> outcomes;
        for (int frame = 0; frame < (m_flags.rtu() ? 1 : g_maxFrames) && bytesLeft(); ++frame) {
            uint8_t query[MODBUS_MAX_ADU_LENGTH] = {};
            const int length = modbus_receive(m_wire.server(), query);
            if (length <= 0) {
                outcomes.push_back(Outcome::Dropped);
                break;
            }
            const bool answered = m_map.map().processRequest(m_wire.server(), query, static_cast<unsigned>(length),
                                                             m_flags.skipReadChecks(), m_flags.readOnly(),
                                                             m_flags.addressShift());
            outcomes.push_back(answered ? Outcome::Answered : Outcome::Refused);
            m_map.checkInvariants();
            checkReply(query, answered, readReply());
        }
        return outcomes;
    }

    // Whether the stream holds anything the server end has not received.
    bool bytesLeft() const
    {
        uint8_t byte = 0;
        return recv(m_wire.serverSocket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    }

    // Everything the server end sent back so far.
    std::vector<uint8_t> readReply() const
    {
        std::vector<uint8_t> reply;
        uint8_t buffer[512];
        for (int chunk = 0; chunk < 64; ++chunk) {
            const ssize_t received = recv(m_wire.clientSocket(), buffer, sizeof buffer, MSG_DONTWAIT);
            if (received <= 0) {
                break;
            }
            reply.insert(reply.end(), buffer, buffer + received);
        }
        return reply;
    }

    void checkReply(const uint8_t* query, bool answered, const std::vector<uint8_t>& reply) const
    {
        const int header = modbus_get_header_length(m_wire.server());
        const uint8_t function = query[header];
        if (reply.empty()) {
            // Only RTU stays silent, towards the broadcast address.
            require(m_flags.rtu() && query[0] == 0, "no reply to function code " + std::to_string(function));
            return;
        }
        require(reply.size() > static_cast<std::size_t>(header) + 1, "reply shorter than a header and a code");
        // RTU: the unit id; TCP: the transaction id, then the unit id last.
        require(reply[0] == query[0] && reply[static_cast<std::size_t>(header) - 1] == query[header - 1],
                "the reply's header does not echo the request's");
        require(m_flags.rtu() || reply[1] == query[1], "the reply's transaction id differs");
        const uint8_t replied = reply[static_cast<std::size_t>(header)];
        // libmodbus adds 0x80 to the function code of an exception reply, so
        // a request with a code of 0x80 or more gets the sum cut to 8 bits.
        const auto exception = static_cast<uint8_t>(function + g_exceptionOffset);
        if (answered) {
            require(replied == function || replied == exception,
                    "reply to function code " + std::to_string(function) + " has code " + std::to_string(replied));
            return;
        }
        require(replied == exception, "refusal of function code " + std::to_string(function) +
                                                            " is not an exception reply");
        const uint8_t code = reply[static_cast<std::size_t>(header) + 1];
        require(code == MODBUS_EXCEPTION_ILLEGAL_FUNCTION || code == MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS,
                "refusal with exception code " + std::to_string(code));
    }

    Flags m_flags;
    FuzzMap m_map;
    orv::test::ModbusSocketPair m_wire;
};

} // namespace orv::modbus::fuzz
