#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace orv::modbus::test {

// A pseudo-terminal pair: the server opens the slave side as its serial
// device, the test holds the master side.
class PseudoTerminal {
public:
    PseudoTerminal()
        : m_master(posix_openpt(O_RDWR | O_NOCTTY))
    {
        if (m_master == -1 || grantpt(m_master) != 0 || unlockpt(m_master) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        m_slavePath = ptsname(m_master);
    }
    ~PseudoTerminal() { close(m_master); }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    const std::string& slavePath() const { return m_slavePath; }

private:
    int m_master;
    std::string m_slavePath;
};

} // namespace orv::modbus::test
