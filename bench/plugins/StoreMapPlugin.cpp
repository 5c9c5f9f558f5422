// The 10,000-entry store-backed map of the end-to-end benchmark as a real
// plug-in, so that its build is timed from dlopen on. The channels come from
// the device the benchmark seeds before loading it.

#include "../StoreBackedMap.h"

extern "C" orv::modbus::ModbusMap* createMap()
{
    return orv::modbus::bench::makeStoreBackedMap("bench-large", ORV_BENCH_LARGE_DEVICE, ORV_BENCH_LARGE_ENTRIES);
}
