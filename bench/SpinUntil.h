#pragma once
// Waiting for a notification inside a timed loop: spins (yielding) rather
// than sleeping, so that the wait adds no sleep granularity to what is
// measured, and gives up after a second.

#include <chrono>
#include <thread>

namespace orv::modbus::bench {

// Spins until `arrived` holds, at most a second; false when it never did.
template <class Predicate>
bool spinUntil(Predicate arrived)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!arrived()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

} // namespace orv::modbus::bench
