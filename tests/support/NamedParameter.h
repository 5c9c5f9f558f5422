#pragma once
// For parameterised tests whose parameter has a `name`: g_byName names each
// instance after it, and PrintTo makes GoogleTest print that name (in its
// test list and failure messages) instead of a byte dump of the parameter.
// PrintTo is found by argument-dependent lookup, so a test file brings it
// into the namespace of its parameter types with `using orv::test::PrintTo;`.

#include <ostream>
#include <string>

namespace orv::test {

inline constexpr auto g_byName = [](const auto& info) { return std::string(info.param.name); };

template <class Parameter>
    requires requires(const Parameter& parameter) { parameter.name; }
void PrintTo(const Parameter& parameter, std::ostream* stream)
{
    *stream << parameter.name;
}

} // namespace orv::test
