#pragma once

#include <cstdint>
#include <string>

// Checks a firmware file's DFU 1.1 suffix before an update stops anything:
// a file that is damaged or meant for another device is refused while the
// microphone still works. The suffix is the file's last 16 bytes: bcdDevice,
// idProduct, idVendor, bcdDFU, the signature "UFD", bLength and dwCRC, all
// little-endian, dwCRC being the complement of the CRC-32 of every byte
// before it. An id of 0xFFFF fits any device.
class DRMXDfuFileCheck
{
public:
    // Why a file is refused.
    enum class Problem
    {
        None,
        CannotOpen,
        TooShort,      // shorter than the suffix
        BadSignature,  // not "UFD"
        BadLength,     // bLength below 16, or longer than the file
        BadCrc,
        WrongVendor,
        WrongProduct,  // neither the run-time nor the DFU id of the model
    };

    static constexpr size_t kSuffixLength = 16;

    DRMXDfuFileCheck(uint16_t vendorId, uint16_t runtimeProductId, uint16_t dfuProductId);

    Problem Check(const std::string& path) const;

    static const char* Describe(Problem problem);

private:
    uint16_t vendorId;
    uint16_t runtimeProductId;
    uint16_t dfuProductId;
};
