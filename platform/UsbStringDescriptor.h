#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tidemix::platform
{

enum class UsbStringDecodeStatus
{
    Ok,
    TooShort,      // fewer than 2 bytes, or bLength below 2
    InvalidUtf16,  // an unpaired surrogate
};

// Decodes a USB string descriptor (bLength, bDescriptorType, UTF-16LE text)
// to UTF-8. Only the bytes that both bLength and size cover are read; an odd
// last byte is dropped. On failure out is left empty.
UsbStringDecodeStatus DecodeUsbStringDescriptor(const uint8_t* data, size_t size, std::string& out);

// Encodes UTF-8 text as a string descriptor (for simulated devices); text
// longer than a descriptor can hold is cut at a character boundary.
std::string EncodeUsbStringDescriptor(const std::string& utf8);

}  // namespace tidemix::platform
