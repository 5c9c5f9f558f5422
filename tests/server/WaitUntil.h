#pragma once

#include <chrono>
#include <thread>

namespace orv::modbus::test {

// Polls `predicate` until it holds or `timeout` has passed; returns its last
// answer. The poll interval is short against every timeout used here.
template <class Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace orv::modbus::test
