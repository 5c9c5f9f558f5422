#include "DaemonConfigTarget.h"
#include "FuzzMain.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    return orv::modbus::fuzz::runFuzzInput<orv::modbus::fuzz::DaemonConfigTarget>(data, size);
}
