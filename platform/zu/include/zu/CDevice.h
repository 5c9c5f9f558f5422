#pragma once
// zu::CDevice: what the data store says about a device: its id, canonical
// name and parent (0 for a device at the top of the tree).

#include <cstdint>
#include <string>

namespace zu {

struct CDevice {
    std::uint64_t id = 0;
    std::string canonicalName;
    std::uint64_t parentId = 0;

    friend bool operator==(const CDevice&, const CDevice&) = default;
};

} // namespace zu
