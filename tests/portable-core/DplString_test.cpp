#include "portable-core/DplString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace
{
bool Valid(std::initializer_list<unsigned char> bytes)
{
    const std::string text(bytes.begin(), bytes.end());
    return DplString_IsValidUtf8(text.data(), text.size());
}

TEST(DplStringUtf8, StrictCheckRejectsMalformedSequences)
{
    EXPECT_TRUE(DplString_IsValidUtf8("", 0));
    EXPECT_TRUE(DplString_IsValidUtf8(nullptr, 0));
    EXPECT_TRUE(Valid({'a', 'b'}));
    EXPECT_TRUE(Valid({0xC3, 0xA9}));              // é
    EXPECT_TRUE(Valid({0xE2, 0x82, 0xAC}));        // €
    EXPECT_TRUE(Valid({0xF0, 0x90, 0x80, 0x80}));  // U+10000
    EXPECT_TRUE(Valid({0xF4, 0x8F, 0xBF, 0xBF}));  // U+10FFFF
    EXPECT_TRUE(Valid({0xED, 0x9F, 0xBF}));        // U+D7FF, just below the surrogates

    EXPECT_FALSE(Valid({0xED, 0xA0, 0x80}));        // a surrogate
    EXPECT_FALSE(Valid({0xC0, 0x80}));              // overlong NUL
    EXPECT_FALSE(Valid({0xC1, 0xBF}));              // overlong
    EXPECT_FALSE(Valid({0xE0, 0x9F, 0xBF}));        // three bytes below U+0800
    EXPECT_FALSE(Valid({0xF0, 0x8F, 0xBF, 0xBF}));  // four bytes below U+10000
    EXPECT_FALSE(Valid({0xF4, 0x90, 0x80, 0x80}));  // above U+10FFFF
    EXPECT_FALSE(Valid({0xF8, 0x88, 0x80, 0x80, 0x80}));
    EXPECT_FALSE(Valid({0x80}));             // stray continuation
    EXPECT_FALSE(Valid({'a', 0xC3}));        // cut short at the end
    EXPECT_FALSE(Valid({0xE2, 0x82, 'x'}));  // continuation missing
    EXPECT_FALSE(Valid({0xFF}));
}

TEST(DplStringIconv, ConvertsAndFallsBackToTheSourceText)
{
    char out[16];
    memset(out, 'z', sizeof(out));
    // "é" from Latin-1 to UTF-8; the rest of the destination is zeroed.
    ASSERT_TRUE(DplString_ConvertString2("\xE9", 1, "ISO-8859-1", out, sizeof(out), "UTF-8"));
    EXPECT_EQ(std::string(out), "\xC3\xA9");
    EXPECT_EQ(out[15], '\0');

    EXPECT_FALSE(DplString_ConvertString_Iconv("abc", 3, "NO-SUCH-CODE", out, sizeof(out), "UTF-8"));
    EXPECT_STREQ(out, "abc");
    // Invalid input for the source code: the text itself stands in.
    EXPECT_FALSE(DplString_ConvertString_Iconv("a\xFF", -1, "UTF-8", out, sizeof(out), "UTF-16LE"));
    EXPECT_STREQ(out, "a\xFF");

    // More than the scratch buffer holds.
    const std::string big(3000, 'x');
    std::vector<char> wide(9000);
    EXPECT_FALSE(DplString_ConvertString2(big.c_str(), static_cast<int>(big.size()), "UTF-8", wide.data(),
                                          static_cast<int>(wide.size()), "UTF-32LE"));

    std::string converted = "old";
    ASSERT_TRUE(DplString_ConvertString("A\xC3\xA9", -1, "UTF-8", converted, "UTF-16LE"));
    EXPECT_EQ(converted, std::string("A\0\xE9\0", 4));
    EXPECT_FALSE(DplString_ConvertString("\xFF", -1, "UTF-8", converted, "UTF-16LE"));
    EXPECT_TRUE(converted.empty());
}

TEST(DplStringText, SafeStrcatSplitMergeAndReplace)
{
    char text[8] = "abc";
    safe_strcat(text, sizeof(text), "defghij");
    EXPECT_STREQ(text, "abcdefg");
    safe_strcat(text, sizeof(text), "x");
    EXPECT_STREQ(text, "abcdefg");
    char* copy = DplString_Duplicate("dup");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "dup");
    free(copy);
    EXPECT_EQ(DplString_Duplicate(nullptr), nullptr);

    EXPECT_EQ(DplString_Split("a,b,,c,", ","), (std::vector<std::string>{"a", "b", "", "c", ""}));
    EXPECT_EQ(DplString_Split("a--b", "--"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(DplString_Split("abc", ""), (std::vector<std::string>{"abc"}));
    EXPECT_EQ(DplString_Split("", ","), (std::vector<std::string>{""}));

    EXPECT_EQ(DplString_Merge({"a", "b", "c"}, "/"), "a/b/c");
    EXPECT_EQ(DplString_Merge({"", "b", "c"}, "/"), "b/c");
    EXPECT_EQ(DplString_Merge({}, "/"), "");

    EXPECT_EQ(DplString_ReplaceFirstOccurrence("aXbXc", "X", "--"), "a--bXc");
    EXPECT_EQ(DplString_ReplaceAllOccurrences("aXbXc", "X", "--"), "a--b--c");
    // The scan goes on behind what was put in, so this ends.
    EXPECT_EQ(DplString_ReplaceAllOccurrences("aa", "a", "aa"), "aaaa");
    EXPECT_EQ(DplString_ReplaceAllOccurrences("abc", "", "x"), "abc");

    EXPECT_TRUE(DplString_HasPrefix("prefix", "pre"));
    EXPECT_FALSE(DplString_HasPrefix("pr", "pre"));
    EXPECT_TRUE(DplString_HasSuffix("file.log", ".log"));
    EXPECT_FALSE(DplString_HasSuffix("g", ".log"));
    EXPECT_TRUE(DplString_Contains("abc", "b"));
    EXPECT_FALSE(DplString_Contains("abc", "d"));
    // URL encoding keeps only unreserved bytes.
    EXPECT_EQ(DplString_GetRFC3986URLEncodedString("Az09-._~"), "Az09-._~");
    EXPECT_EQ(DplString_GetRFC3986URLEncodedString("a b/c?"), "a%20b%2Fc%3F");
    EXPECT_EQ(DplString_GetRFC3986URLEncodedString("\xC3\xA9"), "%C3%A9");
}
}  // namespace
