#pragma once
// orv::common::time::SecondsDuration: a length of time in whole seconds, as
// service time-outs are configured. toTimepoint() turns it into a deadline
// on the steady clock: now plus the duration.
//
// Choices of this stand-in:
// - the count is a signed 64-bit number of seconds, built explicitly from an
//   integer (SecondsDuration{5}) so that a plain number never turns into a
//   duration by accident; the default is 0 seconds;
// - a deadline beyond what the steady clock can hold saturates to its
//   largest (or smallest) time point, so that a huge time-out means "wait
//   forever" instead of overflowing; a negative duration gives a deadline in
//   the past.

#include <chrono>
#include <cstdint>

namespace orv::common::time {

class SecondsDuration {
public:
    constexpr SecondsDuration() = default;
    constexpr explicit SecondsDuration(std::int64_t seconds)
        : m_seconds(seconds)
    {
    }

    constexpr std::int64_t count() const { return m_seconds; }

    // The steady clock's now plus this duration.
    std::chrono::steady_clock::time_point toTimepoint() const;

    friend constexpr bool operator==(const SecondsDuration&, const SecondsDuration&) = default;

private:
    std::int64_t m_seconds = 0;
};

} // namespace orv::common::time
