#pragma once

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

} // namespace orv::modbus
