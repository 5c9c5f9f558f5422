#include "DaemonLogger.h"

#include <orv/logging/Logger.h>

namespace orv::modbusd {

std::shared_ptr<spdlog::logger> daemonLogger()
{
    return logging::getLogger("orv-gw-modbusd");
}

} // namespace orv::modbusd
