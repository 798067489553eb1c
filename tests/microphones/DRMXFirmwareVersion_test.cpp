#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "microphones/DRMXFirmwareVersion.h"
#include "support/PortableCoreTestFolder.h"

namespace
{
TEST(DRMXFirmwareVersion, TextShowsTheThreeNibbles)
{
    EXPECT_EQ(DRMXFirmwareVersion(0x110).ToString(), "1.1.0");
    EXPECT_EQ(DRMXFirmwareVersion(0xABC).ToString(), "a.b.c");
}

TEST(DRMXFirmwareVersion, ReadFromTheFilesHead)
{
    PortableCoreTestFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    struct Case
    {
        const char* name;
        std::vector<uint8_t> bytes;
        int64_t version;
    };
    const Case cases[] = {
        {"low nibbles of 6, 8, 10", {0, 0, 0, 0, 0, 0, 0x21, 0xFF, 0x13, 0xFF, 0x05, 0xFF, 0x77}, 0x135},
        {"high nibbles ignored", {0, 0, 0, 0, 0, 0, 0xF0, 0, 0xE0, 0, 0xDF}, 0x00F},
        {"short file", {0, 0, 0, 0, 0, 0, 0x02, 0, 0x03}, 0x230},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = folder.Child("firmware.dfu");
        std::ofstream(path, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(c.bytes.data()),
                   static_cast<std::streamsize>(c.bytes.size()));
        EXPECT_EQ(DRMXFirmwareVersion::FromFile(path).Get(), c.version);
    }
    EXPECT_EQ(DRMXFirmwareVersion::FromFile(folder.Child("missing.dfu")).Get(), 0);
}
}  // namespace
