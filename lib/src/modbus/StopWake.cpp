#include "StopWake.h"

#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace orv::modbus {

StopWake::StopWake(const std::stop_token& stopToken)
    : m_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    m_callback.emplace(stopToken, [this] { signal(); });
}

StopWake::~StopWake()
{
    m_callback.reset();
    if (m_fd != -1) {
        ::close(m_fd);
    }
}

int StopWake::fd() const
{
    return m_fd;
}

void StopWake::signal() const
{
    if (m_fd != -1) {
        const std::uint64_t one = 1;
        // Nothing to do when it fails: the waiting thread's poll times out.
        [[maybe_unused]] const auto written = ::write(m_fd, &one, sizeof one);
    }
}

} // namespace orv::modbus
