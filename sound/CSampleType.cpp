#include "sound/CSampleType.h"

#include <cstring>

#include "sound/StoredSampleTypes.h"

namespace
{
constexpr const char* kNames[25] = {
    "unknown",
    "8 bit",
    "16 bit",
    "24 bit",
    "24 bit (wide)",
    "32 bit",
    "32 bit FP",
    "64 bit FP",
    "8 bit unsigned",
    "16 bit unsigned",
    "24 bit unsigned",
    "24 bit unsigned (wide)",
    "32 bit unsigned",
    "8 bit swapped",
    "16 bit swapped",
    "24 bit swapped",
    "24 bit (wide) swapped",
    "32 bit swapped",
    "32 bit FP swapped",
    "64 bit FP swapped",
    "8 bit unsigned swapped",
    "16 bit unsigned swapped",
    "24 bit unsigned swapped",
    "24 bit unsigned (wide) swapped",
    "32 bit unsigned swapped",
};

struct TypeName
{
    const char* name;
    int32_t type;
};

// `char` and `signed char` both name the signed 8-bit format, whatever the
// platform's signedness of char.
const TypeName kStoredTypes[] = {
    {typeid(char).name(), CSampleType::kSigned8},
    {typeid(signed char).name(), CSampleType::kSigned8},
    {typeid(short).name(), CSampleType::kSigned16},
    {typeid(Packed24).name(), CSampleType::kPacked24},
    {typeid(Wide24).name(), CSampleType::kWide24},
    {typeid(int).name(), CSampleType::kSigned32},
    {typeid(float).name(), CSampleType::kFloat32},
    {typeid(double).name(), CSampleType::kFloat64},
    {typeid(unsigned char).name(), CSampleType::kUnsigned8},
    {typeid(unsigned short).name(), CSampleType::kUnsigned16},
    {typeid(UnsignedPacked24).name(), CSampleType::kUnsignedPacked24},
    {typeid(UnsignedWide24).name(), CSampleType::kUnsignedWide24},
    {typeid(unsigned int).name(), CSampleType::kUnsigned32},
    {typeid(Swapped8Sample).name(), CSampleType::kSwapped8},
    {typeid(Swapped16Sample).name(), CSampleType::kSwapped16},
    {typeid(SwappedPacked24Sample).name(), CSampleType::kSwappedPacked24},
    {typeid(SwappedWide24Sample).name(), CSampleType::kSwappedWide24},
    {typeid(Swapped32Sample).name(), CSampleType::kSwapped32},
    {typeid(SwappedFloatSample).name(), CSampleType::kSwappedFloat32},
    {typeid(SwappedDoubleSample).name(), CSampleType::kSwappedFloat64},
    {typeid(SwappedUnsigned8Sample).name(), CSampleType::kSwappedUnsigned8},
    {typeid(SwappedUnsigned16Sample).name(), CSampleType::kSwappedUnsigned16},
    {typeid(SwappedUnsignedPacked24Sample).name(), CSampleType::kSwappedUnsignedPacked24},
    {typeid(SwappedUnsignedWide24Sample).name(), CSampleType::kSwappedUnsignedWide24},
    {typeid(SwappedUnsigned32Sample).name(), CSampleType::kSwappedUnsigned32},
    {typeid(Wide25).name(), CSampleType::kWide25},
    {typeid(SwappedWide25Sample).name(), CSampleType::kSwappedWide25},
};
}  // namespace

const char* CSampleType::GetName() const
{
    if (fValue < 0 || fValue > kSwappedUnsigned32)
    {
        return kNames[0];
    }
    return kNames[fValue];
}

CSampleType CSampleType::GetTypeForTypeInfo(const std::type_info& info)
{
    const char* name = info.name();
    for (const TypeName& entry : kStoredTypes)
    {
        if (std::strcmp(entry.name, name) == 0)
        {
            return CSampleType(entry.type);
        }
    }
    return CSampleType(kUnknown);
}

CSampleType CSampleType::Parametrized(int bits, bool floating, const Endianity& endianity, bool isUnsigned,
                                      int contentBits)
{
    if (bits <= 0 || bits > 64)
    {
        return CSampleType(kUnknown);
    }
    const int bytes = (bits + 7) / 8;
    const int content = contentBits < 0 ? bits : contentBits;
    for (int32_t type = kFirstConvertible; type <= kLastConvertible; ++type)
    {
        if (sSizes[type] != bytes || sFloatingFlags[type] != floating || sUnsignedFlags[type] != isUnsigned ||
            sContentSizes[type] != content)
        {
            continue;
        }
        if (bytes != 1 && sEndianities[type] != endianity)
        {
            continue;
        }
        return CSampleType(type);
    }
    return CSampleType(kUnknown);
}
