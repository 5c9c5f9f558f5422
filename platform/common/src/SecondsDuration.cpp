#include <orv/common/time/SecondsDuration.h>

#include <algorithm>

namespace orv::common::time {

std::chrono::steady_clock::time_point SecondsDuration::toTimepoint() const
{
    using Clock = std::chrono::steady_clock;
    using std::chrono::duration_cast;
    using std::chrono::seconds;

    const auto now = Clock::now();
    // Compare in seconds, where nothing overflows. The duration must fit the
    // clock's own unit, and now plus it must fit a time point; the strict
    // bounds keep one second of margin for the sub-second part of now.
    const auto nowSeconds = duration_cast<seconds>(now.time_since_epoch());
    const auto limit = duration_cast<seconds>(Clock::duration::max());
    const auto headroom = std::min(limit, duration_cast<seconds>(Clock::time_point::max().time_since_epoch()) - nowSeconds);
    const auto legroom = std::max(-limit, duration_cast<seconds>(Clock::time_point::min().time_since_epoch()) - nowSeconds);
    const seconds duration(m_seconds);
    if (duration >= headroom) {
        return Clock::time_point::max();
    }
    if (duration <= legroom) {
        return Clock::time_point::min();
    }
    return now + duration;
}

} // namespace orv::common::time
