#include <orv/modbus/cds/PowerDistributionAvailableAccessor.h>

namespace orv::modbus::cds {

PowerDistributionAvailableAccessor::PowerDistributionAvailableAccessor(const std::string& configPath)
    : m_client("orv-gw-modbusd", true)
    , m_synchronizer(m_client, configPath)
{
}

bool PowerDistributionAvailableAccessor::isAvailable()
{
    if (m_available) {
        return true;
    }
    const std::lock_guard lock(m_synchronizerMutex);
    if (m_synchronizer.waitInService(common::time::SecondsDuration{0})) {
        m_available = true;
    }
    return m_available;
}

std::string PowerDistributionAvailableAccessor::notAvailableMessage() const
{
    return "UPS map is not yet available on your system!\n"
           "Please make sure that the card is connected to a supported UPS and/or try later.";
}

} // namespace orv::modbus::cds
