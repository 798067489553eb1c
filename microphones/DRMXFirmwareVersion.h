#pragma once

#include <cstdint>
#include <string>

// A microphone's firmware version: 12 bits in three nibbles, major in bits
// 8 to 11, minor in bits 4 to 7, patch in bits 0 to 3 (0x110 is 1.1.0).
class DRMXFirmwareVersion
{
public:
    static constexpr int64_t Unknown = -1;

    constexpr DRMXFirmwareVersion(int64_t version = 0) : version(version) {}

    constexpr int64_t Get() const { return version; }
    constexpr operator int64_t() const { return version; }

    // "major.minor.patch", each nibble in hexadecimal.
    std::string ToString() const;

    // The version in a .dfu file's bytes 6, 8 and 10 (low nibbles: major,
    // minor, patch); 0 if the file can't be opened. Bytes the file doesn't
    // have count as 0.
    static DRMXFirmwareVersion FromFile(const std::string& path);

private:
    int64_t version;
};
