#include "microphones/DRMXDfuFileCheck.h"

#include <zlib.h>

#include <array>
#include <fstream>
#include <vector>

namespace
{
constexpr uint16_t kAnyId = 0xFFFF;
// The CRC runs over the file in pieces of this size, whatever the file's size.
constexpr size_t kCrcChunk = 64 * 1024;

uint16_t Le16(const uint8_t* bytes)
{
    return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

uint32_t Le32(const uint8_t* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
           (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

// The CRC-32 of the file's first `count` bytes, or false if they can't be read.
bool Crc32OfHead(std::ifstream& file, uint64_t count, uint32_t& crc)
{
    file.seekg(0);
    std::vector<char> chunk(kCrcChunk);
    uLong value = crc32(0L, Z_NULL, 0);
    while (count > 0)
    {
        const size_t piece = count < kCrcChunk ? static_cast<size_t>(count) : kCrcChunk;
        if (!file.read(chunk.data(), static_cast<std::streamsize>(piece)))
        {
            return false;
        }
        value = crc32(value, reinterpret_cast<const Bytef*>(chunk.data()), static_cast<uInt>(piece));
        count -= piece;
    }
    crc = static_cast<uint32_t>(value);
    return true;
}
}  // namespace

DRMXDfuFileCheck::DRMXDfuFileCheck(uint16_t vendorId, uint16_t runtimeProductId, uint16_t dfuProductId)
    : vendorId(vendorId), runtimeProductId(runtimeProductId), dfuProductId(dfuProductId)
{
}

DRMXDfuFileCheck::Problem DRMXDfuFileCheck::Check(const std::string& path) const
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file)
    {
        return Problem::CannotOpen;
    }
    const std::streamoff end = file.tellg();
    if (end < 0)
    {
        return Problem::CannotOpen;
    }
    const uint64_t size = static_cast<uint64_t>(end);
    if (size < kSuffixLength)
    {
        return Problem::TooShort;
    }
    std::array<uint8_t, kSuffixLength> suffix{};
    file.seekg(static_cast<std::streamoff>(size - kSuffixLength));
    if (!file.read(reinterpret_cast<char*>(suffix.data()), suffix.size()))
    {
        return Problem::CannotOpen;
    }
    const uint8_t* s = suffix.data();
    if (s[8] != 'U' || s[9] != 'F' || s[10] != 'D')
    {
        return Problem::BadSignature;
    }
    const uint8_t length = s[11];
    if (length < kSuffixLength || length > size)
    {
        return Problem::BadLength;
    }
    uint32_t crc = 0;
    if (!Crc32OfHead(file, size - 4, crc))
    {
        return Problem::CannotOpen;
    }
    if (Le32(s + 12) != static_cast<uint32_t>(~crc))
    {
        return Problem::BadCrc;
    }
    const uint16_t fileVendor = Le16(s + 4);
    if (fileVendor != kAnyId && fileVendor != vendorId)
    {
        return Problem::WrongVendor;
    }
    const uint16_t fileProduct = Le16(s + 2);
    if (fileProduct != kAnyId && fileProduct != runtimeProductId && fileProduct != dfuProductId)
    {
        return Problem::WrongProduct;
    }
    return Problem::None;
}

const char* DRMXDfuFileCheck::Describe(Problem problem)
{
    switch (problem)
    {
        case Problem::None:
            return "valid";
        case Problem::CannotOpen:
            return "the file can't be read";
        case Problem::TooShort:
            return "the file is shorter than a DFU suffix";
        case Problem::BadSignature:
            return "the DFU suffix has no \"UFD\" signature";
        case Problem::BadLength:
            return "the DFU suffix's length is wrong";
        case Problem::BadCrc:
            return "the file's CRC doesn't match its DFU suffix";
        case Problem::WrongVendor:
            return "the file is for another vendor's device";
        case Problem::WrongProduct:
            return "the file is for another product";
    }
    return "unknown";
}
