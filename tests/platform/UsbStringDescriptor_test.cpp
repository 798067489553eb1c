#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/UsbStringDescriptor.h"

namespace
{
using tidemix::platform::DecodeUsbStringDescriptor;
using tidemix::platform::EncodeUsbStringDescriptor;
using Status = tidemix::platform::UsbStringDecodeStatus;

TEST(UsbStringDescriptor, DecodesOrSaysWhyNot)
{
    struct Case
    {
        std::vector<uint8_t> bytes;
        Status status;
        std::string text;
    };
    const Case cases[] = {
        {{}, Status::TooShort, ""},
        {{1, 3, 'A', 0}, Status::TooShort, ""},  // a first byte below 2
        {{2, 3}, Status::Ok, ""},
        {{6, 3, 'R', 0, '3', 0}, Status::Ok, "R3"},
        // bLength shorter than the reply: the rest is not text.
        {{4, 3, 'R', 0, '3', 0}, Status::Ok, "R"},
        // bLength longer than the reply, and an odd last byte: only whole units count.
        {{40, 3, 'R', 0, '3'}, Status::Ok, "R"},
        {{6, 3, 0xE9, 0x00, 0xAC, 0x20}, Status::Ok, "\xC3\xA9\xE2\x82\xAC"},  // é €
        {{6, 3, 0x3D, 0xD8, 0x00, 0xDE}, Status::Ok, "\xF0\x9F\x98\x80"},      // a surrogate pair
        {{4, 3, 0x3D, 0xD8}, Status::InvalidUtf16, ""},                        // high surrogate alone
        {{6, 3, 0x00, 0xDE, 'A', 0}, Status::InvalidUtf16, ""},                // low surrogate first
        {{6, 3, 0x3D, 0xD8, 'A', 0}, Status::InvalidUtf16, ""},                // high, then no low
    };
    for (const Case& c : cases)
    {
        std::string text = "stale";
        EXPECT_EQ(DecodeUsbStringDescriptor(c.bytes.data(), c.bytes.size(), text), c.status)
            << c.bytes.size();
        EXPECT_EQ(text, c.text);
    }
    std::string text = "stale";
    EXPECT_EQ(DecodeUsbStringDescriptor(nullptr, 8, text), Status::TooShort);
    EXPECT_EQ(text, "");
}

TEST(UsbStringDescriptor, EncodesWhatDecodesBack)
{
    for (const std::string& text :
         {std::string(), std::string("RE3-0042"), std::string("\xC3\xA9\xF0\x9F\x98\x80")})
    {
        const std::string descriptor = EncodeUsbStringDescriptor(text);
        EXPECT_EQ(static_cast<uint8_t>(descriptor[0]), descriptor.size());
        EXPECT_EQ(descriptor[1], 3);
        std::string back;
        ASSERT_EQ(DecodeUsbStringDescriptor(reinterpret_cast<const uint8_t*>(descriptor.data()),
                                            descriptor.size(), back),
                  Status::Ok);
        EXPECT_EQ(back, text);
    }
    // Too long for one descriptor: cut whole, never inside a character.
    const std::string descriptor = EncodeUsbStringDescriptor(std::string(300, 'x'));
    EXPECT_EQ(descriptor.size(), 254u);
}
}  // namespace
