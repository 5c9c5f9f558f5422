#pragma once

#include <memory>

#include <modbus/modbus.h>

namespace orv::modbus {

// Closes the context's connection (a no-op when it has none) and frees it.
// Without the close, a serial line or socket of a front end destroyed
// without stop() would stay open: modbus_free does not close it.
struct ContextDeleter {
    void operator()(modbus_t* context) const
    {
        modbus_close(context);
        modbus_free(context);
    }
};

using ContextHandle = std::unique_ptr<modbus_t, ContextDeleter>;

} // namespace orv::modbus
