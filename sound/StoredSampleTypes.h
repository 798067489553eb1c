#pragma once

#include <cstdint>

// The in-memory forms of the formats that have no plain C++ type. They are
// byte holders: all reading and writing goes through TSampleTraits, which
// knows the byte order and the width of the content. Each is a type of its
// own so that CSampleType::GetTypeForTypeInfo can tell them apart.

// Three bytes, low byte first.
struct Packed24
{
    uint8_t bytes[3];
};
struct UnsignedPacked24
{
    uint8_t bytes[3];
};
// A 24-bit value in a 32-bit word, sign-extended from bit 23.
struct Wide24
{
    int32_t word;
};
// A 24-bit unsigned value in the low bits of a 32-bit word.
struct UnsignedWide24
{
    uint32_t word;
};
// A 25-bit value in a 32-bit word, sign-extended from bit 24.
struct Wide25
{
    int32_t word;
};

// Big-endian forms.
struct Swapped8Sample
{
    uint8_t bytes[1];
};
struct Swapped16Sample
{
    uint8_t bytes[2];
};
struct SwappedPacked24Sample
{
    uint8_t bytes[3];
};
struct SwappedWide24Sample
{
    uint8_t bytes[4];
};
struct Swapped32Sample
{
    uint8_t bytes[4];
};
struct SwappedFloatSample
{
    uint8_t bytes[4];
};
struct SwappedDoubleSample
{
    uint8_t bytes[8];
};
struct SwappedUnsigned8Sample
{
    uint8_t bytes[1];
};
struct SwappedUnsigned16Sample
{
    uint8_t bytes[2];
};
struct SwappedUnsignedPacked24Sample
{
    uint8_t bytes[3];
};
struct SwappedUnsignedWide24Sample
{
    uint8_t bytes[4];
};
struct SwappedUnsigned32Sample
{
    uint8_t bytes[4];
};
struct SwappedWide25Sample
{
    uint8_t bytes[4];
};
