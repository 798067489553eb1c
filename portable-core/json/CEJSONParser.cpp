#include "portable-core/json/CEJSONParser.h"

#include <cstdint>
#include <cstring>

#include "portable-core/json/CEJSON.h"
#include "portable-core/json/CEJSONTextSupport.h"

namespace
{
bool IsWhiteSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool EndsInteger(char c)
{
    return c == '\0' || IsWhiteSpace(c) || c == ',' || c == '}' || c == ']';
}

// A number token this long is no sensible number; it reads as 0.
constexpr size_t kMaxNumberToken = 64;
}  // namespace

void CEJSONParser::SkipWhiteSpace()
{
    while (IsWhiteSpace(*p_))
    {
        ++p_;
    }
}

CEJSON* CEJSONParser::ParseValue(int depth)
{
    SkipWhiteSpace();
    char c = *p_;
    if (c == '"')
    {
        std::string text;
        ParseString(text);
        return new CEJSONString(std::move(text));
    }
    if (IsDigit(c) || c == '-')
    {
        return ParseNumber();
    }
    if (c == '[' || c == '{')
    {
        if (depth >= kCEJSONMaxNestingDepth)
        {
            return nullptr;  // too deep: ends every open container here
        }
        return c == '[' ? ParseArray(depth + 1) : ParseObject(depth + 1);
    }
    struct Keyword
    {
        const char* text;
        size_t length;
        int kind;
    };
    static const Keyword kKeywords[] = {{"true", 4, 1},  {"TRUE", 4, 1}, {"false", 5, 0},
                                        {"FALSE", 5, 0}, {"null", 4, 2}, {"NULL", 4, 2}};
    for (const Keyword& keyword : kKeywords)
    {
        if (strncmp(p_, keyword.text, keyword.length) == 0)
        {
            p_ += keyword.length;
            if (keyword.kind == 2)
            {
                return new CEJSONNull();
            }
            return new CEJSONBool(keyword.kind == 1);
        }
    }
    return nullptr;
}

CEJSON* CEJSONParser::ParseNumber()
{
    const char* start = p_;
    const char* q = p_;
    bool negative = false;
    if (*q == '-')
    {
        negative = true;
        ++q;
    }
    const uint64_t limit = negative ? (uint64_t{1} << 63) : UINT64_MAX;
    uint64_t accumulator = 0;
    while (IsDigit(*q))
    {
        uint64_t digit = static_cast<uint64_t>(*q - '0');
        if (accumulator > 0x1999999999999999ull || accumulator * 10 > limit - digit)
        {
            break;  // would not fit: read as a double below
        }
        accumulator = accumulator * 10 + digit;
        ++q;
    }
    if (EndsInteger(*q))
    {
        if (negative || accumulator <= static_cast<uint64_t>(INT64_MAX))
        {
            p_ = q;
            int64_t value =
                negative ? static_cast<int64_t>(0 - accumulator) : static_cast<int64_t>(accumulator);
            return new CEJSONInt(value);
        }
        // Above the signed range: kept by magnitude as a double rather than wrapped.
    }

    q = start;
    if (*q == '-')
    {
        ++q;
    }
    bool seenPoint = false;
    while (IsDigit(*q) || (*q == '.' && !seenPoint))
    {
        seenPoint = seenPoint || *q == '.';
        ++q;
    }
    if (*q == 'e' || *q == 'E')
    {
        ++q;
        if (*q == '+' || *q == '-')
        {
            ++q;
        }
        while (IsDigit(*q))
        {
            ++q;
        }
    }
    p_ = q;
    size_t length = static_cast<size_t>(q - start);
    if (length >= kMaxNumberToken)
    {
        return new CEJSONDouble(0.0);
    }
    return new CEJSONDouble(CEJSONText_TokenToDouble(start, q));
}

unsigned CEJSONParser::ReadHexQuad()
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i)
    {
        char c = *p_;
        if (c == '\0')
        {
            value <<= 4 * (4 - i);
            return value;  // the text ends inside the escape
        }
        unsigned digit = 0;
        if (c >= '0' && c <= '9')
        {
            digit = static_cast<unsigned>(c - '0');
        }
        else if (c >= 'a' && c <= 'f')
        {
            digit = static_cast<unsigned>(c - 'a' + 10);
        }
        else if (c >= 'A' && c <= 'F')
        {
            digit = static_cast<unsigned>(c - 'A' + 10);
        }
        value = (value << 4) | digit;
        ++p_;
    }
    return value;
}

void CEJSONParser::ParseUnicodeEscape(std::string& out)
{
    unsigned unit = ReadHexQuad();
    if (unit >= 0xD800 && unit <= 0xDBFF)
    {
        // A high surrogate joins the low one of the next escape into one code point.
        if (p_[0] == '\\' && p_[1] == 'u')
        {
            const char* back = p_;
            p_ += 2;
            unsigned low = ReadHexQuad();
            if (low >= 0xDC00 && low <= 0xDFFF)
            {
                CEJSONText_AppendUtf8(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), out);
                return;
            }
            p_ = back;  // not a pair: the next escape stands on its own
        }
        return;  // a lone surrogate has no UTF-8 form
    }
    if (unit >= 0xDC00 && unit <= 0xDFFF)
    {
        return;
    }
    CEJSONText_AppendUtf8(unit, out);
}

bool CEJSONParser::ParseString(std::string& out)
{
    SkipWhiteSpace();
    if (*p_ != '"')
    {
        return false;
    }
    ++p_;
    for (;;)
    {
        const char* run = p_;
        while (static_cast<unsigned char>(*p_) >= 0x20 && static_cast<unsigned char>(*p_) < 0x80 &&
               *p_ != '"' && *p_ != '\\')
        {
            ++p_;
        }
        // Control bytes are taken as they stand: the reader is lenient.
        while (*p_ != '\0' && static_cast<unsigned char>(*p_) < 0x20)
        {
            ++p_;
        }
        out.append(run, static_cast<size_t>(p_ - run));
        char c = *p_;
        if (c == '\0')
        {
            return true;  // unterminated: keep what was read
        }
        if (c == '"')
        {
            ++p_;
            return true;
        }
        if (c == '\\')
        {
            ++p_;
            char escaped = *p_;
            switch (escaped)
            {
                case '\\':
                case '"':
                case '/':
                    out.push_back(escaped);
                    ++p_;
                    break;
                case 'b':
                    out.push_back('\b');
                    ++p_;
                    break;
                case 'n':
                    out.push_back('\n');
                    ++p_;
                    break;
                case 'r':
                    out.push_back('\r');
                    ++p_;
                    break;
                case 't':
                    out.push_back('\t');
                    ++p_;
                    break;
                case 'u':
                    ++p_;
                    ParseUnicodeEscape(out);
                    break;
                case '\0':
                    return true;
                default:
                    ++p_;  // unknown escape: adds nothing
                    break;
            }
            continue;
        }
        if (static_cast<unsigned char>(c) >= 0x80)
        {
            const unsigned char* at = reinterpret_cast<const unsigned char*>(p_);
            const unsigned char* end = at + strnlen(p_, 5);
            size_t sequence = CEJSONText_SoundSequenceLength(at, end);
            if (sequence > 0)
            {
                out.append(p_, sequence);
                p_ += sequence;
            }
            else
            {
                ++p_;  // not UTF-8: dropped
            }
        }
    }
}

CEJSON* CEJSONParser::ParseObject(int depth)
{
    CEJSONObject* object = new CEJSONObject();
    SkipWhiteSpace();
    if (*p_ != '{')
    {
        return object;
    }
    ++p_;
    for (;;)
    {
        std::string key;
        if (!ParseString(key))
        {
            // "{}" and a comma before "}" end here; the brace is taken so
            // that the container around goes on.
            if (*p_ == '}')
            {
                ++p_;
            }
            break;
        }
        SkipWhiteSpace();
        if (*p_ != ':')
        {
            break;
        }
        ++p_;
        CEJSON* value = ParseValue(depth);
        if (value == nullptr)
        {
            break;
        }
        object->AdoptValue(std::move(key), value);
        SkipWhiteSpace();
        if (*p_ == ',')
        {
            ++p_;
            continue;
        }
        if (*p_ == '}')
        {
            ++p_;
        }
        break;
    }
    return object;
}

CEJSON* CEJSONParser::ParseArray(int depth)
{
    CEJSONArray* array = new CEJSONArray();
    SkipWhiteSpace();
    if (*p_ != '[')
    {
        return array;
    }
    ++p_;
    for (;;)
    {
        CEJSON* value = ParseValue(depth);
        if (value == nullptr)
        {
            SkipWhiteSpace();
            if (*p_ == ']')
            {
                ++p_;
            }
            break;
        }
        array->AdoptItem(value);
        SkipWhiteSpace();
        if (*p_ == ',')
        {
            ++p_;
            continue;
        }
        if (*p_ == ']')
        {
            ++p_;
        }
        break;
    }
    return array;
}

CEJSON* CEJSON::CreateObject(const char* text)
{
    if (text == nullptr)
    {
        return new CEJSONObject();
    }
    CEJSONParser parser(text);
    return parser.ParseObject(1);
}

CEJSON* CEJSON::CreateArrayObject(const char* text)
{
    if (text == nullptr)
    {
        return new CEJSONArray();
    }
    CEJSONParser parser(text);
    return parser.ParseArray(1);
}
