#include <orv/common/lwjson/Node.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

namespace orv::common::lwjson {
namespace {

std::string quoted(const std::string& key)
{
    return "lwjson::deserializer \"" + key + "\"";
}

[[noreturn]] void throwInvalidNumber(const std::string& key, const std::string& text)
{
    throw std::invalid_argument(quoted(key) + "=" + text + " invalid number format");
}

[[noreturn]] void throwOutOfRange(const std::string& key, const std::string& text)
{
    throw std::out_of_range(quoted(key) + "=" + text + " value out of range");
}

std::string scalarTextOf(const nlohmann::json& value)
{
    if (value.is_string()) {
        return value.get_ref<const std::string&>();
    }
    if (value.is_boolean() || value.is_number()) {
        return value.dump();
    }
    throw std::invalid_argument("Cannot get value from a non-scalar or null");
}

// An optional minus sign, then one or more decimal digits.
bool isIntegerText(std::string_view text)
{
    if (text.starts_with('-')) {
        text.remove_prefix(1);
    }
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Reads valid integer text through the widest type of its sign, so that a
// negative text for an unsigned target and a too long text both come out as
// out of range rather than as a format error.
template <typename Int, typename Wide>
Int narrowFromText(const std::string& key, const std::string& text)
{
    Wide wide{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), wide);
    if (error != std::errc() || end != text.data() + text.size() || !std::in_range<Int>(wide)) {
        throwOutOfRange(key, text);
    }
    return static_cast<Int>(wide);
}

template <typename Int>
Int integerFromText(const std::string& key, const std::string& text)
{
    if (!isIntegerText(text)) {
        throwInvalidNumber(key, text);
    }
    if (text.starts_with('-')) {
        return narrowFromText<Int, std::int64_t>(key, text);
    }
    return narrowFromText<Int, std::uint64_t>(key, text);
}

template <typename Int>
Int integerFromDouble(const std::string& key, const std::string& text, double value)
{
    if (!std::isfinite(value) || std::trunc(value) != value) {
        throwInvalidNumber(key, text);
    }
    // max + 1 is a power of two, exact as a double even where max is not.
    const double upperBound = static_cast<double>(std::numeric_limits<Int>::max()) + 1.0;
    if (value < static_cast<double>(std::numeric_limits<Int>::min()) || value >= upperBound) {
        throwOutOfRange(key, text);
    }
    return static_cast<Int>(value);
}

template <typename Int>
Int toInteger(const nlohmann::json& value, const std::string& key)
{
    const std::string text = scalarTextOf(value);
    if (value.is_number_float()) {
        return integerFromDouble<Int>(key, text, value.get<double>());
    }
    return integerFromText<Int>(key, text);
}

double doubleFromText(const std::string& key, const std::string& text)
{
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range && end == text.data() + text.size()) {
        throwOutOfRange(key, text);
    }
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        throwInvalidNumber(key, text);
    }
    return value;
}

} // namespace

Node::Node(std::shared_ptr<const nlohmann::json> document)
    : m_pDocument(std::move(document))
    , m_pValue(m_pDocument.get())
{
}

Node::Node(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* value, std::string key)
    : m_pDocument(std::move(document))
    , m_pValue(value)
    , m_key(std::move(key))
{
}

Node Node::getMember(std::string_view key) const
{
    if (!m_pValue->is_object()) {
        throw std::invalid_argument(quoted(m_key) + " is not an object");
    }
    const auto member = m_pValue->find(key);
    if (member == m_pValue->end()) {
        throw std::out_of_range(quoted(std::string(key)) + " member not found");
    }
    return Node(m_pDocument, &*member, std::string(key));
}

bool Node::hasMember(std::string_view key) const
{
    return m_pValue->is_object() && m_pValue->contains(key);
}

const nlohmann::json& Node::array() const
{
    if (!m_pValue->is_array()) {
        throw std::invalid_argument(quoted(m_key) + " is not an array");
    }
    return *m_pValue;
}

Node::Iterator Node::begin() const
{
    array();
    return Iterator(*this, 0);
}

Node::Iterator Node::end() const
{
    return Iterator(*this, array().size());
}

std::size_t Node::size() const
{
    return array().size();
}

bool Node::empty() const
{
    return array().empty();
}

std::string Node::scalarText() const
{
    return scalarTextOf(*m_pValue);
}

void Node::extractValue(bool& value) const
{
    // A number's text is never "true" or "false", so the text decides.
    const std::string text = scalarText();
    if (text != "true" && text != "false") {
        throw std::invalid_argument(quoted(m_key) + "=" + text + " is not a boolean");
    }
    value = text == "true";
}

void Node::extractValue(std::string& value) const
{
    value = scalarText();
}

void Node::extractValue(double& value) const
{
    const std::string text = scalarText();
    if (m_pValue->is_number()) {
        value = m_pValue->get<double>();
    } else if (m_pValue->is_string()) {
        value = doubleFromText(m_key, text);
    } else {
        throwInvalidNumber(m_key, text);
    }
}

void Node::extractValue(std::int32_t& value) const
{
    value = toInteger<std::int32_t>(*m_pValue, m_key);
}

void Node::extractValue(std::uint32_t& value) const
{
    value = toInteger<std::uint32_t>(*m_pValue, m_key);
}

void Node::extractValue(std::int64_t& value) const
{
    value = toInteger<std::int64_t>(*m_pValue, m_key);
}

void Node::extractValue(std::uint64_t& value) const
{
    value = toInteger<std::uint64_t>(*m_pValue, m_key);
}

Node::Iterator::Iterator(Node array, std::size_t index)
    : m_array(std::move(array))
    , m_index(index)
{
}

Node Node::Iterator::operator*() const
{
    const std::string key = m_array.m_key + "[" + std::to_string(m_index) + "]";
    return Node(m_array.m_pDocument, &(*m_array.m_pValue)[m_index], key);
}

Node::Iterator& Node::Iterator::operator++()
{
    ++m_index;
    return *this;
}

Node::Iterator Node::Iterator::operator++(int)
{
    Iterator previous = *this;
    ++m_index;
    return previous;
}

} // namespace orv::common::lwjson
