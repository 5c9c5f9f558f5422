#pragma once
// orv::common::lwjson::Deserializer: reads a whole JSON text and is the root
// node of it (see Node.h for walking the document and extracting values, and
// for the exact error messages).
//
// Choices of this stand-in, on nlohmann-json:
// - the text is parsed at once, in the constructor; malformed JSON (and a
//   number too large for a double, such as 1e400) fails there with
//   std::runtime_error "lwjson::deserializer invalid JSON: " followed by the
//   parser's own message, which gives the line and column;
// - comments are accepted only when ParseOptions::allowComments is set;
// - when an object repeats a key, the last value wins.

#include <string_view>

#include <orv/common/lwjson/Node.h>
#include <orv/common/lwjson/ParseOptions.h>

namespace orv::common::lwjson {

class Deserializer : public Node {
public:
    explicit Deserializer(std::string_view text, ParseOptions options = {});
};

} // namespace orv::common::lwjson
