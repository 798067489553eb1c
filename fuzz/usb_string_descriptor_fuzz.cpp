// Feeds arbitrary bytes to the USB string-descriptor decoder, as a device
// may send them, and checks that it never reads beyond what it was given,
// and that what it decodes is valid UTF-8 that encodes back to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/UsbStringDescriptor.h"

namespace
{
void Check(bool condition, const char* what)
{
    if (!condition)
    {
        fprintf(stderr, "usb_string_descriptor_fuzz: %s\n", what);
        abort();
    }
}

bool IsValidUtf8(const std::string& text)
{
    size_t i = 0;
    while (i < text.size())
    {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t extra = 0;
        if (lead >= 0xF0 && lead < 0xF8)
        {
            extra = 3;
        }
        else if (lead >= 0xE0 && lead < 0xF0)
        {
            extra = 2;
        }
        else if (lead >= 0xC0 && lead < 0xE0)
        {
            extra = 1;
        }
        else if (lead >= 0x80)
        {
            return false;
        }
        if (text.size() - i <= extra)
        {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k)
        {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
            {
                return false;
            }
        }
        i += extra + 1;
    }
    return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace tidemix::platform;
    // An exact-size copy, so AddressSanitizer sees any read past the end.
    std::vector<uint8_t> bytes(data, data + size);
    std::string text = "stale";
    const UsbStringDecodeStatus status = DecodeUsbStringDescriptor(bytes.data(), bytes.size(), text);
    if (status != UsbStringDecodeStatus::Ok)
    {
        Check(text.empty(), "a failed decode leaves text behind");
        if (status == UsbStringDecodeStatus::TooShort)
        {
            Check(size < 2 || data[0] < 2, "a long enough descriptor called too short");
        }
        return 0;
    }
    Check(size >= 2 && data[0] >= 2, "decoded a descriptor below two bytes");
    Check(IsValidUtf8(text), "decoded text is not UTF-8");
    Check(text.size() <= 3 * 127, "more text than a descriptor holds");

    // Encoding the text and decoding it again gives the same text.
    const std::string encoded = EncodeUsbStringDescriptor(text);
    std::string again;
    Check(DecodeUsbStringDescriptor(reinterpret_cast<const uint8_t*>(encoded.data()), encoded.size(),
                                    again) == UsbStringDecodeStatus::Ok,
          "an encoded descriptor does not decode");
    Check(again == text, "text changes on the way round");
    return 0;
}
