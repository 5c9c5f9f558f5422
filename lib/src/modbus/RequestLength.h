#pragma once

#include <cstddef>
#include <cstdint>

namespace orv::modbus {

// What the bytes of a Modbus request announce about its own length, by
// function code (MODBUS_FC_* of libmodbus). `pdu` points at the function
// code; nothing here reads beyond the `available` bytes it is told of.

// How many PDU bytes libmodbus reads for the request whose first
// `available` bytes are at `pdu`: the function code, its fixed fields
// (address and count or value, and the byte count of a write of many
// values), then the data that byte count announces. Codes libmodbus does
// not know have no fields. A result above `available` means the request has
// not fully arrived; more may be needed than the result says, once the
// missing bytes tell.
std::size_t pduLength(const std::uint8_t* pdu, std::size_t available);

// The same for a whole Modbus TCP request, MBAP header included. libmodbus
// ignores the length field of the header. A request that would not fit the
// largest frame ends after its fields: libmodbus refuses it there.
std::size_t tcpRequestLength(const std::uint8_t* bytes, std::size_t available);

// The serial handler's own length check is ModbusRtuRequestHandler.

// The starting address and the quantity fields of a read or a write of
// many values, and the address (and value) of a single write.
std::uint16_t requestAddress(const std::uint8_t* pdu);
std::uint16_t requestQuantity(const std::uint8_t* pdu);

} // namespace orv::modbus
