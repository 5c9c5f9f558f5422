#pragma once
// A broken invariant found while a fuzz input runs. The libFuzzer programs
// turn it into an abort, so that the input is kept as a crash; the corpus
// replay test reports it as a test failure naming the input.

#include <stdexcept>
#include <string>

namespace orv::modbus::fuzz {

class FuzzFailure : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// Throws FuzzFailure with `what` unless `condition` holds.
inline void require(bool condition, const std::string& what)
{
    if (!condition) {
        throw FuzzFailure(what);
    }
}

} // namespace orv::modbus::fuzz
