#pragma once
// A read-only view of one node of a parsed JSON document that knows where it
// stands (file and JSON pointer path), so that every complaint about a
// configuration or data file names both: "<file>: <JSON pointer>: <reason>".

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orv::common {

class JsonNode {
public:
    JsonNode(const nlohmann::json& value, std::string file, std::string path);

    // Parses a whole file; a missing file or invalid JSON throws with the
    // file name and the parser's own message.
    static nlohmann::json parseFile(const std::filesystem::path& file);
    // Parses a document read elsewhere, named `source` in messages; a key
    // given twice in one object is refused as parseFile refuses it.
    static nlohmann::json parseText(const std::string& text, const std::string& source);

    const std::string& path() const { return m_path; }

    bool has(const std::string& key) const;
    // The member names of an object, sorted as the parser keeps them.
    std::vector<std::string> keys() const;
    JsonNode member(const std::string& key) const;
    std::optional<JsonNode> optionalMember(const std::string& key) const;
    std::vector<JsonNode> elements() const;

    bool boolean() const;
    std::int64_t integer(std::int64_t minimum, std::int64_t maximum) const;
    // The whole unsigned 64-bit range, which integer() cannot give.
    std::uint64_t unsignedInteger() const;
    double number() const;
    std::string text() const;
    // A text naming a file; a relative one is taken from `base`.
    std::filesystem::path pathFrom(const std::filesystem::path& base) const;

    bool booleanOr(const std::string& key, bool fallback) const;
    std::int64_t integerOr(const std::string& key, std::int64_t minimum, std::int64_t maximum,
                           std::int64_t fallback) const;

    // Refuses any member not named here, so that a mistyped key is reported
    // instead of silently falling back to the default.
    void expectOnlyKeys(std::initializer_list<std::string_view> keys) const;

    [[noreturn]] void fail(const std::string& problem) const;
    // The same complaint for a place known only by its path, for checks
    // made after the document was read.
    [[noreturn]] static void failAt(const std::string& file, const std::string& path, const std::string& problem);

private:
    void expectObject() const;

    const nlohmann::json& m_value;
    std::string m_file;
    std::string m_path;
};

} // namespace orv::common
