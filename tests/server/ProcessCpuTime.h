#pragma once

#include <chrono>
#include <ctime>

namespace orv::modbus::test {

// CPU time used so far by every thread of this process. Needs no file
// descriptor, so it can be read while the process has none left.
inline std::chrono::milliseconds processCpuTime()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::seconds(used.tv_sec) +
                                                                 std::chrono::nanoseconds(used.tv_nsec));
}

} // namespace orv::modbus::test
