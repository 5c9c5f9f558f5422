#pragma once
// zu::CValue: the data store's value variant. It holds a bool, a signed or
// unsigned 32-bit integer, a float, a string, or nothing.
//
// Conversions never throw. Choices this stand-in makes where the platform
// leaves them open:
// - numbers convert to numbers by value; a value outside the target range
//   saturates to the nearest end of it, a float is truncated toward zero,
//   and NaN gives 0;
// - numbers convert to their shortest decimal text (1.5f gives "1.5"),
//   booleans to "true" or "false";
// - text converts to a number when, after surrounding blanks are dropped,
//   all of it is a decimal number ("42", "-3", "2.5", "1e3"); "true" and
//   "false" read as 1 and 0; any other text gives 0 (false);
// - an empty value gives false, 0, 0.0f or the empty text.

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
