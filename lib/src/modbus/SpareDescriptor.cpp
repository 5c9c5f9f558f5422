#include "SpareDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

namespace orv::modbus {

SpareDescriptor::SpareDescriptor()
{
    reserve();
}

SpareDescriptor::~SpareDescriptor()
{
    release();
}

bool SpareDescriptor::reserve()
{
    if (m_fd == -1) {
        m_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    return m_fd != -1;
}

bool SpareDescriptor::release()
{
    if (m_fd == -1) {
        return false;
    }
    close(m_fd);
    m_fd = -1;
    return true;
}

} // namespace orv::modbus
