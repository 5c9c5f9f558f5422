#include <orv/common/lwjson/Deserializer.h>
#include <orv/common/lwjson/Node.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::common::lwjson::Deserializer;
using orv::common::lwjson::Node;

constexpr const char* g_nonScalar = "Cannot get value from a non-scalar or null";

const char* const g_document = R"({
    "name": "gw",
    "count": 12,
    "negative": -7,
    "quoted": "12",
    "quotedNegative": "-2147483648",
    "minusZero": "-0",
    "leadingZeros": "007",
    "max": 2147483647,
    "min": -2147483648,
    "aboveMax": 2147483648,
    "belowMin": -2147483649,
    "quotedAbove": "2147483648",
    "quotedFarAbove": "99999999999999999999999",
    "uint64Max": 18446744073709551615,
    "huge": 1e99,
    "hugeNegative": -1e99,
    "veryLong": 123456789012345678901234567890,
    "fraction": 1.5,
    "quotedFraction": "1.5",
    "wholeFloat": 12.0,
    "exponent": 1e3,
    "text": "abc",
    "blanks": " 12",
    "plus": "+12",
    "hex": "0x1F",
    "minusOnly": "-",
    "empty": "",
    "flag": true,
    "off": false,
    "flagText": "true",
    "offText": "false",
    "yes": "yes",
    "hugeText": "1e999",
    "infText": "inf",
    "nothing": null,
    "object": {"inner": 1},
    "list": [1, "two", {"three": 3}],
    "emptyList": []
})";

template <typename T>
T extract(const Node& node)
{
    T value{};
    node.extractValue(value);
    return value;
}

// Extracting a T from the node throws exactly Exception with exactly message.
template <typename T, typename Exception>
void expectFailure(const Node& node, const std::string& message)
{
    try {
        T value{};
        node.extractValue(value);
        ADD_FAILURE() << node.key() << " gave a " << typeid(T).name();
    } catch (const Exception& error) {
        EXPECT_EQ(error.what(), message);
    } catch (const std::exception& error) {
        ADD_FAILURE() << node.key() << ": other exception: " << typeid(error).name() << ": " << error.what();
    }
}

template <typename T>
void expectInvalidNumber(const Node& node, const std::string& text)
{
    expectFailure<T, std::invalid_argument>(
        node, "lwjson::deserializer \"" + node.key() + "\"=" + text + " invalid number format");
}

template <typename T>
void expectOutOfRange(const Node& node, const std::string& text)
{
    expectFailure<T, std::out_of_range>(node,
                                        "lwjson::deserializer \"" + node.key() + "\"=" + text + " value out of range");
}

template <typename T>
void expectNonScalar(const Node& node)
{
    expectFailure<T, std::invalid_argument>(node, g_nonScalar);
}

class NodeTest : public testing::Test {
protected:
    Node member(const char* key) const { return m_document.getMember(key); }

    const Deserializer m_document{g_document};
};

TEST_F(NodeTest, MemberCarriesItsKey)
{
    EXPECT_EQ(member("count").key(), "count");
    EXPECT_EQ(m_document.getMember(std::string("object")).getMember("inner").key(), "inner");
}

TEST_F(NodeTest, Int32FromNumbersAndNumericText)
{
    EXPECT_EQ(extract<std::int32_t>(member("count")), 12);
    EXPECT_EQ(extract<std::int32_t>(member("negative")), -7);
    EXPECT_EQ(extract<std::int32_t>(member("quoted")), 12);
    EXPECT_EQ(extract<std::int32_t>(member("quotedNegative")), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(extract<std::int32_t>(member("minusZero")), 0);
    EXPECT_EQ(extract<std::int32_t>(member("leadingZeros")), 7);
    EXPECT_EQ(extract<std::int32_t>(member("max")), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(extract<std::int32_t>(member("min")), std::numeric_limits<std::int32_t>::min());
}

TEST_F(NodeTest, Int32FromWholeNumbersWrittenAsFloats)
{
    EXPECT_EQ(extract<std::int32_t>(member("wholeFloat")), 12);
    EXPECT_EQ(extract<std::int32_t>(member("exponent")), 1000);
}

TEST_F(NodeTest, Int32BeyondItsRangeIsOutOfRange)
{
    expectOutOfRange<std::int32_t>(member("aboveMax"), "2147483648");
    expectOutOfRange<std::int32_t>(member("belowMin"), "-2147483649");
    expectOutOfRange<std::int32_t>(member("quotedAbove"), "2147483648");
    expectOutOfRange<std::int32_t>(member("quotedFarAbove"), "99999999999999999999999");
    expectOutOfRange<std::int32_t>(member("uint64Max"), "18446744073709551615");
    expectOutOfRange<std::int32_t>(member("huge"), "1e+99");
    expectOutOfRange<std::int32_t>(member("hugeNegative"), "-1e+99");
    expectOutOfRange<std::int32_t>(member("veryLong"), member("veryLong").scalarText());
}

TEST_F(NodeTest, Int32FromTextThatIsNoIntegerIsInvalid)
{
    expectInvalidNumber<std::int32_t>(member("fraction"), "1.5");
    expectInvalidNumber<std::int32_t>(member("quotedFraction"), "1.5");
    expectInvalidNumber<std::int32_t>(member("text"), "abc");
    expectInvalidNumber<std::int32_t>(member("blanks"), " 12");
    expectInvalidNumber<std::int32_t>(member("plus"), "+12");
    expectInvalidNumber<std::int32_t>(member("hex"), "0x1F");
    expectInvalidNumber<std::int32_t>(member("minusOnly"), "-");
    expectInvalidNumber<std::int32_t>(member("empty"), "");
    expectInvalidNumber<std::int32_t>(member("flag"), "true");
}

TEST_F(NodeTest, Int32FromNonScalarOrNullHasTheFixedMessage)
{
    expectNonScalar<std::int32_t>(member("nothing"));
    expectNonScalar<std::int32_t>(member("object"));
    expectNonScalar<std::int32_t>(member("list"));
    expectNonScalar<std::int32_t>(member("emptyList"));
}

TEST_F(NodeTest, OtherIntegerKindsUseTheirOwnRange)
{
    EXPECT_EQ(extract<std::int64_t>(member("aboveMax")), 2147483648);
    EXPECT_EQ(extract<std::int64_t>(member("belowMin")), -2147483649);
    EXPECT_EQ(extract<std::uint32_t>(member("aboveMax")), 2147483648u);
    EXPECT_EQ(extract<std::uint32_t>(member("minusZero")), 0u);
    EXPECT_EQ(extract<std::uint64_t>(member("uint64Max")), std::numeric_limits<std::uint64_t>::max());
    expectOutOfRange<std::uint32_t>(member("negative"), "-7");
    expectOutOfRange<std::uint64_t>(member("negative"), "-7");
    expectOutOfRange<std::uint32_t>(member("uint64Max"), "18446744073709551615");
    expectOutOfRange<std::int64_t>(member("uint64Max"), "18446744073709551615");
    expectOutOfRange<std::int64_t>(member("huge"), "1e+99");
    expectInvalidNumber<std::uint64_t>(member("text"), "abc");
    expectNonScalar<std::uint64_t>(member("object"));
}

TEST_F(NodeTest, BoolFromBooleansAndTheirText)
{
    EXPECT_TRUE(extract<bool>(member("flag")));
    EXPECT_FALSE(extract<bool>(member("off")));
    EXPECT_TRUE(extract<bool>(member("flagText")));
    EXPECT_FALSE(extract<bool>(member("offText")));
}

TEST_F(NodeTest, BoolFromAnythingElseFailsNamingTheKey)
{
    expectFailure<bool, std::invalid_argument>(member("count"), "lwjson::deserializer \"count\"=12 is not a boolean");
    expectFailure<bool, std::invalid_argument>(member("yes"), "lwjson::deserializer \"yes\"=yes is not a boolean");
    expectFailure<bool, std::invalid_argument>(member("empty"), "lwjson::deserializer \"empty\"= is not a boolean");
    expectNonScalar<bool>(member("nothing"));
    expectNonScalar<bool>(member("object"));
}

TEST_F(NodeTest, FailedExtractionLeavesTheTargetUntouched)
{
    bool flag = true;
    EXPECT_THROW(member("yes").extractValue(flag), std::invalid_argument);
    EXPECT_TRUE(flag);
    std::int32_t number = 5;
    EXPECT_THROW(member("aboveMax").extractValue(number), std::out_of_range);
    EXPECT_EQ(number, 5);
}

TEST_F(NodeTest, StringIsTheScalarText)
{
    EXPECT_EQ(extract<std::string>(member("name")), "gw");
    EXPECT_EQ(extract<std::string>(member("blanks")), " 12");
    EXPECT_EQ(extract<std::string>(member("count")), "12");
    EXPECT_EQ(extract<std::string>(member("fraction")), "1.5");
    EXPECT_EQ(extract<std::string>(member("huge")), "1e+99");
    EXPECT_EQ(extract<std::string>(member("flag")), "true");
    EXPECT_EQ(member("empty").scalarText(), "");
    expectNonScalar<std::string>(member("nothing"));
    expectNonScalar<std::string>(member("list"));
    EXPECT_THROW(member("object").scalarText(), std::invalid_argument);
}

TEST_F(NodeTest, DoubleFromNumbersAndNumericText)
{
    EXPECT_EQ(extract<double>(member("fraction")), 1.5);
    EXPECT_EQ(extract<double>(member("count")), 12.0);
    EXPECT_EQ(extract<double>(member("uint64Max")), 18446744073709551615.0);
    EXPECT_EQ(extract<double>(member("huge")), 1e99);
    EXPECT_EQ(extract<double>(member("quotedFraction")), 1.5);
    EXPECT_EQ(extract<double>(member("quoted")), 12.0);
    expectInvalidNumber<double>(member("text"), "abc");
    expectInvalidNumber<double>(member("blanks"), " 12");
    expectInvalidNumber<double>(member("infText"), "inf");
    expectInvalidNumber<double>(member("empty"), "");
    expectInvalidNumber<double>(member("flag"), "true");
    expectOutOfRange<double>(member("hugeText"), "1e999");
    expectNonScalar<double>(member("nothing"));
}

TEST_F(NodeTest, MissingMemberFailsNamingTheKey)
{
    try {
        member("object").getMember("outer");
        FAIL() << "found a member that is not there";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "lwjson::deserializer \"outer\" member not found");
    }
    EXPECT_FALSE(member("object").hasMember("outer"));
    EXPECT_TRUE(member("object").hasMember("inner"));
    EXPECT_TRUE(m_document.hasMember(std::string("name")));
}

TEST_F(NodeTest, MemberOfANonObjectFailsNamingTheNode)
{
    try {
        member("count").getMember("inner");
        FAIL() << "a number has members";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "lwjson::deserializer \"count\" is not an object");
    }
    EXPECT_THROW(member("list").getMember("0"), std::invalid_argument);
    EXPECT_THROW(member("nothing").getMember("x"), std::invalid_argument);
    EXPECT_FALSE(member("count").hasMember("inner"));
    EXPECT_FALSE(member("list").hasMember("0"));
}

TEST_F(NodeTest, IteratesTheElementsOfAnArrayInOrder)
{
    const Node list = member("list");
    EXPECT_EQ(list.size(), 3u);
    EXPECT_FALSE(list.empty());
    std::vector<std::string> keys;
    for (const Node element : list) {
        keys.push_back(element.key());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"list[0]", "list[1]", "list[2]"}));

    auto it = list.begin();
    EXPECT_EQ(extract<std::int32_t>(*it), 1);
    ++it;
    EXPECT_EQ(extract<std::string>(*it++), "two");
    EXPECT_EQ(extract<std::int32_t>((*it).getMember("three")), 3);
    ++it;
    EXPECT_EQ(it, list.end());
    EXPECT_EQ(std::distance(list.begin(), list.end()), 3);
}

TEST_F(NodeTest, ElementErrorsNameTheElement)
{
    auto it = member("list").begin();
    ++it;
    expectInvalidNumber<std::int32_t>(*it, "two");
    EXPECT_EQ((*it).key(), "list[1]");
}

TEST_F(NodeTest, EmptyArrayHasNoElements)
{
    const Node list = member("emptyList");
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(list.begin(), list.end());
    int count = 0;
    for (const Node element : list) {
        (void)element;
        ++count;
    }
    EXPECT_EQ(count, 0);
}

TEST_F(NodeTest, IteratingANonArrayFailsNamingTheNode)
{
    try {
        member("object").begin();
        FAIL() << "an object has elements";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "lwjson::deserializer \"object\" is not an array");
    }
    EXPECT_THROW(member("name").end(), std::invalid_argument);
    EXPECT_THROW(member("nothing").size(), std::invalid_argument);
    EXPECT_THROW(member("count").empty(), std::invalid_argument);
}

TEST(NodeLifetimeTest, NodesKeepTheDocumentAlive)
{
    std::optional<Node> kept;
    {
        const Deserializer deserializer(R"({"list": [{"value": 7}]})");
        kept = *deserializer.getMember("list").begin();
    }
    EXPECT_EQ(extract<std::int32_t>(kept->getMember("value")), 7);

    auto it = Deserializer(R"([1, 2])").begin();
    ++it;
    EXPECT_EQ(extract<std::int32_t>(*it), 2);
}

} // namespace
