#include <gtest/gtest.h>

#include <locale.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "portable-core/json/TJSON.h"

namespace
{
struct LenientCase
{
    const char* input;
    const char* compact;  // what the parsed document writes back
};

// What damaged and unusual texts give. Each stop keeps everything read before it.
const LenientCase kLenientCases[] = {
    {"", "{}"},
    {"   ", "{}"},
    {"garbage", "{}"},
    {"5", "{}"},
    {"[1,2", "[1,2]"},
    {"[1,2,]", "[1,2]"},
    {"[", "[]"},
    {"[]", "[]"},
    {"  \r\n\t[ 1 , 2 ]", "[1,2]"},
    {"{\"a\":1 \"b\":2}", "{\"a\":1}"},
    {"{\"a\":1,}", "{\"a\":1}"},
    {"{\"a\":1", "{\"a\":1}"},
    {"{\"a\" 1}", "{}"},
    {"{\"a\":}", "{}"},
    {"{\"a\":1,\"b\"", "{\"a\":1}"},
    {"{a:1}", "{}"},
    {"{\"a\":[{},[],{\"b\":[]}],\"c\":2}", "{\"a\":[{},[],{\"b\":[]}],\"c\":2}"},
    {"{\"a\":1,\"a\":2}", "{\"a\":2}"},
    {"{\"\":1,\"b\":2}", "{\"\":1,\"b\":2}"},
    {"{\"k\":TRUE,\"l\":FALSE,\"m\":NULL,\"n\":true,\"o\":false,\"p\":null}",
     "{\"k\":true,\"l\":false,\"m\":null,\"n\":true,\"o\":false,\"p\":null}"},
    {"{\"k\":True}", "{}"},
    {"{\"k\":tru}", "{}"},
    {"{\"s\":\"open", "{\"s\":\"open\"}"},
    {"{\"s\":\"a\\fb\\qc\"}", "{\"s\":\"abc\"}"},
    {"{\"s\":\"\\u00e9\\u20AC\\ud83c\\udfa4\"}", "{\"s\":\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA4\"}"},
    {"{\"s\":\"x\\ud800y\\udc00z\"}", "{\"s\":\"xyz\"}"},
    {"{\"s\":\"\\u00zz!\"}", "{\"s\":\"\\u0000!\"}"},
    {"{\"s\":\"\\u12", "{\"s\":\"\xE1\x88\x80\"}"},
    {"{\"s\":\"a\xFF"
     "b\"}",
     "{\"s\":\"ab\"}"},
    {"{\"s\":\"\xC3\xA9\xC3\"}", "{\"s\":\"\xC3\xA9\"}"},
    {"{\"s\":\"tab\there\"}", "{\"s\":\"tab\\there\"}"},
    {"{\"n\":-}", "{\"n\":0}"},
    {"{\"n\":0x1F}", "{\"n\":0}"},
    {"{\"n\":1.5.5}", "{\"n\":1.5}"},
    {"{\"n\":.5}", "{}"},
    {"{\"n\":-.5}", "{\"n\":-0.5}"},
    {"{\"n\":1e400,\"m\":1}", "{\"m\":1,\"n\":null}"},
    {"{\"n\":1e-400}", "{\"n\":0}"},
    {"{\"n\":1e}", "{\"n\":1}"},
    {"[1}", "[1]"},
    {"[-0~-2]", "[0]"},
    {"[-0.0,-0]", "[0,0]"},
    {"[{\"a\":1]]", "[{\"a\":1}]"},
    {"{\"a\":1}trailing", "{\"a\":1}"},
};

TJSON Parse(const std::string& text)
{
    return TJSON(text);
}
}  // namespace

TEST(CEJSONParser, LenientTable)
{
    for (const LenientCase& c : kLenientCases)
    {
        TJSON doc = Parse(c.input);
        EXPECT_TRUE(doc.IsObject() || doc.IsArray()) << c.input;
        EXPECT_EQ(doc.ToString(), c.compact) << "input: " << c.input;
    }
    TJSON null(static_cast<const char*>(nullptr));
    EXPECT_TRUE(null.IsObject());
    EXPECT_EQ(null.GetCount(), 0);
}

TEST(CEJSONParser, IntegerLimitsAndKinds)
{
    TJSON doc(
        "[9223372036854775807,-9223372036854775808,18446744073709551616,9223372036854775808,"
        "5,1e5,1.0,-0,12345678901234567890123]");
    ASSERT_EQ(doc.GetCount(), 9);
    EXPECT_EQ(doc.GetIndObject(0).GetInt(), INT64_MAX);
    EXPECT_EQ(doc.GetIndObject(1).GetInt(), INT64_MIN);
    EXPECT_EQ(doc.GetIndObject(2).GetDouble(), 18446744073709551616.0);
    // Above the signed range but within the accumulator: kept by magnitude.
    EXPECT_EQ(doc.GetIndObject(3).GetDouble(), 9223372036854775808.0);
    EXPECT_EQ(doc.GetIndObject(5).GetDouble(), 1e5);
    EXPECT_EQ(doc.GetIndObject(7).GetInt(), 0);
    EXPECT_DOUBLE_EQ(doc.GetIndObject(8).GetDouble(), 1.2345678901234568e22);
    const bool isInt[] = {true, true, false, false, true, false, false, true, false};
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_EQ(doc.GetIndObject(i).IsInt(), isInt[i]) << i;
        EXPECT_EQ(doc.GetIndObject(i).IsDouble(), !isInt[i]) << i;
    }
}

TEST(CEJSONParser, OverlongNumberTokenReadsAsZeroAndParsingGoesOn)
{
    std::string token = "1." + std::string(70, '5');
    TJSON doc("[" + token + ",7]");
    ASSERT_EQ(doc.GetCount(), 2);
    EXPECT_TRUE(doc.GetIndObject(0).IsDouble());
    EXPECT_EQ(doc.GetIndObject(0).GetDouble(), 0.0);
    EXPECT_EQ(doc.GetIndObject(1).GetInt(), 7);
    // 63 bytes still count.
    std::string shorter = "1." + std::string(61, '5');
    EXPECT_NEAR(TJSON("[" + shorter + "]").GetIndObject(0).GetDouble(), 1.5555, 1e-3);
}

TEST(CEJSONParser, DeepNestingStopsAtTheLimitWithoutExhaustingTheStack)
{
    const int levels = 200000;
    std::string text(levels, '[');
    text += std::string(levels, ']');
    TJSON doc(text);
    int depth = 0;
    TJSON walk = doc;
    while (walk.IsArray())
    {
        ++depth;
        walk = walk.GetIndObject(0);
    }
    EXPECT_EQ(depth, kCEJSONMaxNestingDepth);
    // What was read writes and reads back the same.
    TJSON again(doc.ToString());
    EXPECT_TRUE(again == doc);

    std::string objects;
    for (int i = 0; i < levels; ++i)
    {
        objects += "{\"k\":";
    }
    TJSON deepObject(objects);
    EXPECT_TRUE(deepObject.IsObject());
    EXPECT_TRUE(TJSON(deepObject.ToString()) == deepObject);
}

namespace
{
// Runs in a child process: loading a locale from LOCPATH leaves glibc
// allocations behind that the leak checker would report.
[[noreturn]] void CheckNumbersUnderLocale(const char* localeFolder)
{
    setenv("LOCPATH", localeFolder, 1);
    locale_t comma = newlocale(LC_NUMERIC_MASK, "de_DE.UTF-8", static_cast<locale_t>(nullptr));
    if (comma == static_cast<locale_t>(nullptr))
    {
        fprintf(stderr, "locale not loaded\n");
        _exit(2);
    }
    uselocale(comma);
    char check[16];
    snprintf(check, sizeof(check), "%.1f", 0.5);
    bool localeActive = strcmp(check, "0,5") == 0;

    TJSON doc("{\"x\":0.25,\"y\":-1.5e3}");
    bool ok = localeActive && doc.GetObject("x").GetDouble() == 0.25 &&
              doc.GetObject("y").GetDouble() == -1500.0 && doc.ToString() == "{\"x\":0.25,\"y\":-1500}" &&
              TJSONString("2.75").GetDouble() == 2.75;
    TJSON written = TJSONArray();
    written.AddDouble(0.1);
    ok = ok && written.ToString() == "[0.10000000000000001]";
    if (!ok)
    {
        fprintf(stderr, "locale active: %d, text: %s\n", localeActive, doc.ToString().c_str());
    }
    _exit(ok ? 0 : 1);
}
}  // namespace

TEST(CEJSONParser, NumbersIgnoreTheProcessLocale)
{
    // Build a locale with a decimal comma in a private folder.
    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("json-locale-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::string command =
        "localedef -i de_DE -f UTF-8 " + (folder / "de_DE.UTF-8").string() + " >/dev/null 2>&1";
    int built = system(command.c_str());
    if (!std::filesystem::exists(folder / "de_DE.UTF-8" / "LC_NUMERIC"))
    {
        std::filesystem::remove_all(folder);
        GTEST_SKIP() << "no decimal-comma locale could be built (localedef gave " << built << ")";
    }
    EXPECT_EXIT(CheckNumbersUnderLocale(folder.c_str()), ::testing::ExitedWithCode(0), "");
    std::filesystem::remove_all(folder);
}

// A written double with an integral value reads back as an integer, and an
// overflow (infinity) as null, so the first text already is the fixed point.
TEST(CEJSONParser, ParseWriteParseIsAFixedPoint)
{
    for (const LenientCase& c : kLenientCases)
    {
        std::string text = Parse(c.input).ToString();
        TJSON second(text);
        EXPECT_EQ(second.ToString(), text) << c.input;
        TJSON third(second.ToString());
        EXPECT_TRUE(second == third) << c.input;
        int level = 0;
        EXPECT_TRUE(TJSON(second.ToString(&level)) == second) << c.input;
    }
}
