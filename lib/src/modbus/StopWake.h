#pragma once

#include <functional>
#include <optional>
#include <stop_token>

namespace orv::modbus {

// A descriptor that becomes readable when a stop is requested, so that a
// thread waiting in poll() on its line sees the stop at once instead of at
// the end of its poll interval. Without a descriptor (the process has none
// left) the thread still sees the stop when its poll times out.
class StopWake {
public:
    explicit StopWake(const std::stop_token& stopToken);
    ~StopWake();

    StopWake(const StopWake&) = delete;
    StopWake& operator=(const StopWake&) = delete;

    // -1 when none could be made; poll() ignores a negative descriptor.
    int fd() const;

private:
    void signal() const;

    int m_fd;
    // Made after m_fd, destroyed before it: the callback never writes to a
    // closed descriptor.
    std::optional<std::stop_callback<std::function<void()>>> m_callback;
};

} // namespace orv::modbus
