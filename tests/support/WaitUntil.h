#pragma once
// Bounded polling: waits until `predicate` holds or `timeout` passes, and
// says which came first. Tests never sleep a fixed time to wait for an event.

#include <chrono>
#include <thread>

namespace orv::test {

template <typename Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds timeout = std::chrono::seconds(5))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace orv::test
