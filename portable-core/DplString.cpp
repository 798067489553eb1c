#include "portable-core/DplString.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{
constexpr size_t kScratchBytes = 4096;

// Converts into `out`; returns the output length or -1.
long ConvertWithIconv(const char* src, size_t length, const char* fromCode, const char* toCode, char* out,
                      size_t outSize)
{
    if (fromCode == nullptr || toCode == nullptr)
    {
        return -1;
    }
    iconv_t cd = iconv_open(toCode, fromCode);
    if (cd == reinterpret_cast<iconv_t>(-1))
    {
        return -1;
    }
    char* in = const_cast<char*>(src);
    size_t inLeft = length;
    char* outPtr = out;
    size_t outLeft = outSize;
    size_t done = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    if (done != static_cast<size_t>(-1))
    {
        // Flush any shift state.
        done = iconv(cd, nullptr, nullptr, &outPtr, &outLeft);
    }
    iconv_close(cd);
    if (done == static_cast<size_t>(-1) || inLeft != 0)
    {
        return -1;
    }
    return static_cast<long>(outSize - outLeft);
}

size_t SourceLength(const char* src, int length)
{
    return length < 0 ? strlen(src) : static_cast<size_t>(length);
}

void CopyAsText(const char* src, size_t length, void* dest, int destSize)
{
    if (dest == nullptr || destSize <= 0)
    {
        return;
    }
    char* out = static_cast<char*>(dest);
    size_t n = src == nullptr ? 0 : strnlen(src, length);
    n = std::min(n, static_cast<size_t>(destSize) - 1);
    if (n > 0)
    {
        memcpy(out, src, n);
    }
    out[n] = '\0';
}

bool IsContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}
}  // namespace

char* safe_strcat(char* dest, int size, const char* src)
{
    if (dest == nullptr || size <= 0 || src == nullptr)
    {
        return dest;
    }
    const size_t capacity = static_cast<size_t>(size);
    const size_t used = strnlen(dest, capacity);
    if (used >= capacity)
    {
        dest[capacity - 1] = '\0';
        return dest;
    }
    const size_t room = capacity - used - 1;
    const size_t n = std::min(room, strlen(src));
    memcpy(dest + used, src, n);
    dest[used + n] = '\0';
    return dest;
}

bool DplString_ConvertString_Iconv(const char* src, int length, const char* fromCode, void* dest,
                                   int destSize, const char* toCode)
{
    if (src == nullptr)
    {
        CopyAsText("", 0, dest, destSize);
        return false;
    }
    const size_t srcLength = SourceLength(src, length);
    char scratch[kScratchBytes];
    const long produced = ConvertWithIconv(src, srcLength, fromCode, toCode, scratch, sizeof(scratch));
    if (produced < 0 || dest == nullptr || destSize <= 0)
    {
        CopyAsText(src, srcLength, dest, destSize);
        return false;
    }
    const size_t n = std::min(static_cast<size_t>(produced), static_cast<size_t>(destSize));
    memcpy(dest, scratch, n);
    memset(static_cast<char*>(dest) + n, 0, static_cast<size_t>(destSize) - n);
    return true;
}

bool DplString_ConvertString2(const char* src, int length, const char* fromCode, void* dest, int destSize,
                              const char* toCode)
{
    return DplString_ConvertString_Iconv(src, length, fromCode, dest, destSize, toCode);
}

bool DplString_ConvertString(const char* src, int length, const char* fromCode, std::string& dest,
                             const char* toCode)
{
    dest.clear();
    if (src == nullptr)
    {
        return false;
    }
    const size_t srcLength = SourceLength(src, length);
    std::string temporary(srcLength * 4 + 4, '\0');
    const long produced =
        ConvertWithIconv(src, srcLength, fromCode, toCode, temporary.data(), temporary.size());
    if (produced < 0)
    {
        return false;
    }
    temporary.resize(static_cast<size_t>(produced));
    dest = std::move(temporary);
    return true;
}

bool DplString_IsValidUtf8(const char* text, size_t length)
{
    if (length == 0)
    {
        return true;
    }
    if (text == nullptr)
    {
        return false;
    }
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    size_t i = 0;
    while (i < length)
    {
        const unsigned char lead = p[i];
        if (lead < 0x80)
        {
            ++i;
            continue;
        }
        size_t extra = 0;
        uint32_t code = 0;
        uint32_t minimum = 0;
        if (lead >= 0xC2 && lead <= 0xDF)
        {
            extra = 1;
            code = lead & 0x1F;
            minimum = 0x80;
        }
        else if ((lead & 0xF0) == 0xE0)
        {
            extra = 2;
            code = lead & 0x0F;
            minimum = 0x800;
        }
        else if (lead >= 0xF0 && lead <= 0xF4)
        {
            extra = 3;
            code = lead & 0x07;
            minimum = 0x10000;
        }
        else
        {
            return false;  // stray continuation byte, 0xC0/0xC1 or a lead above 0xF4
        }
        if (length - i <= extra)
        {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k)
        {
            if (!IsContinuation(p[i + k]))
            {
                return false;
            }
            code = (code << 6) | (p[i + k] & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        {
            return false;
        }
        i += extra + 1;
    }
    return true;
}

char* DplString_Duplicate(const char* text)
{
    if (text == nullptr)
    {
        return nullptr;
    }
    const size_t n = strlen(text) + 1;
    auto* copy = static_cast<char*>(malloc(n));
    if (copy != nullptr)
    {
        memcpy(copy, text, n);
    }
    return copy;
}

std::string DplString_GetRFC3986URLEncodedString(const std::string& text)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (const char ch : text)
    {
        const auto c = static_cast<unsigned char>(ch);
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                                c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved)
        {
            out.push_back(ch);
        }
        else
        {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 0x0F]);
        }
    }
    return out;
}

std::vector<std::string> DplString_Split(const std::string& text, const std::string& delimiter)
{
    std::vector<std::string> pieces;
    if (delimiter.empty())
    {
        pieces.push_back(text);
        return pieces;
    }
    size_t start = 0;
    for (;;)
    {
        const size_t found = text.find(delimiter, start);
        if (found == std::string::npos)
        {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, found - start));
        start = found + delimiter.size();
    }
}

std::string DplString_Merge(const std::vector<std::string>& pieces, const std::string& delimiter)
{
    std::string out;
    for (const std::string& piece : pieces)
    {
        if (!out.empty())
        {
            out += delimiter;
        }
        out += piece;
    }
    return out;
}

std::string DplString_ReplaceFirstOccurrence(const std::string& text, const std::string& what,
                                             const std::string& with)
{
    if (what.empty())
    {
        return text;
    }
    std::string out = text;
    const size_t found = out.find(what);
    if (found != std::string::npos)
    {
        out.replace(found, what.size(), with);
    }
    return out;
}

std::string DplString_ReplaceAllOccurrences(const std::string& text, const std::string& what,
                                            const std::string& with)
{
    if (what.empty())
    {
        return text;
    }
    std::string out = text;
    size_t position = 0;
    while ((position = out.find(what, position)) != std::string::npos)
    {
        out.replace(position, what.size(), with);
        position += with.size();
    }
    return out;
}

bool DplString_HasPrefix(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0 && text.size() >= prefix.size();
}

bool DplString_HasSuffix(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool DplString_Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}
