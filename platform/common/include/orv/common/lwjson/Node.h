#pragma once
// orv::common::lwjson::Node: one value of a JSON document parsed by a
// Deserializer, together with the key it was reached through, so that every
// error names it. A node shares the parsed document, so it stays valid
// after the Deserializer is gone; copying one copies a pointer pair and the
// key.
//
// Keys: a member is named by its own key ("value", not a path), an array
// element by its array's key and index ("oobs[0]"), the root by "".
//
// Scalar text: a JSON string's text is its content; a boolean's is "true" or
// "false"; a number's is the number as the JSON library writes it back
// (integers in plain decimal, other numbers in the shortest form that reads
// back the same: 1.5 gives "1.5", 1e99 gives "1e+99"). Objects, arrays and
// null have no scalar text.
//
// Extraction of a value (extractValue):
// - from an object, an array or null, every kind fails with exactly
//   "Cannot get value from a non-scalar or null" (std::invalid_argument);
// - std::string: the scalar text of any scalar;
// - bool: a JSON boolean, or a string "true" or "false"; anything else fails
//   with lwjson::deserializer "k"=text is not a boolean (invalid_argument);
// - integers: a JSON string or integer converts from its text, which must
//   be all decimal digits after an optional minus sign (no blanks, no plus
//   sign): "12" converts, "1.5", "0x1F", "" and a boolean do not. A JSON
//   number that is not stored as an integer converts by value when it is a
//   whole number (12.0 gives 12, 1e3 gives 1000) and is invalid when it has
//   a fraction (1.5);
// - double: a JSON number by value, or a string whose whole text is a
//   finite decimal number ("2.5", "1e3"); booleans are invalid.
// A text that is not a valid number fails with
//   lwjson::deserializer "k"=text invalid number format
// (std::invalid_argument), a valid number beyond the target's range (1e99,
// "2147483648" for a signed 32-bit integer, -1 for an unsigned one) with
//   lwjson::deserializer "k"=text value out of range
// (std::out_of_range), where k is the node's key.
//
// Structure:
// - getMember on an object without that key fails with
//   lwjson::deserializer "k" member not found (std::out_of_range), k the
//   missing key; on a node that is not an object with
//   lwjson::deserializer "k" is not an object (std::invalid_argument), k the
//   node's own key. hasMember answers false for both;
// - begin/end/size/empty work on arrays only; on anything else they fail
//   with lwjson::deserializer "k" is not an array (std::invalid_argument).

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace orv::common::lwjson {

class Node {
public:
    // Walks the elements of an array node; each element is a Node.
    class Iterator;

    Node getMember(std::string_view key) const;
    bool hasMember(std::string_view key) const;

    Iterator begin() const;
    Iterator end() const;
    std::size_t size() const;
    bool empty() const;

    const std::string& key() const { return m_key; }
    std::string scalarText() const;

    void extractValue(bool& value) const;
    void extractValue(std::string& value) const;
    void extractValue(double& value) const;
    void extractValue(std::int32_t& value) const;
    void extractValue(std::uint32_t& value) const;
    void extractValue(std::int64_t& value) const;
    void extractValue(std::uint64_t& value) const;

protected:
    // The root node of a document.
    explicit Node(std::shared_ptr<const nlohmann::json> document);

private:
    Node() = default;
    Node(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* value, std::string key);

    const nlohmann::json& array() const;

    std::shared_ptr<const nlohmann::json> m_pDocument;
    const nlohmann::json* m_pValue = nullptr;
    std::string m_key;
};

class Node::Iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Node;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Node;

    Iterator() = default;

    Node operator*() const;
    Iterator& operator++();
    Iterator operator++(int);

    bool operator==(const Iterator& other) const
    {
        return m_array.m_pValue == other.m_array.m_pValue && m_index == other.m_index;
    }

private:
    friend class Node;
    Iterator(Node array, std::size_t index);

    Node m_array;
    std::size_t m_index = 0;
};

} // namespace orv::common::lwjson
