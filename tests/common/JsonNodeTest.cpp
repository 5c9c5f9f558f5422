#include <orv/common/json/JsonNode.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using orv::common::JsonNode;
using testing::HasSubstr;

// The message a reader throws, or "" when it does not throw.
template <typename Read>
std::string refusal(Read read)
{
    try {
        read();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(JsonNodeTest, KeyGivenTwiceIsRefusedWithSourceAndPointer)
{
    EXPECT_EQ(refusal([] { JsonNode::parseText(R"({"a": {"b": 1, "b": 2}})", "doc.json"); }),
              "doc.json: /a/b: the key appears twice in one object");
}

TEST(JsonNodeTest, PointerStepsEscapeSlashAndTilde)
{
    EXPECT_EQ(refusal([] { JsonNode::parseText(R"({"a/b": {"c~d": [0, {"e": 1, "e": 1}]}})", "doc.json"); }),
              "doc.json: /a~1b/c~0d/1/e: the key appears twice in one object");
    const auto document = JsonNode::parseText(R"({"x/y": "text"})", "doc.json");
    EXPECT_EQ(refusal([&] { JsonNode(document, "doc.json", "").member("x/y").integer(0, 1); }),
              "doc.json: /x~1y: expected an integer from 0 to 1, got \"text\"");
}

TEST(JsonNodeTest, TextThatIsNotJsonNamesTheSource)
{
    EXPECT_THAT(refusal([] { JsonNode::parseText("{", "doc.json"); }), HasSubstr("doc.json: not valid JSON"));
}

TEST(JsonNodeTest, IntegerOutsideItsRangeIsRefusedWithTheValue)
{
    const auto document = JsonNode::parseText(R"({"n": 18446744073709551615, "m": -3})", "doc.json");
    const JsonNode root(document, "doc.json", "");
    EXPECT_EQ(refusal([&] { root.member("n").integer(0, 10); }),
              "doc.json: /n: expected an integer from 0 to 10, got 18446744073709551615");
    EXPECT_EQ(refusal([&] { root.member("m").integer(0, 10); }), "doc.json: /m: expected an integer from 0 to 10, got -3");
    EXPECT_EQ(root.integerOr("absent", 0, 10, 7), 7);
}

TEST(JsonNodeTest, UnknownKeyIsRefusedWithTheKnownOnes)
{
    const auto document = JsonNode::parseText(R"({"port": 1, "prot": 2})", "doc.json");
    EXPECT_EQ(refusal([&] { JsonNode(document, "doc.json", "").expectOnlyKeys({"port", "enabled"}); }),
              "doc.json: /prot: unknown key (known here: port, enabled)");
}

TEST(JsonNodeTest, RelativePathsAreTakenFromTheBase)
{
    const auto document = JsonNode::parseText(R"({"rel": "a.so", "abs": "/x/b.so"})", "doc.json");
    const JsonNode root(document, "doc.json", "");
    EXPECT_EQ(root.member("rel").pathFrom("/etc/orv"), "/etc/orv/a.so");
    EXPECT_EQ(root.member("abs").pathFrom("/etc/orv"), "/x/b.so");
}

TEST(JsonNodeTest, UnsignedIntegerTakesTheWholeRangeAndRefusesNegatives)
{
    const auto document = JsonNode::parseText(R"({"big": 18446744073709551615, "negative": -1})", "doc.json");
    const JsonNode root(document, "doc.json", "");
    EXPECT_EQ(root.member("big").unsignedInteger(), 18446744073709551615ULL);
    EXPECT_EQ(refusal([&] { root.member("negative").unsignedInteger(); }),
              "doc.json: /negative: expected a non-negative integer, got -1");
}

TEST(JsonNodeTest, KeysOfAnObjectComeSorted)
{
    const auto document = JsonNode::parseText(R"({"b": 1, "a": 2})", "doc.json");
    EXPECT_EQ(JsonNode(document, "doc.json", "").keys(), (std::vector<std::string>{"a", "b"}));
}

TEST(JsonNodeTest, NumberBeyondADoubleIsNotValidJson)
{
    EXPECT_THAT(refusal([] { JsonNode::parseText(R"({"a": 1e400})", "doc.json"); }),
                HasSubstr("doc.json: not valid JSON"));
}

} // namespace
