#pragma once

namespace orv::modbus {

// One descriptor (on /dev/null) held in reserve. A process that has run out
// of descriptors cannot accept a pending connection, not even to close it,
// and the connection keeps the listening socket readable: releasing the
// spare makes room for exactly that one accept.
class SpareDescriptor {
public:
    // Reserves one when the process still can.
    SpareDescriptor();
    ~SpareDescriptor();

    SpareDescriptor(const SpareDescriptor&) = delete;
    SpareDescriptor& operator=(const SpareDescriptor&) = delete;

    // Reserves one unless one is held; false when none is held afterwards.
    bool reserve();
    // Gives the reserved descriptor back to the process; false when none
    // was held.
    bool release();

private:
    int m_fd = -1;
};

} // namespace orv::modbus
