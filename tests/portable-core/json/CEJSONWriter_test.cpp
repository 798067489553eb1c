#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "portable-core/DRAVLog.h"
#include "portable-core/json/CEJSONParseBuffer.h"
#include "portable-core/json/TJSON.h"
#include "support/LogCapture.h"

namespace
{
std::string Pretty(const TJSON& doc)
{
    int level = 0;
    return doc.ToString(&level);
}

std::string Escaped(const std::string& text)
{
    CEJSONParseBuffer buffer;
    TJSON_EscapeString(text, buffer);
    return buffer.TakeString();
}
}  // namespace

TEST(CEJSONWriter, NestedDocumentGoldenTexts)
{
    TJSON doc;
    doc.AddInt("version", 3);
    doc.AddString("name", "Mic / \"A\"");
    TJSON inner;
    inner.AddBool("on", true);
    inner.Add("nothing", TJSONNull());
    doc.Add("inner", inner);
    TJSON list = TJSONArray();
    list.AddInt(1);
    list.AddDouble(0.5);
    TJSON nested = TJSONArray();
    nested.AddString("x");
    list.Add(nested);
    list.Add(TJSONObject());
    doc.Add("list", list);

    EXPECT_EQ(doc.ToString(),
              "{\"inner\":{\"nothing\":null,\"on\":true},\"list\":[1,0.5,[\"x\"],{}],"
              "\"name\":\"Mic \\/ \\\"A\\\"\",\"version\":3}");

    const char* expected =
        "{\n"
        "\t\"inner\":\n"
        "\t{\n"
        "\t\t\"nothing\":null,\n"
        "\t\t\"on\":true\n"
        "\t},\n"
        "\t\"list\":\n"
        "\t[\n"
        "\t\t1,\n"
        "\t\t0.5,\n"
        "\t\t[\n"
        "\t\t\t\"x\"\n"
        "\t\t],\n"
        "\t\t{\n"
        "\t\t\t}\n"
        "\t],\n"
        "\t\"name\":\"Mic \\/ \\\"A\\\"\",\n"
        "\t\"version\":3\n"
        "}";
    EXPECT_EQ(Pretty(doc), expected);
    // The pretty text reads back as the same document.
    EXPECT_TRUE(TJSON(Pretty(doc)) == doc);

    EXPECT_EQ(TJSONObject().ToString(), "{}");
    EXPECT_EQ(TJSONArray().ToString(), "[]");
    EXPECT_EQ(Pretty(TJSONObject()), "{\n\t}");
    EXPECT_EQ(Pretty(TJSONArray()), "[\n\t]");
    // From a deeper level everything is indented, and the level is left as it was.
    TJSON small;
    small.AddInt("a", 1);
    int level = 2;
    EXPECT_EQ(small.ToString(&level), "\t\t{\n\t\t\t\"a\":1\n\t\t}");
    EXPECT_EQ(level, 2);
}

TEST(CEJSONWriter, PriorityKeysComeFirstInStrcmpOrder)
{
    TJSON doc;
    doc.AddInt("b", 1);
    doc.AddInt("a", 2);
    doc.AddInt("c", 3);
    doc.SetPriorityObjects({"c", "b"});
    EXPECT_EQ(doc.ToString(), "{\"b\":1,\"c\":3,\"a\":2}");
    // Without a priority list: plain strcmp order, upper case before lower case.
    TJSON plain;
    plain.AddInt("b", 1);
    plain.AddInt("B", 2);
    plain.AddInt("a", 3);
    plain.AddInt("\xC3\xA9", 4);
    EXPECT_EQ(plain.ToString(), "{\"B\":2,\"a\":3,\"b\":1,\"\xC3\xA9\":4}");
    EXPECT_EQ(plain.GetKeys(), (std::vector<std::string>{"B", "a", "b", "\xC3\xA9"}));
}

TEST(CEJSONWriter, NumbersAndNonFiniteDoubles)
{
    TJSON doc = TJSONArray();
    doc.AddDouble(0.1);
    doc.AddDouble(1.0);
    doc.AddDouble(-2.5);
    doc.AddDouble(-0.0);
    doc.AddDouble(1e21);
    doc.AddDouble(std::numeric_limits<double>::quiet_NaN());
    doc.AddDouble(std::numeric_limits<double>::infinity());
    doc.AddDouble(-std::numeric_limits<double>::infinity());
    doc.AddInt(std::numeric_limits<int64_t>::max());
    doc.AddInt(std::numeric_limits<int64_t>::min());
    EXPECT_EQ(doc.ToString(),
              "[0.10000000000000001,1,-2.5,0,1e+21,null,null,null,9223372036854775807,-9223372036854775808]");
    // 1.0 is written as "1" and so comes back as an integer.
    TJSON back(doc.ToString());
    EXPECT_TRUE(back.GetIndObject(1).IsInt());
    EXPECT_TRUE(back.GetIndObject(5).IsNull());
}

TEST(CEJSONWriter, EscapeTable)
{
    struct Case
    {
        std::string in;
        std::string out;
    };
    const Case cases[] = {
        {std::string("\b\t\n\r", 4), "\\b\\t\\n\\r"},
        {"\"/\\", "\\\"\\/\\\\"},
        {"\x01\x0C\x1F", "\\u0001\\u000C\\u001F"},
        {std::string("a\0b", 3), "a\\u0000b"},
        {" ~\x7F", " ~\x7F"},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA4", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA4"},
        {"a\xFF"
         "b",
         "ab"},
        {"\x80x", "x"},              // stray continuation byte
        {"\xC3", ""},                // lead byte at the end
        {"\xC3\xA9\xA9z", "z"},      // one continuation byte too many
        {"\xC0\x80q", "q"},          // overlong NUL
        {"\xED\xA0\x80q", "q"},      // encoded surrogate
        {"\xF4\x90\x80\x80q", "q"},  // above U+10FFFF
        {"\xE2\x82x", "x"},          // cut sequence
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(Escaped(c.in), c.out) << "input bytes: " << c.in.size();
    }
    CEJSONParseBuffer buffer;
    TJSON_EscapeString(static_cast<const char*>(nullptr), buffer);
    EXPECT_EQ(buffer.GetLength(), 0u);
}

TEST(CEJSONWriter, NoneNodesAndTheirKeysAreLeftOut)
{
    TJSON doc;
    doc.AddInt("a", 1);
    doc.Add("gone", TJSONNone());
    doc.AddInt("z", 2);
    EXPECT_EQ(doc.GetCount(), 3);
    EXPECT_EQ(doc.ToString(), "{\"a\":1,\"z\":2}");
    TJSON list = TJSONArray();
    list.Add(TJSONNone());
    list.AddInt(5);
    list.Add(TJSONNone());
    EXPECT_EQ(list.ToString(), "[5]");
    EXPECT_EQ(TJSONNone().ToString(), "");
}

TEST(CEJSONWriter, TicksText)
{
    EXPECT_EQ(TJSONTicks(1000, 60).GetString(), "/Date(1000+0060)/");
    EXPECT_EQ(TJSONTicks(1000, -60).GetString(), "/Date(1000-0060)/");
    EXPECT_EQ(TJSONTicks(5, 123456).GetString(), "/Date(5+123456)/");
    TJSON doc;
    doc.AddTicks("when", 1234567890123, -330);
    EXPECT_EQ(doc.ToString(), "{\"when\":\"\\/Date(1234567890123-0330)\\/\"}");
    int offset = 0;
    EXPECT_EQ(TJSON(doc.ToString()).GetObject("when").GetTicks(&offset), 1234567890123);
    EXPECT_EQ(offset, -330);
}

TEST(CEJSONWriter, ParseBufferGrowthFollowsTheRule)
{
    CEJSONParseBuffer buffer;
    EXPECT_EQ(buffer.GetCapacity(), 1024u);
    std::string block(1000, 'x');
    buffer.AddToBuffer(block.c_str(), 1000);
    EXPECT_EQ(buffer.GetCapacity(), 1024u);
    buffer.AddToBuffer(block.c_str(), 24);  // 1024 <= 1000 + 24: grows to 2 * 1024 + 2
    EXPECT_EQ(buffer.GetCapacity(), 2050u);
    EXPECT_EQ(buffer.GetLength(), 1024u);
    EXPECT_EQ(buffer.GetText()[1024], '\0');
    buffer.AddFormattingToBuffer("\n");
    EXPECT_TRUE(buffer.LastAdditionWasFormatting());
    buffer.AddToBuffer("y");
    EXPECT_FALSE(buffer.LastAdditionWasFormatting());
}

TEST(CEJSONWriter, DumpSendsOneLogLinePerTextLine)
{
    tidemix::test::LogCapture capture;
    TJSON doc;
    doc.AddInt("a", 1);
    TJSON list = TJSONArray();
    list.AddBool(false);
    doc.Add("b", list);
    doc.Dump("doc");
    doc.Debug();
    const std::vector<std::string> lines = capture.Lines();

    const std::vector<std::string> expected = {
        "doc: {", "doc: \t\"a\":1,", "doc: \t\"b\":", "doc: \t[", "doc: \t\tfalse", "doc: \t]", "doc: }"};
    ASSERT_GE(lines.size(), expected.size() + 1);
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + static_cast<long>(expected.size())),
              expected);
    EXPECT_EQ(lines.size(), 2 * expected.size());
    EXPECT_EQ(lines.back(), "}");
}
