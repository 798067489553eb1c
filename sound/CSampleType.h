#pragma once

#include <cstdint>
#include <typeinfo>

// A sample format as a number. The five parallel tables below describe every
// format; everything else about a format (its conversion rule, its stream
// description) follows from them.
class CSampleType
{
public:
    // Byte order of a stored sample: 0 where the question doesn't arise (one
    // byte), 1 native (little-endian), 2 swapped (big-endian).
    enum Endianity : int32_t
    {
        kEndianityNone = 0,
        kEndianityNative = 1,
        kEndianitySwapped = 2,
    };

    enum : int32_t
    {
        kUnknown = 0,
        kSigned8 = 1,
        kSigned16 = 2,
        kPacked24 = 3,
        kWide24 = 4,
        kSigned32 = 5,
        kFloat32 = 6,
        kFloat64 = 7,
        kUnsigned8 = 8,
        kUnsigned16 = 9,
        kUnsignedPacked24 = 10,
        kUnsignedWide24 = 11,
        kUnsigned32 = 12,
        kSwapped8 = 13,
        kSwapped16 = 14,
        kSwappedPacked24 = 15,
        kSwappedWide24 = 16,
        kSwapped32 = 17,
        kSwappedFloat32 = 18,
        kSwappedFloat64 = 19,
        kSwappedUnsigned8 = 20,
        kSwappedUnsigned16 = 21,
        kSwappedUnsignedPacked24 = 22,
        kSwappedUnsignedWide24 = 23,
        kSwappedUnsigned32 = 24,
        kWide25 = 25,
        kSwappedWide25 = 26,
        kTableEnd = 27,
        kTableSize = 28,
        kFirstConvertible = 1,
        kLastConvertible = 26,
    };

    static constexpr int32_t sSizes[kTableSize] = {0, 1, 2, 3, 4, 4, 4, 8, 1, 2, 3, 4, 4, 1,
                                                   2, 3, 4, 4, 4, 8, 1, 2, 3, 4, 4, 4, 4, 0};
    static constexpr int32_t sContentSizes[kTableSize] = {0,  8,  16, 24, 24, 32, 32, 64, 8,  16,
                                                          24, 24, 32, 8,  16, 24, 24, 32, 32, 64,
                                                          8,  16, 24, 24, 32, 25, 25, 0};
    static constexpr bool sUnsignedFlags[kTableSize] = {
        false, false, false, false, false, false, false, false, true, true, true, true,  true,  false,
        false, false, false, false, false, false, true,  true,  true, true, true, false, false, false};
    static constexpr bool sFloatingFlags[kTableSize] = {
        false, false, false, false, false, false, true,  true,  false, false, false, false, false, false,
        false, false, false, false, true,  true,  false, false, false, false, false, false, false, false};
    static constexpr int32_t sEndianities[kTableSize] = {0, 0, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1, 0,
                                                         2, 2, 2, 2, 2, 2, 0, 2, 2, 2, 2, 1, 2, 0};

    constexpr CSampleType() = default;
    constexpr CSampleType(int32_t value) : fValue(value) {}
    constexpr operator int32_t() const { return fValue; }
    constexpr int32_t Value() const { return fValue; }

    // True for the numbers the tables describe (0 to 27).
    constexpr bool InTable() const { return fValue >= 0 && fValue < kTableSize; }
    // True for the formats that can be converted (1 to 26).
    constexpr bool IsConvertible() const { return fValue >= kFirstConvertible && fValue <= kLastConvertible; }

    constexpr int32_t GetSize() const { return InTable() ? sSizes[fValue] : 0; }
    constexpr int32_t GetContentBits() const { return InTable() ? sContentSizes[fValue] : 0; }
    constexpr bool IsUnsigned() const { return InTable() && sUnsignedFlags[fValue]; }
    constexpr bool IsFloating() const { return InTable() && sFloatingFlags[fValue]; }
    constexpr Endianity GetEndianity() const
    {
        return InTable() ? static_cast<Endianity>(sEndianities[fValue]) : kEndianityNone;
    }

    // "unknown" for 0 and for anything past the named part of the table.
    const char* GetName() const;

    // The number of a stored sample type (char, short, Packed24, ...), 0 when
    // the type is none of them. Compared by name, so it holds across shared
    // library boundaries.
    static CSampleType GetTypeForTypeInfo(const std::type_info& info);

    // The first format of the table (1 to 26) with (bits + 7) / 8 bytes, the
    // flags asked for, `contentBits` bits of content (`bits` when negative)
    // and the byte order asked for, which doesn't count for one-byte formats.
    // 0 when there is none.
    static CSampleType Parametrized(int bits, bool floating, const Endianity& endianity, bool isUnsigned,
                                    int contentBits);

private:
    int32_t fValue = 0;
};
