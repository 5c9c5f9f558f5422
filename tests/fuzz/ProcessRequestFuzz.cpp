#include "FuzzMain.h"
#include "ProcessRequestTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    return orv::modbus::fuzz::runFuzzInput<orv::modbus::fuzz::ProcessRequestTarget>(data, size);
}
