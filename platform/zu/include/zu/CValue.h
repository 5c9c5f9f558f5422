#pragma once
// zu::CValue: the data store's value variant. It holds a bool, a signed or
// unsigned 32-bit integer, a float, a string, or nothing.
//
// Conversions never throw. Choices this stand-in makes where the platform
// leaves them open:
// - numbers convert to numbers by value; a value outside the target integer
//   range saturates to the nearest end of it (Int32 -1 gives Uint32 0, a
//   float 1e30 gives INT32_MAX), a float is truncated toward zero, and NaN
//   gives 0; a value beyond the float range gives +/-infinity, as the
//   hardware conversion would;
// - as_bool is "not zero", as a C++ cast to bool is (NaN gives true);
// - numbers convert to their shortest round-trip decimal text (1.5f gives
//   "1.5", 1e10f gives "1e+10", NaN "nan"), booleans to "true" or "false";
// - text converts to a number when, after surrounding blanks (space, tab,
//   CR, LF) are dropped, all of it is one decimal number with an optional
//   sign ("42", "-3", "+2.5", "1e3"), "inf" or "nan" (so that the text of a
//   float reads back as that float); "true" and "false" read as 1 and 0;
//   any other text, the empty text and a number beyond the range of a
//   double give 0 (false);
// - an empty value gives false, 0, 0.0f or the empty text;
// - operator== compares the kind and then the value: Int32 1 is not Uint32
//   1, and a NaN float equals nothing, itself included.

#include <cstdint>
#include <string>
#include <variant>

namespace zu {

class CValue {
public:
    enum class Type : std::uint8_t { Invalid, Bool, Int32, Uint32, Float, String };

    CValue() = default;
    explicit CValue(bool value) : m_value(value) {}
    explicit CValue(std::int32_t value) : m_value(value) {}
    explicit CValue(std::uint32_t value) : m_value(value) {}
    explicit CValue(float value) : m_value(value) {}
    explicit CValue(std::string value) : m_value(std::move(value)) {}
    explicit CValue(const char* value) : m_value(std::string(value ? value : "")) {}

    bool is_valid() const { return !std::holds_alternative<std::monostate>(m_value); }
    Type type() const { return static_cast<Type>(m_value.index()); }

    bool as_bool() const;
    std::int32_t as_int32() const;
    std::uint32_t as_uint32() const;
    float as_float() const;
    std::string as_string() const;

    friend bool operator==(const CValue& lhs, const CValue& rhs) = default;

private:
    std::variant<std::monostate, bool, std::int32_t, std::uint32_t, float, std::string> m_value;
};

} // namespace zu
