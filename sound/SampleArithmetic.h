#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

static_assert(std::endian::native == std::endian::little, "native sample order is little-endian");

namespace SampleArithmetic
{
// Truncates toward zero with a result for every double: NaN gives 0, and
// values beyond the int64 range (infinities included) give the nearer end of
// it. The converters then keep the low bits of this value, which is the
// two's-complement wrap of the exact truncated value whenever that fits in 64
// bits.
inline int64_t TruncateToInt64(double y)
{
    if (y >= -0x1p63 && y < 0x1p63)
    {
        return static_cast<int64_t>(y);
    }
    if (y >= 0x1p63)
    {
        return INT64_MAX;
    }
    if (y < 0.0)
    {
        return INT64_MIN;
    }
    return 0;  // NaN
}

inline uint16_t ByteSwap(uint16_t v)
{
    return __builtin_bswap16(v);
}
inline uint32_t ByteSwap(uint32_t v)
{
    return __builtin_bswap32(v);
}
inline uint64_t ByteSwap(uint64_t v)
{
    return __builtin_bswap64(v);
}

// Reads `Size` bytes as an unsigned number, low byte first unless `BigEndian`.
template <int Size, bool BigEndian>
inline uint64_t LoadRaw(const uint8_t* p)
{
    if constexpr (Size == 1)
    {
        return p[0];
    }
    else if constexpr (Size == 3)
    {
        if constexpr (BigEndian)
        {
            return (uint64_t{p[0]} << 16) | (uint64_t{p[1]} << 8) | uint64_t{p[2]};
        }
        else
        {
            return uint64_t{p[0]} | (uint64_t{p[1]} << 8) | (uint64_t{p[2]} << 16);
        }
    }
    else
    {
        using Word =
            std::conditional_t<Size == 2, uint16_t, std::conditional_t<Size == 4, uint32_t, uint64_t>>;
        static_assert(sizeof(Word) == Size);
        Word word;
        std::memcpy(&word, p, Size);
        if constexpr (BigEndian)
        {
            word = ByteSwap(word);
        }
        return word;
    }
}

// Writes the low `Size` bytes of `raw`, low byte first unless `BigEndian`.
template <int Size, bool BigEndian>
inline void StoreRaw(uint8_t* p, uint64_t raw)
{
    if constexpr (Size == 1)
    {
        p[0] = static_cast<uint8_t>(raw);
    }
    else if constexpr (Size == 3)
    {
        const uint8_t b0 = static_cast<uint8_t>(raw);
        const uint8_t b1 = static_cast<uint8_t>(raw >> 8);
        const uint8_t b2 = static_cast<uint8_t>(raw >> 16);
        if constexpr (BigEndian)
        {
            p[0] = b2;
            p[1] = b1;
            p[2] = b0;
        }
        else
        {
            p[0] = b0;
            p[1] = b1;
            p[2] = b2;
        }
    }
    else
    {
        using Word =
            std::conditional_t<Size == 2, uint16_t, std::conditional_t<Size == 4, uint32_t, uint64_t>>;
        static_assert(sizeof(Word) == Size);
        Word word = static_cast<Word>(raw);
        if constexpr (BigEndian)
        {
            word = ByteSwap(word);
        }
        std::memcpy(p, &word, Size);
    }
}

// The low `Bits` bits of `raw` read as a two's-complement number.
template <int Bits>
inline int64_t SignExtend(uint64_t raw)
{
    static_assert(Bits > 0 && Bits <= 64);
    return static_cast<int64_t>(raw << (64 - Bits)) >> (64 - Bits);
}
}  // namespace SampleArithmetic
