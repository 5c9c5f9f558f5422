#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <modbus/modbus-rtu.h>

namespace orv::modbus {

// Cuts the bytes of a serial line into Modbus RTU frames. A frame ends with
// a silent interval of 3.5 character times (1.75 ms above 19200 bit/s), or
// as soon as its bytes make a request whose length its function code fixes
// and whose CRC is right: a master waits for the answer to that, and
// waiting out the silence would only delay it. Frames for every unit id
// come out; libmodbus's own receive drops those for other unit ids than
// its context's.
class RtuFrameReader {
public:
    enum class Outcome {
        // A frame with a correct CRC is in frame().
        Frame,
        // A frame whose CRC is wrong, or too short to carry one.
        BadCrc,
        // More bytes than the largest frame before a silent interval.
        TooLong,
        // Nothing arrived in the time given.
        Quiet,
        // The device is gone: unplugged, hung up or closed.
        Gone,
    };

    RtuFrameReader(int baud, int dataBits, char parity, int stopBits);

    // Waits at most `wait` for the first byte of a frame on `fd`, then reads
    // the frame. A readable `wakeFd` ends the wait early, as Quiet.
    Outcome read(int fd, std::chrono::milliseconds wait, int wakeFd = -1);

    // The last frame read; its length counts the CRC.
    std::uint8_t* frame();
    std::size_t length() const;

    std::chrono::microseconds silentInterval() const;

    // Whether the frame's last two bytes are the CRC of the bytes before.
    static bool hasValidCrc(const std::uint8_t* frame, std::size_t length);

private:
    // Appends what `fd` holds; false when the device is gone.
    bool drain(int fd);
    // Whether the bytes so far are a whole request by their function code.
    bool isWholeRequest() const;
    Outcome finish() const;

    std::chrono::microseconds m_silentInterval;
    std::array<std::uint8_t, MODBUS_RTU_MAX_ADU_LENGTH> m_frame{};
    std::size_t m_length = 0;
    bool m_overflow = false;
};

} // namespace orv::modbus
