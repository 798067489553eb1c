#include "portable-core/json/CEJSONTextSupport.h"

#include <locale.h>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "portable-core/json/CEJSONParseBuffer.h"

namespace
{
bool IsContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

locale_t CLocale()
{
    static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

// Bytes that go out as they are: printable ASCII and DEL, but not the three
// that need a backslash.
struct PlainByteTable
{
    bool plain[256] = {};
    PlainByteTable()
    {
        for (int c = 32; c <= 127; ++c)
        {
            plain[c] = true;
        }
        plain[static_cast<unsigned char>('"')] = false;
        plain[static_cast<unsigned char>('/')] = false;
        plain[static_cast<unsigned char>('\\')] = false;
    }
};
const PlainByteTable kPlain;
}  // namespace

size_t CEJSONText_SoundSequenceLength(const unsigned char* text, const unsigned char* end)
{
    unsigned char lead = text[0];
    size_t length;
    unsigned char secondMin = 0x80;
    unsigned char secondMax = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF)
    {
        length = 2;
    }
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        length = 3;
        if (lead == 0xE0)
        {
            secondMin = 0xA0;  // overlong below U+0800
        }
        else if (lead == 0xED)
        {
            secondMax = 0x9F;  // surrogates
        }
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        length = 4;
        if (lead == 0xF0)
        {
            secondMin = 0x90;  // overlong below U+10000
        }
        else if (lead == 0xF4)
        {
            secondMax = 0x8F;  // above U+10FFFF
        }
    }
    else
    {
        return 0;
    }
    if (static_cast<size_t>(end - text) < length)
    {
        return 0;
    }
    if (text[1] < secondMin || text[1] > secondMax)
    {
        return 0;
    }
    for (size_t i = 2; i < length; ++i)
    {
        if (!IsContinuation(text[i]))
        {
            return 0;
        }
    }
    if (text + length < end && IsContinuation(text[length]))
    {
        return 0;
    }
    return length;
}

void CEJSONText_Escape(const char* text, size_t length, CEJSONParseBuffer& buffer)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = p + length;
    while (p < end)
    {
        const unsigned char* run = p;
        while (p < end && kPlain.plain[*p])
        {
            ++p;
        }
        if (p > run)
        {
            buffer.AddToBuffer(reinterpret_cast<const char*>(run), p - run);
        }
        if (p >= end)
        {
            break;
        }
        unsigned char c = *p;
        switch (c)
        {
            case 8:
                buffer.AddToBuffer("\\b", 2);
                ++p;
                continue;
            case 9:
                buffer.AddToBuffer("\\t", 2);
                ++p;
                continue;
            case 10:
                buffer.AddToBuffer("\\n", 2);
                ++p;
                continue;
            case 13:
                buffer.AddToBuffer("\\r", 2);
                ++p;
                continue;
            case '"':
                buffer.AddToBuffer("\\\"", 2);
                ++p;
                continue;
            case '/':
                buffer.AddToBuffer("\\/", 2);
                ++p;
                continue;
            case '\\':
                buffer.AddToBuffer("\\\\", 2);
                ++p;
                continue;
            default:
                break;
        }
        if (c < 32)
        {
            // A NUL inside a string is kept as well, so nothing read is lost.
            static const char kHex[] = "0123456789ABCDEF";
            char escaped[7] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15], '\0'};
            buffer.AddToBuffer(escaped, 6);
            ++p;
            continue;
        }
        size_t sequence = CEJSONText_SoundSequenceLength(p, end);
        if (sequence > 0)
        {
            buffer.AddToBuffer(reinterpret_cast<const char*>(p), static_cast<int64_t>(sequence));
            p += sequence;
        }
        else
        {
            ++p;  // not UTF-8: dropped
        }
    }
}

void CEJSONText_AppendUtf8(unsigned codePoint, std::string& out)
{
    if (codePoint < 0x80)
    {
        out.push_back(static_cast<char>(codePoint));
    }
    else if (codePoint < 0x800)
    {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
    else if (codePoint < 0x10000)
    {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
    else if (codePoint <= 0x10FFFF)
    {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

double CEJSONText_StringToDouble(const char* text)
{
    locale_t locale = CLocale();
    if (locale == static_cast<locale_t>(nullptr))
    {
        return strtod(text, nullptr);
    }
    return strtod_l(text, nullptr, locale);
}

double CEJSONText_TokenToDouble(const char* begin, const char* end)
{
    double value = 0.0;
    auto result = std::from_chars(begin, end, value, std::chars_format::general);
    if (result.ec == std::errc())
    {
        return value;
    }
    if (result.ec == std::errc::result_out_of_range)
    {
        // Overflow gives an infinity and underflow zero or a subnormal, as strtod does.
        std::string token(begin, end);
        return CEJSONText_StringToDouble(token.c_str());
    }
    return 0.0;
}
