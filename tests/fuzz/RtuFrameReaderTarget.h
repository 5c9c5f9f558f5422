#pragma once
// Fuzz target of RtuFrameReader: the input is cut into chunks (a length byte,
// 255 standing for an overlong chunk of 300 bytes, then the chunk's bytes),
// and each chunk arrives on a pipe at once, as a master's frame arrives on
// the line, before the reader reads one frame. Every chunk must come out
// whole as one frame: with its bytes unchanged, a frame exactly when its CRC
// is right, a bad-CRC frame otherwise, and too long when it is longer than
// any RTU frame; nothing may be left on the line nor carried into the next
// frame.

#include "FuzzFailure.h"

#include "RtuFrameReader.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace orv::modbus::fuzz {

class RtuFrameReaderTarget {
public:
    enum class Outcome { Frame, BadCrc, TooLong };

    static std::vector<Outcome> run(const uint8_t* data, std::size_t size)
    {
        Line line;
        RtuFrameReader reader(115200, 8, 'E', 1);
        std::vector<Outcome> outcomes;
        std::size_t at = 0;
        while (at < size) {
            const std::size_t declared = data[at] == g_overlongMark ? g_overlongLength : data[at];
            ++at;
            std::vector<uint8_t> chunk(data + at, data + at + std::min(declared, size - at));
            at += chunk.size();
            if (chunk.empty()) {
                continue;
            }
            line.send(chunk);
            outcomes.push_back(readChunk(reader, line, chunk));
        }
        return outcomes;
    }

private:
    static constexpr uint8_t g_overlongMark = 255;
    static constexpr std::size_t g_overlongLength = 300;

    // The two ends of a pipe; the reader's end does not block.
    struct Line {
        Line()
        {
            require(::pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0, "no pipe for the line");
        }
        ~Line()
        {
            ::close(fds[0]);
            ::close(fds[1]);
        }
        Line(const Line&) = delete;
        Line& operator=(const Line&) = delete;

        void send(const std::vector<uint8_t>& bytes) const
        {
            require(::write(fds[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
                    "the line took only part of a chunk");
        }

        int pending() const
        {
            int count = 0;
            ::ioctl(fds[0], FIONREAD, &count);
            return count;
        }

        int fds[2]{-1, -1};
    };

    static Outcome readChunk(RtuFrameReader& reader, const Line& line, const std::vector<uint8_t>& chunk)
    {
        const auto outcome = reader.read(line.fds[0], std::chrono::milliseconds(0));
        require(line.pending() == 0, "bytes of a chunk were left on the line");
        const std::size_t size = chunk.size();
        if (size > MODBUS_RTU_MAX_ADU_LENGTH) {
            require(outcome == RtuFrameReader::Outcome::TooLong,
                    "a chunk of " + std::to_string(size) + " bytes was not too long");
            return Outcome::TooLong;
        }
        require(reader.length() == size && std::equal(chunk.begin(), chunk.end(), reader.frame()),
                "a frame of " + std::to_string(reader.length()) + " bytes came out of a chunk of "
                    + std::to_string(size));
        const bool valid = RtuFrameReader::hasValidCrc(chunk.data(), size);
        if (outcome == RtuFrameReader::Outcome::Frame) {
            require(valid, "a frame with a wrong CRC was taken");
            return Outcome::Frame;
        }
        require(outcome == RtuFrameReader::Outcome::BadCrc && !valid,
                "a chunk with a right CRC was not taken as a frame");
        return Outcome::BadCrc;
    }
};

} // namespace orv::modbus::fuzz
