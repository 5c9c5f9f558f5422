#pragma once

#include <string>

namespace orv::modbus {

// Whether a whole map can be served now (for example because the service it
// depends on is running), and what to tell a user while it cannot.
class MapAvailableAccessor {
public:
    virtual ~MapAvailableAccessor() = default;

    // Not const: implementations may refresh a cached state while answering.
    virtual bool isAvailable() = 0;

    virtual std::string notAvailableMessage() const = 0;
};

} // namespace orv::modbus
