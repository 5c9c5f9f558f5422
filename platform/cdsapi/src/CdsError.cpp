#include <cdsapi/Types.h>

namespace cdsapi {

CdsError::CdsError(const std::string& message)
    : std::runtime_error(message)
{
}

} // namespace cdsapi
