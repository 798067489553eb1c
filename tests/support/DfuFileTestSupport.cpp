#include "support/DfuFileTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace tidemix::test
{

std::vector<uint8_t> ReadAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string MakeDfuFile(const PortableCoreTestFolder& folder, const std::string& name, size_t size,
                        uint16_t vendor, uint16_t product, uint16_t version)
{
    EXPECT_EQ(std::system("command -v dfu-suffix >/dev/null 2>&1"), 0)
        << "dfu-suffix is missing: install the package dfu-util (scripts/setup-debian.sh)";
    std::vector<uint8_t> image(size);
    for (size_t i = 0; i < size; ++i)
    {
        image[i] = static_cast<uint8_t>(i * 13 + 5);
    }
    if (size > 10)
    {
        image[6] = static_cast<uint8_t>((version >> 8) & 0x0F);
        image[8] = static_cast<uint8_t>((version >> 4) & 0x0F);
        image[10] = static_cast<uint8_t>(version & 0x0F);
    }
    const std::string path = folder.Child(name);
    WriteAll(path, image);
    char command[512];
    std::snprintf(command, sizeof(command),
                  "dfu-suffix -v 0x%04x -p 0x%04x -d 0x0110 -a '%s' >/dev/null 2>&1", vendor, product,
                  path.c_str());
    EXPECT_EQ(std::system(command), 0) << command;
    return path;
}

}  // namespace tidemix::test
