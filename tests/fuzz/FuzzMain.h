#pragma once
// The libFuzzer entry shared by the fuzz programs: runs one input through a
// target and turns a broken invariant into an abort, so that libFuzzer keeps
// the input as a crash and prints the stack.

#include "FuzzFailure.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace orv::modbus::fuzz {

template <class Target>
int runFuzzInput(const uint8_t* data, std::size_t size)
{
    try {
        (void)Target::run(data, size);
    } catch (const FuzzFailure& failure) {
        std::fprintf(stderr, "broken invariant: %s\n", failure.what());
        std::abort();
    }
    return 0;
}

} // namespace orv::modbus::fuzz
