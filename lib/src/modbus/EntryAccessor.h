#pragma once

#include "CaughtFailures.h"

#include <cstdint>
#include <stdexcept>

namespace orv::modbus {

// Construction helpers shared by the entry kinds.

// The size an entry takes from its accessor; 0 (rejected by the entry's
// size check) for a missing accessor.
template <class Accessor>
uint16_t accessorSize(const Accessor* accessor)
{
    return accessor == nullptr ? 0 : accessor->getSize();
}

// A second guard after the size check, for entries built without one.
inline void requireAccessor(const void* accessor)
{
    if (accessor == nullptr) {
        throw std::invalid_argument("Data accessor cannot be nullptr");
    }
}

// First thing in an entry's destructor: the accessor's callback into the
// entry becomes one that does nothing. A conversion accessor swaps it under
// the lock its notifications hold while they call the entry, so once this
// returns no call into the entry runs on another thread, and none starts.
// (On the notification thread itself, a callback that destroys the entry is
// the only call running into it, and that call is the caller's business.)
template <class Accessor>
void cutAccessorCallback(Accessor& accessor) noexcept
{
    try {
        accessor.setCallback([](const auto& /*words*/) {});
    } catch (...) {
        CaughtFailures::log("Cutting the accessor's callback", ORV_SOURCE_HERE);
    }
}

} // namespace orv::modbus
