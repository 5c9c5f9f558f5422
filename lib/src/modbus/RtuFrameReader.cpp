#include "RtuFrameReader.h"

#include "RequestLength.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <boost/crc.hpp>
#include <poll.h>
#include <unistd.h>

namespace orv::modbus {
namespace {

// The Modbus CRC: CRC-16 with polynomial 0x8005, reflected, initial value
// 0xFFFF; sent low byte first.
using ModbusCrc = boost::crc_optimal<16, 0x8005, 0xFFFF, 0, true, true>;

constexpr std::size_t g_crcLength = 2;
// Above this speed the silent interval is fixed rather than 3.5 characters.
constexpr int g_fixedIntervalAbove = 19200;
constexpr std::chrono::microseconds g_fixedSilentInterval{1750};

std::chrono::microseconds silentIntervalFor(int baud, int dataBits, char parity, int stopBits)
{
    if (baud > g_fixedIntervalAbove) {
        return g_fixedSilentInterval;
    }
    // Start bit, data bits, parity bit, stop bits; 3.5 characters of them.
    const int bitsPerCharacter = 1 + dataBits + (parity == 'N' ? 0 : 1) + stopBits;
    return std::chrono::microseconds(3'500'000LL * bitsPerCharacter / std::max(baud, 1) + 1);
}

timespec toTimespec(std::chrono::microseconds wait)
{
    return {static_cast<time_t>(wait.count() / 1'000'000), static_cast<long>(wait.count() % 1'000'000 * 1000)};
}

enum class Readiness { Readable, Quiet, Gone };

// A readable `wakeFd` (a stop request) ends the wait as a quiet line would;
// a negative one is not watched.
Readiness waitReadable(int fd, std::chrono::microseconds wait, int wakeFd = -1)
{
    std::array<pollfd, 2> watched{{{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}}};
    const timespec timeout = toTimespec(wait);
    const int ready = ppoll(watched.data(), watched.size(), &timeout, nullptr);
    if (ready == -1) {
        return errno == EINTR ? Readiness::Quiet : Readiness::Gone;
    }
    if (watched[0].revents == 0) {
        return Readiness::Quiet;
    }
    return (watched[0].revents & POLLIN) != 0 ? Readiness::Readable : Readiness::Gone;
}

} // namespace

RtuFrameReader::RtuFrameReader(int baud, int dataBits, char parity, int stopBits)
    : m_silentInterval(silentIntervalFor(baud, dataBits, parity, stopBits))
{
}

RtuFrameReader::Outcome RtuFrameReader::read(int fd, std::chrono::milliseconds wait, int wakeFd)
{
    m_frame.fill(0);
    m_length = 0;
    m_overflow = false;
    const Readiness first = waitReadable(fd, wait, wakeFd);
    if (first != Readiness::Readable) {
        return first == Readiness::Quiet ? Outcome::Quiet : Outcome::Gone;
    }
    for (;;) {
        if (!drain(fd)) {
            return Outcome::Gone;
        }
        if (isWholeRequest()) {
            return Outcome::Frame;
        }
        const Readiness next = waitReadable(fd, m_silentInterval);
        if (next == Readiness::Quiet) {
            return finish();
        }
        if (next == Readiness::Gone) {
            return Outcome::Gone;
        }
    }
}

bool RtuFrameReader::drain(int fd)
{
    std::array<std::uint8_t, MODBUS_RTU_MAX_ADU_LENGTH> chunk;
    const ssize_t got = ::read(fd, chunk.data(), chunk.size());
    if (got == -1) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (got == 0) {
        // A terminal whose other side hung up reads as end of file.
        return false;
    }
    const auto count = static_cast<std::size_t>(got);
    const std::size_t room = m_frame.size() - m_length;
    std::copy_n(chunk.begin(), std::min(count, room), m_frame.begin() + static_cast<std::ptrdiff_t>(m_length));
    m_overflow = m_overflow || count > room;
    m_length += std::min(count, room);
    return true;
}

bool RtuFrameReader::isWholeRequest() const
{
    if (m_overflow || m_length < 1 + 1 + g_crcLength) {
        return false;
    }
    const std::size_t pdu = pduLength(m_frame.data() + 1, m_length - 1 - g_crcLength);
    // Only codes with fields have a length known before the silence.
    return pdu > 1 && 1 + pdu + g_crcLength == m_length && hasValidCrc(m_frame.data(), m_length);
}

RtuFrameReader::Outcome RtuFrameReader::finish() const
{
    if (m_overflow) {
        return Outcome::TooLong;
    }
    return hasValidCrc(m_frame.data(), m_length) ? Outcome::Frame : Outcome::BadCrc;
}

bool RtuFrameReader::hasValidCrc(const std::uint8_t* frame, std::size_t length)
{
    if (length < 1 + g_crcLength) {
        return false;
    }
    ModbusCrc crc;
    crc.process_bytes(frame, length - g_crcLength);
    const unsigned sent = frame[length - 2] | frame[length - 1] << 8;
    return crc.checksum() == sent;
}

std::uint8_t* RtuFrameReader::frame()
{
    return m_frame.data();
}

std::size_t RtuFrameReader::length() const
{
    return m_length;
}

std::chrono::microseconds RtuFrameReader::silentInterval() const
{
    return m_silentInterval;
}

} // namespace orv::modbus
