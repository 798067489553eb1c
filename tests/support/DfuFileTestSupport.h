#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/PortableCoreTestFolder.h"

namespace tidemix::test
{

std::vector<uint8_t> ReadAll(const std::string& path);
void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes);

// An image of `size` bytes (a pattern, with the version's three nibbles at
// bytes 6, 8 and 10 when the image is long enough) and the suffix Debian's
// dfu-suffix adds for these ids: a file made by a tool nobody here wrote.
std::string MakeDfuFile(const PortableCoreTestFolder& folder, const std::string& name, size_t size,
                        uint16_t vendor, uint16_t product, uint16_t version = 0x135);

}  // namespace tidemix::test
