#include <zu/CValue.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

namespace zu {
namespace {

template <typename Int>
Int saturate(double value)
{
    if (std::isnan(value)) {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<Int>::min())) {
        return std::numeric_limits<Int>::min();
    }
    if (value >= static_cast<double>(std::numeric_limits<Int>::max())) {
        return std::numeric_limits<Int>::max();
    }
    return static_cast<Int>(value);
}

std::string_view trim(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

// The number a text stands for, or nothing when it is not a number.
std::optional<double> parseNumber(const std::string& text)
{
    const std::string_view trimmed = trim(text);
    if (trimmed == "true") {
        return 1.0;
    }
    if (trimmed == "false") {
        return 0.0;
    }
    std::string_view digits = trimmed;
    // from_chars takes a minus sign but no plus sign; "+-1" is no number.
    if (digits.starts_with('+')) {
        digits.remove_prefix(1);
        if (digits.starts_with('-')) {
            return std::nullopt;
        }
    }
    double value = 0.0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return value;
}

// Every kind as a double; exact for all 32-bit integers and floats.
double toDouble(const std::variant<std::monostate, bool, std::int32_t, std::uint32_t, float, std::string>& value)
{
    return std::visit(
        [](const auto& v) -> double {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                return 0.0;
            } else if constexpr (std::is_same_v<T, std::string>) {
                return parseNumber(v).value_or(0.0);
            } else {
                return static_cast<double>(v);
            }
        },
        value);
}

// Beyond the float range a static_cast is undefined; give what the hardware
// conversion gives instead. Rounding to nearest reaches infinity only from
// half a step above the largest float, 2^128 - 2^103.
float toFloat(double value)
{
    constexpr double overflow = 0x1.ffffffp+127;
    if (value >= overflow) {
        return std::numeric_limits<float>::infinity();
    }
    if (value <= -overflow) {
        return -std::numeric_limits<float>::infinity();
    }
    return static_cast<float>(value);
}

template <typename Number>
std::string toText(Number value)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

} // namespace

bool CValue::as_bool() const
{
    return toDouble(m_value) != 0.0;
}

std::int32_t CValue::as_int32() const
{
    return saturate<std::int32_t>(toDouble(m_value));
}

std::uint32_t CValue::as_uint32() const
{
    return saturate<std::uint32_t>(toDouble(m_value));
}

float CValue::as_float() const
{
    if (const auto* f = std::get_if<float>(&m_value)) {
        return *f;
    }
    return toFloat(toDouble(m_value));
}

std::string CValue::as_string() const
{
    return std::visit(
        [](const auto& v) -> std::string {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                return {};
            } else if constexpr (std::is_same_v<T, std::string>) {
                return v;
            } else if constexpr (std::is_same_v<T, bool>) {
                return v ? "true" : "false";
            } else {
                return toText(v);
            }
        },
        m_value);
}

} // namespace zu
