#include "platform/UsbStringDescriptor.h"

#include <algorithm>
#include <vector>

namespace tidemix::platform
{
namespace
{
void AppendUtf8(uint32_t codePoint, std::string& out)
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
    else
    {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

// The code points of UTF-8 text; a malformed sequence gives U+FFFD for its lead byte.
std::vector<uint32_t> CodePoints(const std::string& utf8)
{
    std::vector<uint32_t> points;
    size_t i = 0;
    while (i < utf8.size())
    {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        size_t extra = 0;
        uint32_t point = lead;
        if (lead >= 0xF0 && lead < 0xF8)
        {
            extra = 3;
            point = lead & 0x07;
        }
        else if (lead >= 0xE0 && lead < 0xF0)
        {
            extra = 2;
            point = lead & 0x0F;
        }
        else if (lead >= 0xC0 && lead < 0xE0)
        {
            extra = 1;
            point = lead & 0x1F;
        }
        else if (lead >= 0x80)
        {
            points.push_back(0xFFFD);
            ++i;
            continue;
        }
        bool good = i + extra < utf8.size();
        for (size_t k = 1; good && k <= extra; ++k)
        {
            const auto next = static_cast<unsigned char>(utf8[i + k]);
            good = (next & 0xC0) == 0x80;
            point = (point << 6) | (next & 0x3F);
        }
        good = good && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
        points.push_back(good ? point : 0xFFFD);
        i += good ? extra + 1 : 1;
    }
    return points;
}
}  // namespace

UsbStringDecodeStatus DecodeUsbStringDescriptor(const uint8_t* data, size_t size, std::string& out)
{
    out.clear();
    if (data == nullptr || size < 2 || data[0] < 2)
    {
        return UsbStringDecodeStatus::TooShort;
    }
    const size_t end = std::min<size_t>(data[0], size);
    std::string text;
    for (size_t i = 2; i + 1 < end; i += 2)
    {
        uint32_t unit = data[i] | (data[i + 1] << 8);
        if (unit >= 0xDC00 && unit <= 0xDFFF)
        {
            return UsbStringDecodeStatus::InvalidUtf16;
        }
        if (unit >= 0xD800 && unit <= 0xDBFF)
        {
            if (i + 3 >= end)
            {
                return UsbStringDecodeStatus::InvalidUtf16;
            }
            const uint32_t low = data[i + 2] | (data[i + 3] << 8);
            if (low < 0xDC00 || low > 0xDFFF)
            {
                return UsbStringDecodeStatus::InvalidUtf16;
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        }
        AppendUtf8(unit, text);
    }
    out = std::move(text);
    return UsbStringDecodeStatus::Ok;
}

std::string EncodeUsbStringDescriptor(const std::string& utf8)
{
    std::string descriptor(2, '\0');
    for (uint32_t point : CodePoints(utf8))
    {
        const size_t units = point >= 0x10000 ? 2 : 1;
        if (descriptor.size() + 2 * units > 254)
        {
            break;
        }
        auto put = [&](uint32_t unit)
        {
            descriptor.push_back(static_cast<char>(unit & 0xFF));
            descriptor.push_back(static_cast<char>(unit >> 8));
        };
        if (units == 2)
        {
            put(0xD800 + ((point - 0x10000) >> 10));
            put(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
        else
        {
            put(point);
        }
    }
    descriptor[0] = static_cast<char>(descriptor.size());
    descriptor[1] = 3;
    return descriptor;
}

}  // namespace tidemix::platform
