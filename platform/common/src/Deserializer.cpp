#include <orv/common/lwjson/Deserializer.h>

#include <stdexcept>

#include <nlohmann/json.hpp>

namespace orv::common::lwjson {
namespace {

std::shared_ptr<const nlohmann::json> parse(std::string_view text, const ParseOptions& options)
{
    try {
        return std::make_shared<const nlohmann::json>(
            nlohmann::json::parse(text.begin(), text.end(), nullptr, true, options.allowComments));
    } catch (const nlohmann::json::exception& error) {
        // Parse errors, and numbers too large for a double.
        throw std::runtime_error(std::string("lwjson::deserializer invalid JSON: ") + error.what());
    }
}

} // namespace

Deserializer::Deserializer(std::string_view text, ParseOptions options)
    : Node(parse(text, options))
{
}

} // namespace orv::common::lwjson
