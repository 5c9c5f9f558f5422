#include <zu/CValue.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

using zu::CValue;

constexpr std::int32_t g_int32Min = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t g_int32Max = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t g_uint32Max = std::numeric_limits<std::uint32_t>::max();
constexpr float g_infinity = std::numeric_limits<float>::infinity();
constexpr float g_nan = std::numeric_limits<float>::quiet_NaN();

TEST(CValueTest, DefaultHoldsNothingAndConvertsToEmptyResults)
{
    const CValue value;
    EXPECT_FALSE(value.is_valid());
    EXPECT_EQ(value.type(), CValue::Type::Invalid);
    EXPECT_FALSE(value.as_bool());
    EXPECT_EQ(value.as_int32(), 0);
    EXPECT_EQ(value.as_uint32(), 0u);
    EXPECT_EQ(value.as_float(), 0.0f);
    EXPECT_EQ(value.as_string(), "");
}

TEST(CValueTest, EveryConstructorHoldsItsKind)
{
    EXPECT_EQ(CValue(true).type(), CValue::Type::Bool);
    EXPECT_EQ(CValue(std::int32_t{-1}).type(), CValue::Type::Int32);
    EXPECT_EQ(CValue(std::uint32_t{1}).type(), CValue::Type::Uint32);
    EXPECT_EQ(CValue(1.5f).type(), CValue::Type::Float);
    EXPECT_EQ(CValue(std::string("x")).type(), CValue::Type::String);
    EXPECT_EQ(CValue("x").type(), CValue::Type::String);
    for (const CValue& value : {CValue(false), CValue(std::int32_t{0}), CValue(std::uint32_t{0}), CValue(0.0f),
                                CValue(std::string()), CValue("")}) {
        EXPECT_TRUE(value.is_valid());
    }
}

TEST(CValueTest, NullCharPointerIsTheEmptyText)
{
    const CValue value(static_cast<const char*>(nullptr));
    EXPECT_TRUE(value.is_valid());
    EXPECT_EQ(value, CValue(""));
}

TEST(CValueTest, BoolConvertsToEveryKind)
{
    EXPECT_TRUE(CValue(true).as_bool());
    EXPECT_EQ(CValue(true).as_int32(), 1);
    EXPECT_EQ(CValue(true).as_uint32(), 1u);
    EXPECT_EQ(CValue(true).as_float(), 1.0f);
    EXPECT_EQ(CValue(true).as_string(), "true");
    EXPECT_FALSE(CValue(false).as_bool());
    EXPECT_EQ(CValue(false).as_int32(), 0);
    EXPECT_EQ(CValue(false).as_uint32(), 0u);
    EXPECT_EQ(CValue(false).as_float(), 0.0f);
    EXPECT_EQ(CValue(false).as_string(), "false");
}

TEST(CValueTest, Int32ConvertsToEveryKind)
{
    const CValue value(std::int32_t{-42});
    EXPECT_TRUE(value.as_bool());
    EXPECT_EQ(value.as_int32(), -42);
    EXPECT_EQ(value.as_uint32(), 0u) << "a negative number saturates to the unsigned minimum";
    EXPECT_EQ(value.as_float(), -42.0f);
    EXPECT_EQ(value.as_string(), "-42");
    EXPECT_FALSE(CValue(std::int32_t{0}).as_bool());
}

TEST(CValueTest, Int32EdgeValues)
{
    EXPECT_EQ(CValue(g_int32Min).as_int32(), g_int32Min);
    EXPECT_EQ(CValue(g_int32Min).as_string(), "-2147483648");
    EXPECT_EQ(CValue(g_int32Min).as_uint32(), 0u);
    EXPECT_EQ(CValue(g_int32Min).as_float(), -2147483648.0f);
    EXPECT_EQ(CValue(g_int32Max).as_int32(), g_int32Max);
    EXPECT_EQ(CValue(g_int32Max).as_uint32(), 2147483647u);
    EXPECT_EQ(CValue(g_int32Max).as_string(), "2147483647");
    EXPECT_EQ(CValue(g_int32Max).as_float(), 2147483648.0f) << "nearest float";
}

TEST(CValueTest, Uint32ConvertsToEveryKind)
{
    const CValue value(std::uint32_t{42});
    EXPECT_TRUE(value.as_bool());
    EXPECT_EQ(value.as_int32(), 42);
    EXPECT_EQ(value.as_uint32(), 42u);
    EXPECT_EQ(value.as_float(), 42.0f);
    EXPECT_EQ(value.as_string(), "42");
    EXPECT_FALSE(CValue(std::uint32_t{0}).as_bool());
}

TEST(CValueTest, Uint32EdgeValues)
{
    const CValue value(g_uint32Max);
    EXPECT_EQ(value.as_uint32(), g_uint32Max);
    EXPECT_EQ(value.as_int32(), g_int32Max) << "beyond the signed range saturates";
    EXPECT_EQ(value.as_string(), "4294967295");
    EXPECT_EQ(value.as_float(), 4294967296.0f);
    EXPECT_EQ(CValue(std::uint32_t{2147483648u}).as_int32(), g_int32Max);
}

TEST(CValueTest, FloatConvertsToEveryKind)
{
    const CValue value(-2.75f);
    EXPECT_TRUE(value.as_bool());
    EXPECT_EQ(value.as_int32(), -2) << "truncated toward zero";
    EXPECT_EQ(value.as_uint32(), 0u);
    EXPECT_EQ(value.as_float(), -2.75f);
    EXPECT_EQ(value.as_string(), "-2.75");
    EXPECT_EQ(CValue(2.75f).as_uint32(), 2u);
    EXPECT_EQ(CValue(1.5f).as_string(), "1.5");
    EXPECT_EQ(CValue(0.1f).as_string(), "0.1") << "shortest text that reads back the same float";
    EXPECT_EQ(CValue(1e10f).as_string(), "1e+10");
    EXPECT_FALSE(CValue(0.0f).as_bool());
    EXPECT_FALSE(CValue(-0.0f).as_bool());
    EXPECT_TRUE(CValue(0.25f).as_bool()) << "not zero, though it truncates to 0";
}

TEST(CValueTest, FloatBeyondTheIntegerRangesSaturates)
{
    EXPECT_EQ(CValue(1e30f).as_int32(), g_int32Max);
    EXPECT_EQ(CValue(-1e30f).as_int32(), g_int32Min);
    EXPECT_EQ(CValue(1e30f).as_uint32(), g_uint32Max);
    EXPECT_EQ(CValue(-1e30f).as_uint32(), 0u);
    EXPECT_EQ(CValue(2147483648.0f).as_int32(), g_int32Max);
    EXPECT_EQ(CValue(4294967296.0f).as_uint32(), g_uint32Max);
    EXPECT_EQ(CValue(g_infinity).as_int32(), g_int32Max);
    EXPECT_EQ(CValue(-g_infinity).as_int32(), g_int32Min);
    EXPECT_EQ(CValue(g_infinity).as_string(), "inf");
}

TEST(CValueTest, NanFloat)
{
    const CValue value(g_nan);
    EXPECT_EQ(value.as_int32(), 0);
    EXPECT_EQ(value.as_uint32(), 0u);
    EXPECT_TRUE(std::isnan(value.as_float()));
    EXPECT_TRUE(value.as_bool()) << "NaN is not zero";
    EXPECT_EQ(value.as_string(), "nan");
    EXPECT_FALSE(value == value) << "NaN equals nothing";
}

TEST(CValueTest, NumericTextConvertsToNumbers)
{
    const CValue value("42");
    EXPECT_TRUE(value.as_bool());
    EXPECT_EQ(value.as_int32(), 42);
    EXPECT_EQ(value.as_uint32(), 42u);
    EXPECT_EQ(value.as_float(), 42.0f);
    EXPECT_EQ(value.as_string(), "42");
    EXPECT_EQ(CValue("-3").as_int32(), -3);
    EXPECT_EQ(CValue("-3").as_uint32(), 0u);
    EXPECT_EQ(CValue("+7").as_int32(), 7);
    EXPECT_EQ(CValue("2.5").as_float(), 2.5f);
    EXPECT_EQ(CValue("2.9").as_int32(), 2);
    EXPECT_EQ(CValue("1e3").as_uint32(), 1000u);
    EXPECT_FALSE(CValue("0").as_bool());
    EXPECT_FALSE(CValue("0.0").as_bool());
    EXPECT_TRUE(CValue("0.5").as_bool());
}

TEST(CValueTest, NumericTextAtTheEdgesOfTheRanges)
{
    EXPECT_EQ(CValue("-2147483648").as_int32(), g_int32Min);
    EXPECT_EQ(CValue("2147483647").as_int32(), g_int32Max);
    EXPECT_EQ(CValue("2147483648").as_int32(), g_int32Max);
    EXPECT_EQ(CValue("-2147483649").as_int32(), g_int32Min);
    EXPECT_EQ(CValue("4294967295").as_uint32(), g_uint32Max);
    EXPECT_EQ(CValue("4294967296").as_uint32(), g_uint32Max);
    EXPECT_EQ(CValue("1e39").as_float(), g_infinity) << "beyond the float range";
    EXPECT_EQ(CValue("-1e39").as_float(), -g_infinity);
    EXPECT_EQ(CValue("1e300").as_int32(), g_int32Max);
    // Rounding to nearest: just above the largest float still reads as it.
    EXPECT_EQ(CValue("3.4028235677e38").as_float(), std::numeric_limits<float>::max());
    EXPECT_EQ(CValue("3.402823568e38").as_float(), g_infinity);
}

TEST(CValueTest, TextWithSurroundingBlanksIsTrimmed)
{
    EXPECT_EQ(CValue("  12 ").as_int32(), 12);
    EXPECT_EQ(CValue("\t-5\r\n").as_int32(), -5);
    EXPECT_EQ(CValue(" 1.5 ").as_float(), 1.5f);
    EXPECT_EQ(CValue(" 12 ").as_string(), " 12 ") << "the text itself stays as it is";
}

TEST(CValueTest, NonNumericTextGivesZero)
{
    for (const char* text : {"abc", "12abc", "1 2", "0x10", "+-3", "--3", "1e", ".", "-", "", "   ", "yes"}) {
        const CValue value(text);
        EXPECT_FALSE(value.as_bool()) << text;
        EXPECT_EQ(value.as_int32(), 0) << text;
        EXPECT_EQ(value.as_uint32(), 0u) << text;
        EXPECT_EQ(value.as_float(), 0.0f) << text;
        EXPECT_EQ(value.as_string(), text);
    }
}

TEST(CValueTest, TextBeyondTheDoubleRangeGivesZero)
{
    EXPECT_EQ(CValue("1e400").as_int32(), 0);
    EXPECT_EQ(CValue("1e400").as_float(), 0.0f);
}

TEST(CValueTest, TrueAndFalseTextReadAsOneAndZero)
{
    EXPECT_TRUE(CValue("true").as_bool());
    EXPECT_EQ(CValue("true").as_int32(), 1);
    EXPECT_EQ(CValue("true").as_uint32(), 1u);
    EXPECT_EQ(CValue("true").as_float(), 1.0f);
    EXPECT_TRUE(CValue(" true ").as_bool());
    EXPECT_FALSE(CValue("false").as_bool());
    EXPECT_EQ(CValue("false").as_int32(), 0);
    EXPECT_FALSE(CValue("TRUE").as_bool()) << "letter case counts";
}

TEST(CValueTest, FloatTextReadsBackTheSameFloat)
{
    for (const float value : {0.1f, -3.25f, 1e-20f, 3.4028235e38f, g_infinity, -g_infinity}) {
        EXPECT_EQ(CValue(CValue(value).as_string()).as_float(), value) << value;
    }
    EXPECT_TRUE(std::isnan(CValue(CValue(g_nan).as_string()).as_float()));
}

TEST(CValueTest, EqualityComparesKindAndValue)
{
    EXPECT_EQ(CValue(std::int32_t{1}), CValue(std::int32_t{1}));
    EXPECT_NE(CValue(std::int32_t{1}), CValue(std::int32_t{2}));
    EXPECT_NE(CValue(std::int32_t{1}), CValue(std::uint32_t{1}));
    EXPECT_NE(CValue(std::int32_t{1}), CValue(true));
    EXPECT_NE(CValue(std::int32_t{1}), CValue(1.0f));
    EXPECT_NE(CValue(std::int32_t{1}), CValue("1"));
    EXPECT_NE(CValue(std::int32_t{0}), CValue());
    EXPECT_EQ(CValue(), CValue());
    EXPECT_EQ(CValue("abc"), CValue(std::string("abc")));
    EXPECT_NE(CValue("abc"), CValue("abd"));
    EXPECT_EQ(CValue(1.5f), CValue(1.5f));
    EXPECT_EQ(CValue(false), CValue(false));
    EXPECT_NE(CValue(false), CValue(true));
}

TEST(CValueTest, CopiesAreEqualAndIndependent)
{
    CValue original("text");
    const CValue copy = original;
    original = CValue(std::uint32_t{5});
    EXPECT_EQ(copy, CValue("text"));
    EXPECT_EQ(original, CValue(std::uint32_t{5}));
}

} // namespace
