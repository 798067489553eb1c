#include "settings/DPLJSONUtils.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace
{
using nlohmann::json;

struct GetterCase
{
    const char* text;  // the value under "k"
    int32_t asInt;
    uint32_t asUnsigned;
    float asFloat;
    bool asBool;
    std::string asString;
};

// Defaults used below: int 7, unsigned 8, float 9.5, bool true, string "d".
const GetterCase kCases[] = {
    {"1", 1, 1, 1.0f, true, "d"},
    {"-1", -1, 8, -1.0f, true, "d"},
    {"0", 0, 0, 0.0f, true, "d"},
    {"1.5", 7, 8, 1.5f, true, "d"},
    {"-0.0", 7, 8, -0.0f, true, "d"},
    {"true", 7, 8, 9.5f, true, "d"},
    {"false", 7, 8, 9.5f, false, "d"},
    {"\"12\"", 7, 8, 9.5f, true, "12"},
    {"null", 7, 8, 9.5f, true, "d"},
    {"[1]", 7, 8, 9.5f, true, "d"},
    {"{\"k\":1}", 7, 8, 9.5f, true, "d"},
    // Integers wider than 32 bits are cut, as a plain cast would.
    {"4294967297", 1, 1, 4294967297.0f, true, "d"},
    {"-4294967295", 1, 8, -4294967295.0f, true, "d"},
    {"18446744073709551615", -1, 0xFFFFFFFFu, 18446744073709551615.0f, true, "d"},
    // A float beyond the float range saturates rather than overflowing.
    {"1e300", 7, 8, std::numeric_limits<float>::max(), true, "d"},
    {"-1e300", 7, 8, -std::numeric_limits<float>::max(), true, "d"},
};

TEST(DPLJSONUtils, GettersAcceptOnlyTheirTypes)
{
    for (const GetterCase& c : kCases)
    {
        SCOPED_TRACE(c.text);
        const json value = json::parse(std::string("{\"k\":") + c.text + "}");
        EXPECT_EQ(DPLJSONUtils::GetIntByName(value, "k", 7), c.asInt);
        EXPECT_EQ(DPLJSONUtils::GetUnsignedIntByName(value, "k", 8), c.asUnsigned);
        EXPECT_EQ(DPLJSONUtils::GetFloatByName(value, "k", 9.5f), c.asFloat);
        EXPECT_EQ(DPLJSONUtils::GetBoolByName(value, "k", true), c.asBool);
        EXPECT_EQ(DPLJSONUtils::GetStringByName(value, "k", "d"), c.asString);
    }
}

TEST(DPLJSONUtils, MissingKeysAndNonObjectsGiveTheDefault)
{
    for (const char* text : {"{}", "{\"other\":1}", "[]", "[{\"k\":1}]", "1", "\"k\"", "null", "true"})
    {
        SCOPED_TRACE(text);
        const json value = json::parse(text);
        EXPECT_EQ(DPLJSONUtils::GetIntByName(value, "k", 7), 7);
        EXPECT_EQ(DPLJSONUtils::GetUnsignedIntByName(value, "k", 8), 8u);
        EXPECT_EQ(DPLJSONUtils::GetFloatByName(value, "k", 9.5f), 9.5f);
        EXPECT_FALSE(DPLJSONUtils::GetBoolByName(value, "k", false));
        EXPECT_EQ(DPLJSONUtils::GetStringByName(value, "k", "d"), "d");
        EXPECT_EQ(DPLJSONUtils::GetObjectByName(value, "k", json::object()), json::object());
        EXPECT_EQ(DPLJSONUtils::GetArrayByName(value, "k", json::array()), json::array());
    }
    const json nested = json::parse(R"({"o":{"a":1},"a":[1,2]})");
    EXPECT_EQ(DPLJSONUtils::GetObjectByName(nested, "o", json()), json::parse(R"({"a":1})"));
    EXPECT_EQ(DPLJSONUtils::GetObjectByName(nested, "a", json()), json());
    EXPECT_EQ(DPLJSONUtils::GetArrayByName(nested, "a", json()), json::parse("[1,2]"));
    EXPECT_EQ(DPLJSONUtils::GetArrayByName(nested, "o", json()), json());
}

TEST(DPLJSONUtils, RequiredReadersThrowTheLibrarysErrors)
{
    const json value =
        json::parse(R"({"i":3,"f":2.75,"b":true,"s":"x","big":1e300,"neg":-1e300,"u":4294967295})");
    EXPECT_EQ(DPLJSONUtils::RequireInt(value, "i"), 3);
    EXPECT_EQ(DPLJSONUtils::RequireInt(value, "f"), 2);
    EXPECT_EQ(DPLJSONUtils::RequireInt(value, "big"), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(DPLJSONUtils::RequireInt(value, "neg"), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(DPLJSONUtils::RequireInt(value, "u"), -1);
    EXPECT_EQ(DPLJSONUtils::RequireDouble(value, "f"), 2.75);
    EXPECT_EQ(DPLJSONUtils::RequireDouble(value, "i"), 3.0);
    EXPECT_TRUE(DPLJSONUtils::RequireBool(value, "b"));
    EXPECT_THROW(DPLJSONUtils::RequireInt(value, "missing"), nlohmann::detail::exception);
    EXPECT_THROW(DPLJSONUtils::RequireInt(value, "s"), nlohmann::detail::exception);
    EXPECT_THROW(DPLJSONUtils::RequireInt(value, "b"), nlohmann::detail::exception);
    EXPECT_THROW(DPLJSONUtils::RequireDouble(value, "s"), nlohmann::detail::exception);
    EXPECT_THROW(DPLJSONUtils::RequireBool(value, "i"), nlohmann::detail::exception);
    EXPECT_THROW(DPLJSONUtils::RequireInt(json::array(), "i"), nlohmann::detail::exception);
}

TEST(DPLJSONUtils, ParseRefusesMalformedAndDeepTexts)
{
    json value = json::parse("42");
    EXPECT_EQ(DPLJSONUtils::Parse("{\"a\":", value).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(DPLJSONUtils::Parse("", value).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(DPLJSONUtils::Parse("{} trailing", value).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(DPLJSONUtils::Parse("\"\xff\xfe\"", value).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(value, json(42));  // untouched by failures

    const int limit = DPLJSONUtils::kMaxNestingDepth;
    const std::string atLimit = std::string(limit, '[') + std::string(limit, ']');
    EXPECT_TRUE(DPLJSONUtils::Parse(atLimit, value).Succeeded());
    const std::string tooDeep = std::string(limit + 1, '[') + std::string(limit + 1, ']');
    EXPECT_EQ(DPLJSONUtils::Parse(tooDeep, value).GetCode(), kDRAVResultErrInvalidParameter);
    // A million levels: refused by the pre-scan, quickly and without recursion.
    const std::string hostile = std::string(1000000, '[');
    EXPECT_EQ(DPLJSONUtils::Parse(hostile, value).GetCode(), kDRAVResultErrInvalidParameter);
    // Brackets inside strings, escaped quotes included, don't count.
    const std::string inString =
        "{\"k\":\"" + std::string(1000, '[') + "\\\"" + std::string(1000, '{') + "\"}";
    ASSERT_TRUE(DPLJSONUtils::Parse(inString, value).Succeeded());
    EXPECT_EQ(DPLJSONUtils::NestingDepth(inString, 100), 1);
    EXPECT_EQ(DPLJSONUtils::NestingDepth("[{},[[]]]", 100), 3);
}

}  // namespace
