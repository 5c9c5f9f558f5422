#pragma once
// Fuzz target of orv::common::lwjson::Deserializer: arbitrary text is parsed
// and, when it is JSON, every node of it is walked and every value extracted
// as every type. Nothing may crash; the only exceptions are the documented
// ones; and what is read agrees with a plain nlohmann-json parse of the same
// text.
//
// Layout of one input: byte 0, bit 0 allows comments; the rest is the text.

#include "FuzzFailure.h"

#include <orv/common/lwjson/Deserializer.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orv::modbus::fuzz {

class DeserializerTarget {
public:
    enum class Outcome { Parsed, Rejected };

    static Outcome run(const uint8_t* data, std::size_t size)
    {
        if (size == 0) {
            return Outcome::Rejected;
        }
        const common::lwjson::ParseOptions options{(data[0] & 1) != 0};
        const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
        const auto reference = nlohmann::json::parse(text, nullptr, false, options.allowComments);
        try {
            const common::lwjson::Deserializer document(text, options);
            require(!reference.is_discarded(), "text that is no JSON was parsed");
            walk(document, reference, 0);
            return Outcome::Parsed;
        } catch (const FuzzFailure&) {
            throw;
        } catch (const std::runtime_error& error) {
            const std::string message = error.what();
            require(message.rfind(g_invalidPrefix, 0) == 0, "unexpected parse failure: " + message);
            require(reference.is_discarded(), "valid JSON was refused: " + message);
            return Outcome::Rejected;
        } catch (const std::exception& error) {
            throw FuzzFailure(std::string("unexpected exception: ") + error.what());
        }
    }

private:
    using Node = common::lwjson::Node;
    using Json = nlohmann::json;

    static constexpr const char* g_invalidPrefix = "lwjson::deserializer invalid JSON: ";
    static constexpr const char* g_nonScalar = "Cannot get value from a non-scalar or null";
    // Deeper nodes are not walked, so that the walk's own stack stays small.
    static constexpr int g_maxDepth = 48;

    // Extracts `Value` from `node`; only std::invalid_argument and
    // std::out_of_range may refuse it. Returns whether it succeeded.
    template <typename Value>
    static bool tryExtract(const Node& node, Value& value, const Json& reference)
    {
        try {
            node.extractValue(value);
            return true;
        } catch (const std::invalid_argument& error) {
            require(!isScalar(reference) == (std::string_view(error.what()) == g_nonScalar),
                    std::string("wrong refusal of node \"") + node.key() + "\": " + error.what());
        } catch (const std::out_of_range&) {
            require(isScalar(reference), "a non-scalar node was out of range");
        }
        return false;
    }

    static bool isScalar(const Json& value)
    {
        return value.is_string() || value.is_boolean() || value.is_number();
    }

    static void extractAll(const Node& node, const Json& reference)
    {
        const std::string where = "node \"" + node.key() + "\"";
        bool flag = false;
        std::string text;
        double real = 0.0;
        int32_t int32 = 0;
        uint32_t uint32 = 0;
        int64_t int64 = 0;
        uint64_t uint64 = 0;
        const bool gotFlag = tryExtract(node, flag, reference);
        const bool gotText = tryExtract(node, text, reference);
        tryExtract(node, real, reference);
        tryExtract(node, int32, reference);
        tryExtract(node, uint32, reference);
        const bool gotInt64 = tryExtract(node, int64, reference);
        const bool gotUint64 = tryExtract(node, uint64, reference);
        require(gotText == isScalar(reference), where + ": text extraction disagrees with the node's kind");
        if (reference.is_string()) {
            require(text == reference.get_ref<const std::string&>(), where + ": string read back differently");
        }
        if (reference.is_boolean()) {
            require(gotFlag && flag == reference.get<bool>(), where + ": boolean read back differently");
        }
        if (reference.is_number_integer() && !reference.is_number_unsigned()) {
            require(gotInt64 && int64 == reference.get<int64_t>(), where + ": integer read back differently");
        }
        if (reference.is_number_unsigned()) {
            require(gotUint64 && uint64 == reference.get<uint64_t>(), where + ": integer read back differently");
        }
    }

    static void walk(const Node& node, const Json& reference, int depth)
    {
        if (depth > g_maxDepth) {
            return;
        }
        extractAll(node, reference);
        if (reference.is_array()) {
            walkArray(node, reference, depth);
            return;
        }
        bool refused = false;
        try {
            (void)node.size();
        } catch (const std::invalid_argument&) {
            refused = true;
        }
        require(refused, "size() of a node that is no array did not fail");
        if (reference.is_object()) {
            walkObject(node, reference, depth);
        }
    }

    static void walkArray(const Node& node, const Json& reference, int depth)
    {
        require(node.size() == reference.size() && node.empty() == reference.empty(),
                "array \"" + node.key() + "\" has the wrong size");
        std::size_t index = 0;
        for (const Node element : node) {
            require(index < reference.size(), "array \"" + node.key() + "\" iterates past its end");
            require(element.key() == node.key() + "[" + std::to_string(index) + "]",
                    "array element named \"" + element.key() + "\"");
            walk(element, reference[index], depth + 1);
            ++index;
        }
        require(index == reference.size(), "array \"" + node.key() + "\" iterates too few elements");
    }

    static void walkObject(const Node& node, const Json& reference, int depth)
    {
        for (const auto& [key, value] : reference.items()) {
            require(node.hasMember(key), "member \"" + key + "\" not found");
            const Node member = node.getMember(key);
            require(member.key() == key, "member \"" + key + "\" named \"" + member.key() + "\"");
            walk(member, value, depth + 1);
        }
        const std::string absent = "\x01" "absent";
        if (!reference.contains(absent)) {
            bool refused = false;
            try {
                (void)node.getMember(absent);
            } catch (const std::out_of_range&) {
                refused = true;
            }
            require(refused && !node.hasMember(absent), "an absent member was found");
        }
    }
};

} // namespace orv::modbus::fuzz
