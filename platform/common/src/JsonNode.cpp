#include <orv/common/json/JsonNode.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace orv::common {
namespace {

// Where the parser stands in one open object or array.
struct OpenContainer {
    bool isObject = false;
    std::set<std::string> keys;
    std::string key;
    std::size_t index = 0;
};

// A member name as one step of a JSON pointer ("~" and "/" escaped).
std::string pointerStep(const std::string& name)
{
    std::string step = "/";
    for (const char c : name) {
        step += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    }
    return step;
}

std::string pathOf(const std::vector<OpenContainer>& open, std::size_t count)
{
    std::string path;
    for (std::size_t i = 0; i < count; ++i) {
        path += open[i].isObject ? pointerStep(open[i].key) : "/" + std::to_string(open[i].index);
    }
    return path;
}

void elementDone(std::vector<OpenContainer>& open)
{
    if (!open.empty() && !open.back().isObject) {
        ++open.back().index;
    }
}

// The parser keeps the last of two equal keys without a word; in a
// configuration that hides a typing mistake, so it is refused.
nlohmann::json::parser_callback_t duplicateKeyCheck(const std::string& source, std::vector<OpenContainer>& open)
{
    using Event = nlohmann::json::parse_event_t;
    return [&source, &open](int, Event event, nlohmann::json& parsed) {
        if (event == Event::object_start || event == Event::array_start) {
            open.push_back({event == Event::object_start, {}, {}, 0});
        } else if (event == Event::key) {
            const auto key = parsed.get<std::string>();
            if (!open.back().keys.insert(key).second) {
                throw std::runtime_error(source + ": " + pathOf(open, open.size() - 1) + pointerStep(key)
                                         + ": the key appears twice in one object");
            }
            open.back().key = key;
        } else if (event == Event::object_end || event == Event::array_end) {
            open.pop_back();
            elementDone(open);
        } else {
            elementDone(open);
        }
        return true;
    };
}

template <typename Input>
nlohmann::json parse(Input&& input, const std::string& source)
{
    std::vector<OpenContainer> open;
    try {
        return nlohmann::json::parse(std::forward<Input>(input), duplicateKeyCheck(source, open), true, true);
    } catch (const nlohmann::json::exception& error) {
        // Not only syntax errors: a number beyond a double's range is an
        // out_of_range error of the parser.
        throw std::runtime_error(source + ": not valid JSON: " + error.what());
    }
}

} // namespace

JsonNode::JsonNode(const nlohmann::json& value, std::string file, std::string path)
    : m_value(value)
    , m_file(std::move(file))
    , m_path(std::move(path))
{
}

nlohmann::json JsonNode::parseFile(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    if (!stream) {
        throw std::runtime_error(file.string() + ": cannot open the file");
    }
    return parse(stream, file.string());
}

nlohmann::json JsonNode::parseText(const std::string& text, const std::string& source)
{
    return parse(text, source);
}

bool JsonNode::has(const std::string& key) const
{
    expectObject();
    return m_value.contains(key);
}

std::vector<std::string> JsonNode::keys() const
{
    expectObject();
    std::vector<std::string> result;
    result.reserve(m_value.size());
    for (auto item = m_value.begin(); item != m_value.end(); ++item) {
        result.push_back(item.key());
    }
    return result;
}

JsonNode JsonNode::member(const std::string& key) const
{
    expectObject();
    const auto found = m_value.find(key);
    if (found == m_value.end()) {
        fail("missing key \"" + key + "\"");
    }
    return JsonNode(*found, m_file, m_path + pointerStep(key));
}

std::optional<JsonNode> JsonNode::optionalMember(const std::string& key) const
{
    if (!has(key)) {
        return std::nullopt;
    }
    return member(key);
}

std::vector<JsonNode> JsonNode::elements() const
{
    if (!m_value.is_array()) {
        fail("expected an array");
    }
    std::vector<JsonNode> result;
    result.reserve(m_value.size());
    for (std::size_t i = 0; i < m_value.size(); ++i) {
        result.emplace_back(m_value[i], m_file, m_path + "/" + std::to_string(i));
    }
    return result;
}

bool JsonNode::boolean() const
{
    if (!m_value.is_boolean()) {
        fail("expected true or false");
    }
    return m_value.get<bool>();
}

std::int64_t JsonNode::integer(std::int64_t minimum, std::int64_t maximum) const
{
    const auto outOfRange = [&] {
        fail("expected an integer from " + std::to_string(minimum) + " to " + std::to_string(maximum)
             + ", got " + m_value.dump());
    };
    if (!m_value.is_number_integer()) {
        outOfRange();
    }
    // Large unsigned values do not fit an int64_t; compare them unsigned.
    if (m_value.is_number_unsigned() && m_value.get<std::uint64_t>() > static_cast<std::uint64_t>(maximum)) {
        outOfRange();
    }
    const auto value = m_value.get<std::int64_t>();
    if (value < minimum || value > maximum) {
        outOfRange();
    }
    return value;
}

std::uint64_t JsonNode::unsignedInteger() const
{
    if (!m_value.is_number_unsigned()) {
        fail("expected a non-negative integer, got " + m_value.dump());
    }
    return m_value.get<std::uint64_t>();
}

double JsonNode::number() const
{
    if (!m_value.is_number()) {
        fail("expected a number");
    }
    return m_value.get<double>();
}

std::string JsonNode::text() const
{
    if (!m_value.is_string()) {
        fail("expected a string");
    }
    return m_value.get<std::string>();
}

std::filesystem::path JsonNode::pathFrom(const std::filesystem::path& base) const
{
    const std::filesystem::path given(text());
    return given.is_absolute() ? given : base / given;
}

bool JsonNode::booleanOr(const std::string& key, bool fallback) const
{
    const auto node = optionalMember(key);
    return node ? node->boolean() : fallback;
}

std::int64_t JsonNode::integerOr(const std::string& key, std::int64_t minimum, std::int64_t maximum,
                                 std::int64_t fallback) const
{
    const auto node = optionalMember(key);
    return node ? node->integer(minimum, maximum) : fallback;
}

void JsonNode::expectOnlyKeys(std::initializer_list<std::string_view> keys) const
{
    expectObject();
    for (const auto& [key, value] : m_value.items()) {
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            std::string known;
            for (const std::string_view name : keys) {
                known += (known.empty() ? "" : ", ") + std::string(name);
            }
            JsonNode(value, m_file, m_path + pointerStep(key)).fail("unknown key (known here: " + known + ")");
        }
    }
}

void JsonNode::fail(const std::string& problem) const
{
    failAt(m_file, m_path, problem);
}

void JsonNode::failAt(const std::string& file, const std::string& path, const std::string& problem)
{
    throw std::runtime_error(file + ": " + (path.empty() ? "/" : path) + ": " + problem);
}

void JsonNode::expectObject() const
{
    if (!m_value.is_object()) {
        fail("expected an object");
    }
}

} // namespace orv::common
