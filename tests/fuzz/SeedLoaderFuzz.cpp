#include "FuzzMain.h"
#include "SeedLoaderTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    return orv::modbus::fuzz::runFuzzInput<orv::modbus::fuzz::SeedLoaderTarget>(data, size);
}
