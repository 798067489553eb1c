// Every pair of formats against a slow reference written from the format
// table: per sample, explicit byte assembly, literal scale constants.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "sound/CSampleType.h"
#include "sound/DplAudioConverters.h"
#include "sound/JTXFFloatShortQuantizer.h"
#include "sound/TSampleConverter.h"
#include "sound/TSampleTraits.h"

namespace
{
enum class Kind
{
    S8,
    S16,
    S24,
    W25,
    SW25,
    S32,
    F32,
    F64,
    U8,
    U16,
    U24,
    U32
};

struct RefFormat
{
    int id;
    int bytes;
    bool bigEndian;
    Kind kind;
};

// Straight from the table: number, bytes, byte order, scale family.
const RefFormat kFormats[] = {
    {1, 1, false, Kind::S8},   {2, 2, false, Kind::S16},  {3, 3, false, Kind::S24},
    {4, 4, false, Kind::S24},  {5, 4, false, Kind::S32},  {6, 4, false, Kind::F32},
    {7, 8, false, Kind::F64},  {8, 1, false, Kind::U8},   {9, 2, false, Kind::U16},
    {10, 3, false, Kind::U24}, {11, 4, false, Kind::U24}, {12, 4, false, Kind::U32},
    {13, 1, true, Kind::S8},   {14, 2, true, Kind::S16},  {15, 3, true, Kind::S24},
    {16, 4, true, Kind::S24},  {17, 4, true, Kind::S32},  {18, 4, true, Kind::F32},
    {19, 8, true, Kind::F64},  {20, 1, true, Kind::U8},   {21, 2, true, Kind::U16},
    {22, 3, true, Kind::U24},  {23, 4, true, Kind::U24},  {24, 4, true, Kind::U32},
    {25, 4, false, Kind::W25}, {26, 4, true, Kind::SW25},
};

const RefFormat& Format(int id)
{
    return kFormats[id - 1];
}

uint64_t Assemble(const uint8_t* p, const RefFormat& f)
{
    uint64_t raw = 0;
    for (int i = 0; i < f.bytes; ++i)
    {
        const int shift = f.bigEndian ? 8 * (f.bytes - 1 - i) : 8 * i;
        raw |= uint64_t{p[i]} << shift;
    }
    return raw;
}

void Disassemble(uint8_t* p, uint64_t raw, const RefFormat& f)
{
    for (int i = 0; i < f.bytes; ++i)
    {
        const int shift = f.bigEndian ? 8 * (f.bytes - 1 - i) : 8 * i;
        p[i] = static_cast<uint8_t>((raw >> shift) & 0xFF);
    }
}

// Sign of a field of `bits` bits by the flip-and-subtract rule.
int64_t Signed(uint64_t raw, int bits)
{
    const uint64_t mask = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    const int64_t half = int64_t{1} << (bits - 1);
    return static_cast<int64_t>((raw & mask) ^ static_cast<uint64_t>(half)) - half;
}

double RefFrom(const uint8_t* p, const RefFormat& f)
{
    const uint64_t raw = Assemble(p, f);
    switch (f.kind)
    {
        case Kind::S8:
            return static_cast<double>(Signed(raw, 8)) * (2.0 / 255.0) + 1.0 / 255.0;
        case Kind::S16:
            return static_cast<double>(Signed(raw, 16)) * (2.0 / 65535.0) + 1.0 / 65535.0;
        case Kind::S24:
            return static_cast<double>(Signed(raw, 24)) * std::ldexp(1.0, -23);
        case Kind::W25:
        case Kind::SW25:
            return static_cast<double>(Signed(raw, 25)) * std::ldexp(1.0, -24);
        case Kind::S32:
            return static_cast<double>(Signed(raw, 32)) * (2.0 / 4294967295.0) + 1.0 / 4294967295.0;
        case Kind::F32:
        {
            const uint32_t bits = static_cast<uint32_t>(raw);
            float s;
            std::memcpy(&s, &bits, 4);
            return s;
        }
        case Kind::F64:
        {
            double s;
            std::memcpy(&s, &raw, 8);
            return s;
        }
        case Kind::U8:
            return static_cast<double>(raw & 0xFF) * (2.0 / 255.0) - 1.0;
        case Kind::U16:
            return static_cast<double>(raw & 0xFFFF) * (2.0 / 65535.0) - 1.0;
        case Kind::U24:
            return static_cast<double>(raw & 0xFFFFFF) * (2.0 / 16777215.0) - 1.0;
        case Kind::U32:
            return static_cast<double>(raw & 0xFFFFFFFF) * (2.0 / 4294967295.0) - 1.0;
    }
    return 0.0;
}

// Truncation toward zero with the documented ends: NaN 0, beyond int64 the
// nearer end.
int64_t RefTruncate(double y)
{
    if (std::isnan(y))
    {
        return 0;
    }
    const long double t = std::truncl(static_cast<long double>(y));
    if (t >= 9223372036854775808.0L)
    {
        return std::numeric_limits<int64_t>::max();
    }
    if (t < -9223372036854775808.0L)
    {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(t);
}

int ContentBits(Kind k)
{
    switch (k)
    {
        case Kind::S8:
        case Kind::U8:
            return 8;
        case Kind::S16:
        case Kind::U16:
            return 16;
        case Kind::S24:
        case Kind::U24:
            return 24;
        case Kind::W25:
        case Kind::SW25:
            return 25;
        default:
            return 32;
    }
}

void RefTo(uint8_t* p, double x, const RefFormat& f)
{
    uint64_t raw = 0;
    double y = 0.0;
    switch (f.kind)
    {
        case Kind::F32:
        {
            const float s = static_cast<float>(x);
            uint32_t bits;
            std::memcpy(&bits, &s, 4);
            if (std::isnan(x))
            {
                bits |= 0x00400000u;  // NaNs leave quiet, payload kept
            }
            Disassemble(p, bits, f);
            return;
        }
        case Kind::F64:
            std::memcpy(&raw, &x, 8);
            if (std::isnan(x))
            {
                raw |= 0x0008000000000000u;
            }
            Disassemble(p, raw, f);
            return;
        case Kind::S8:
            y = (x - 1.0 / 255.0) * 127.5;
            break;
        case Kind::S16:
            y = (x - 1.0 / 65535.0) * 32767.5;
            break;
        case Kind::S24:
            y = x * 8388607.0;
            break;
        case Kind::W25:
            y = x * 16777215.0;
            break;
        case Kind::SW25:
            y = x * 16777216.0;
            break;
        case Kind::S32:
            y = (x - 1.0 / 4294967295.0) * 2147483647.5;
            break;
        case Kind::U8:
            y = (x + 1.0) * 127.5;
            break;
        case Kind::U16:
            y = (x + 1.0) * 32767.5;
            break;
        case Kind::U24:
            y = (x + 1.0) * 8388607.5;
            break;
        case Kind::U32:
            y = (x + 1.0) * 2147483647.5;
            break;
    }
    const int bits = ContentBits(f.kind);
    const uint64_t contentMask = (uint64_t{1} << bits) - 1;
    raw = static_cast<uint64_t>(RefTruncate(y)) & contentMask;
    const bool isSigned =
        f.kind != Kind::U8 && f.kind != Kind::U16 && f.kind != Kind::U24 && f.kind != Kind::U32;
    if (isSigned && bits < f.bytes * 8 && (raw >> (bits - 1)) != 0)
    {
        // Wide words carry the sign into their top bits.
        raw |= ~contentMask;
    }
    Disassemble(p, raw, f);
}

void PushRaw(std::vector<uint8_t>& out, uint64_t raw, const RefFormat& f)
{
    uint8_t bytes[8];
    Disassemble(bytes, raw, f);
    out.insert(out.end(), bytes, bytes + f.bytes);
}

void PushFloat(std::vector<uint8_t>& out, double value, const RefFormat& f)
{
    uint8_t bytes[8];
    RefTo(bytes, value, f);
    out.insert(out.end(), bytes, bytes + f.bytes);
}

// Min, max, zero, their neighbours and random patterns for integer formats;
// for float formats also the specials and values far out of range.
std::vector<uint8_t> Inputs(const RefFormat& f, uint32_t seed)
{
    std::vector<uint8_t> out;
    const int bits = ContentBits(f.kind);
    const bool floating = f.kind == Kind::F32 || f.kind == Kind::F64;
    if (!floating)
    {
        const bool isUnsigned =
            f.kind == Kind::U8 || f.kind == Kind::U16 || f.kind == Kind::U24 || f.kind == Kind::U32;
        const int64_t lo = isUnsigned ? 0 : -(int64_t{1} << (bits - 1));
        const int64_t hi = isUnsigned ? (int64_t{1} << bits) - 1 : (int64_t{1} << (bits - 1)) - 1;
        const int64_t mid = isUnsigned ? (hi + 1) / 2 : 0;
        for (int64_t v : {lo, lo + 1, lo + 2, hi, hi - 1, hi - 2, mid, mid - 1, mid + 1, int64_t{0},
                          int64_t{1}, int64_t{-1} + (isUnsigned ? 2 : 0)})
        {
            uint64_t raw = static_cast<uint64_t>(v) & ((uint64_t{1} << bits) - 1);
            if (!isUnsigned && bits < f.bytes * 8 && v < 0)
            {
                raw |= ~((uint64_t{1} << bits) - 1);
            }
            PushRaw(out, raw, f);
        }
    }
    else
    {
        const double specials[] = {0.0,
                                   -0.0,
                                   1.0,
                                   -1.0,
                                   0.5,
                                   -0.5,
                                   1.5,
                                   -1.5,
                                   2.0,
                                   -2.0,
                                   1.0 / 65535.0,
                                   -1.0 / 65535.0,
                                   std::nextafter(1.0, 2.0),
                                   std::nextafter(-1.0, -2.0),
                                   std::nextafter(1.0, 0.0),
                                   1e-40,
                                   -1e-40,
                                   4294967296.0,
                                   -4294967296.0,
                                   1e10,
                                   -1e10,
                                   1e19,
                                   -1e19,
                                   9.3e18 / 2147483647.5,
                                   -9.3e18 / 2147483647.5,
                                   1e30,
                                   -1e30,
                                   1e300,
                                   -1e300,
                                   static_cast<double>(std::numeric_limits<float>::max()),
                                   std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(),
                                   std::numeric_limits<double>::quiet_NaN(),
                                   -std::numeric_limits<double>::quiet_NaN()};
        for (double v : specials)
        {
            PushFloat(out, v, f);
        }
        std::mt19937_64 rng(seed);
        std::uniform_real_distribution<double> unit(-1.0, 1.0);
        for (int i = 0; i < 200; ++i)
        {
            PushFloat(out, unit(rng), f);
        }
        std::uniform_real_distribution<double> wide(-3.0, 3.0);
        for (int i = 0; i < 50; ++i)
        {
            PushFloat(out, wide(rng), f);
        }
    }
    // Random bit patterns: for wide formats these put junk in the unused top
    // bits, for float formats they reach NaNs, infinities and huge values.
    std::mt19937_64 rng(seed * 7919u + 17u);
    for (int i = 0; i < 200; ++i)
    {
        PushRaw(out, rng(), f);
    }
    return out;
}

class RecordingHalver final : public CSampleFunnel::Filter
{
public:
    double Apply(double x) override
    {
        seen.push_back(x);
        return x * 0.5 - 0.125;
    }
    std::vector<double> seen;
};

std::string PairName(int from, int to)
{
    return std::to_string(from) + " -> " + std::to_string(to);
}

// Converts `input` through the family member (no quantizer) and the reference,
// with or without the filter.
void CheckPair(int fromId, int toId, bool withFilter, int misalign)
{
    const RefFormat& from = Format(fromId);
    const RefFormat& to = Format(toId);
    const std::vector<uint8_t> input = Inputs(from, static_cast<uint32_t>(fromId * 131 + toId));
    const int samples = static_cast<int>(input.size()) / from.bytes;

    CCountedPtr<RecordingHalver> filter = withFilter ? new RecordingHalver() : nullptr;
    // Ask the source's row directly, so that float to 16-bit gets the family
    // member too (the factory would give the quantizer).
    std::unique_ptr<CSampleFunnel> funnel;
    switch (fromId)
    {
#define ROW(id)                                                                                              \
    case id:                                                                                                 \
        funnel =                                                                                             \
            MakeConverterTo<TSampleTraitsForId<id>::type>(toId, CCountedPtr<CSampleFunnel::Filter>(filter)); \
        break;
        ROW(1)
        ROW(2)
        ROW(3) ROW(4) ROW(5) ROW(6) ROW(7) ROW(8) ROW(9) ROW(10) ROW(11) ROW(12) ROW(13) ROW(14) ROW(15)
            ROW(16) ROW(17) ROW(18) ROW(19) ROW(20) ROW(21) ROW(22) ROW(23) ROW(24) ROW(25) ROW(26)
#undef ROW
    }
    ASSERT_NE(funnel, nullptr) << PairName(fromId, toId);
    EXPECT_EQ(funnel->GetSourceType(), fromId);
    EXPECT_EQ(funnel->GetDestinationType(), toId);

    // Odd offsets: the converters must not rely on alignment.
    std::vector<uint8_t> source(input.size() + 8);
    std::memcpy(source.data() + misalign, input.data(), input.size());
    std::vector<uint8_t> actual(static_cast<size_t>(samples * to.bytes) + 8, 0xA5);
    ASSERT_EQ(funnel->FunnelBuffer(actual.data() + misalign, source.data() + misalign, samples), samples);

    std::vector<uint8_t> expected(static_cast<size_t>(samples * to.bytes));
    for (int i = 0; i < samples; ++i)
    {
        double x = RefFrom(input.data() + i * from.bytes, from);
        if (withFilter)
        {
            ASSERT_EQ(std::memcmp(&x, &filter->seen[static_cast<size_t>(i)], sizeof(x)), 0)
                << PairName(fromId, toId) << " filter saw a different value at " << i;
            x = x * 0.5 - 0.125;
        }
        RefTo(expected.data() + i * to.bytes, x, to);
    }
    if (withFilter)
    {
        EXPECT_EQ(filter->seen.size(), static_cast<size_t>(samples));
    }
    for (int i = 0; i < samples; ++i)
    {
        const uint8_t* a = actual.data() + misalign + i * to.bytes;
        const uint8_t* e = expected.data() + i * to.bytes;
        if (std::memcmp(a, e, static_cast<size_t>(to.bytes)) != 0)
        {
            std::string detail;
            for (int b = 0; b < to.bytes; ++b)
            {
                char text[16];
                std::snprintf(text, sizeof(text), "%02x/%02x ", a[b], e[b]);
                detail += text;
            }
            ADD_FAILURE() << PairName(fromId, toId) << " sample " << i << " (actual/expected bytes) "
                          << detail;
            return;
        }
    }
    // Nothing past the end is touched.
    for (size_t i = static_cast<size_t>(misalign + samples * to.bytes); i < actual.size(); ++i)
    {
        ASSERT_EQ(actual[i], 0xA5) << PairName(fromId, toId);
    }
}
}  // namespace

TEST(SampleConverterFamily, EveryPairMatchesTheReferenceBitForBit)
{
    for (int from = 1; from <= 26; ++from)
    {
        for (int to = 1; to <= 26; ++to)
        {
            CheckPair(from, to, false, (from + to) % 4);
        }
    }
}

TEST(SampleConverterFamily, EveryPairRunsTheFilterOnceForEachSampleInOrder)
{
    for (int from = 1; from <= 26; ++from)
    {
        for (int to = 1; to <= 26; ++to)
        {
            CheckPair(from, to, true, 0);
        }
    }
}

TEST(SampleConverterFamily, FactoryGivesTheFamilyExceptFloatToSixteenBit)
{
    for (int from = 1; from <= 26; ++from)
    {
        for (int to = 1; to <= 26; ++to)
        {
            std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(from, to, 2, nullptr);
            ASSERT_NE(funnel, nullptr) << PairName(from, to);
            const bool quantizer = dynamic_cast<JTXFFloatShortQuantizer*>(funnel.get()) != nullptr;
            EXPECT_EQ(quantizer, from == 6 && (to == 2 || to == 14)) << PairName(from, to);
            EXPECT_EQ(funnel->GetSourceType(), from);
            EXPECT_EQ(funnel->GetDestinationType(), to);
        }
    }
    for (int bad : {0, 27, 28, -1, 1000})
    {
        EXPECT_EQ(DplAudio_CreateSampleTypeConverter(bad, 2, 2, nullptr), nullptr) << bad;
        EXPECT_EQ(DplAudio_CreateSampleTypeConverter(2, bad, 2, nullptr), nullptr) << bad;
    }
}

TEST(SampleConverterFamily, FactoryConvertersMatchTheReference)
{
    // The factory hands out the same family: spot-check one pair through it.
    CCountedPtr<RecordingHalver> filter(new RecordingHalver());
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(14, 3, 1, filter);
    ASSERT_NE(funnel, nullptr);
    const uint8_t in[4] = {0x7F, 0xFF, 0x80, 0x00};  // big-endian 32767, -32768
    uint8_t out[6];
    ASSERT_EQ(funnel->FunnelBuffer(out, in, 2), 2);
    uint8_t expected[6];
    RefTo(expected, RefFrom(in, Format(14)) * 0.5 - 0.125, Format(3));
    RefTo(expected + 3, RefFrom(in + 2, Format(14)) * 0.5 - 0.125, Format(3));
    EXPECT_EQ(std::memcmp(out, expected, 6), 0);
    EXPECT_EQ(filter->seen.size(), 2u);
}

TEST(SampleConverterFamily, KnownValues)
{
    auto convert = [](int from, int to, const void* in, void* out)
    {
        std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(from, to, 1, nullptr);
        ASSERT_NE(funnel, nullptr);
        ASSERT_EQ(funnel->FunnelBuffer(out, in, 1), 1);
    };
    float f = 0.0f;
    const int16_t max16 = 32767, min16 = -32768, zero16 = 0;
    convert(2, 6, &max16, &f);
    EXPECT_EQ(f, 1.0f);
    convert(2, 6, &min16, &f);
    EXPECT_EQ(f, -1.0f);
    convert(2, 6, &zero16, &f);
    EXPECT_NEAR(f, 1.5259e-5, 1e-9);

    // Float 0 to unsigned 16-bit: 32767.5 truncated.
    const float zero = 0.0f;
    uint16_t u16 = 0;
    convert(6, 9, &zero, &u16);
    EXPECT_EQ(u16, 32767);

    // Float ±1 to packed 24-bit.
    const float one = 1.0f, minusOne = -1.0f;
    uint8_t p24[3];
    convert(6, 3, &one, p24);
    EXPECT_EQ(p24[0] | (p24[1] << 8) | (p24[2] << 16), 8388607);
    convert(6, 3, &minusOne, p24);
    EXPECT_EQ(p24[0] | (p24[1] << 8) | (p24[2] << 16), 0x800001);  // -8388607

    // 32-bit ends map onto ±1 exactly.
    const int32_t max32 = INT32_MAX, min32 = INT32_MIN;
    double d = 0.0;
    convert(5, 7, &max32, &d);
    EXPECT_EQ(d, 1.0);
    convert(5, 7, &min32, &d);
    EXPECT_EQ(d, -1.0);

    // The big-endian 25-bit form scales out by 2^24: 0.5 gives 2^23.
    const double half = 0.5;
    uint8_t w25[4];
    convert(7, 26, &half, w25);
    EXPECT_EQ((w25[0] << 24) | (w25[1] << 16) | (w25[2] << 8) | w25[3], 8388608);
    convert(7, 25, &half, w25);
    EXPECT_EQ(w25[0] | (w25[1] << 8) | (w25[2] << 16) | (w25[3] << 24), 8388607);  // 8388607.5 truncated
}

TEST(SampleConverterFamily, OutOfRangeWrapsAndSpecialsHaveDefinedResults)
{
    auto to16 = [](double x)
    {
        std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(7, 2, 1, nullptr);
        int16_t out = 0x1234;
        funnel->FunnelBuffer(&out, &x, 1);
        return out;
    };
    auto toWide24 = [](double x)
    {
        std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(7, 4, 1, nullptr);
        int32_t out = 0x12345678;
        funnel->FunnelBuffer(&out, &x, 1);
        return out;
    };
    auto toU8 = [](double x)
    {
        std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(7, 8, 1, nullptr);
        uint8_t out = 0x12;
        funnel->FunnelBuffer(&out, &x, 1);
        return out;
    };
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();

    // 2.0 → (2 - 1/65535) × 32767.5 = 65534.5 → 65534, which wraps to -2.
    EXPECT_EQ(to16(2.0), -2);
    // -2.0 → -65535.5 → -65535, which wraps to 1.
    EXPECT_EQ(to16(-2.0), 1);
    // NaN gives the integer 0; +inf the low bits of INT64_MAX; -inf those of INT64_MIN.
    EXPECT_EQ(to16(nan), 0);
    EXPECT_EQ(to16(inf), -1);
    EXPECT_EQ(to16(-inf), 0);
    EXPECT_EQ(to16(1e300), -1);
    EXPECT_EQ(to16(-1e300), 0);

    // Wide words wrap in 24 bits and carry the sign: 1.5 × 8388607 = 12582910.5.
    EXPECT_EQ(toWide24(1.5), 12582910 - 16777216);
    EXPECT_EQ(toWide24(-1.5), -12582910 + 16777216);
    EXPECT_EQ(toWide24(nan), 0);
    EXPECT_EQ(toWide24(inf), -1);

    // Unsigned: (3 + 1) × 127.5 = 510 → 254.
    EXPECT_EQ(toU8(3.0), 254);
    EXPECT_EQ(toU8(-3.0), static_cast<uint8_t>(-255));
    EXPECT_EQ(toU8(nan), 0);
    EXPECT_EQ(toU8(inf), 255);
}

TEST(SampleConverterFamily, WideFormatsIgnoreTheUnusedTopBitsOnReading)
{
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(4, 7, 1, nullptr);
    const int32_t junkPositive = 0x7F000001;  // content +1
    const int32_t junkNegative = 0x00FFFFFF;  // content -1
    double out[2];
    funnel->FunnelBuffer(&out[0], &junkPositive, 1);
    funnel->FunnelBuffer(&out[1], &junkNegative, 1);
    EXPECT_EQ(out[0], std::ldexp(1.0, -23));
    EXPECT_EQ(out[1], -std::ldexp(1.0, -23));
}

TEST(SampleConverterFamily, NegativeCountsAndNullBuffersDoNothing)
{
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(2, 6, 1, nullptr);
    int16_t in = 5;
    float out = 7.0f;
    EXPECT_EQ(funnel->FunnelBuffer(&out, &in, -1), 0);
    EXPECT_EQ(funnel->FunnelBuffer(&out, &in, 0), 0);
    EXPECT_EQ(funnel->FunnelBuffer(nullptr, &in, 1), 0);
    EXPECT_EQ(funnel->FunnelBuffer(&out, nullptr, 1), 0);
    EXPECT_EQ(out, 7.0f);
}

TEST(SampleConverterFamily, NaNsLeaveQuietWithTheirPayload)
{
    // The same on every build: a signalling NaN is quieted even where the
    // compiler could drop a float → double → float round trip.
    std::unique_ptr<CSampleFunnel> floats = DplAudio_CreateSampleTypeConverter(6, 6, 1, nullptr);
    const uint32_t signalling = 0x7FB5E5D1u;
    uint32_t out = 0;
    floats->FunnelBuffer(&out, &signalling, 1);
    EXPECT_EQ(out, 0x7FF5E5D1u);
    const uint32_t negativeQuiet = 0xFFC00001u;
    floats->FunnelBuffer(&out, &negativeQuiet, 1);
    EXPECT_EQ(out, 0xFFC00001u);

    std::unique_ptr<CSampleFunnel> doubles = DplAudio_CreateSampleTypeConverter(7, 19, 1, nullptr);
    const uint64_t signalling64 = 0x7FF0000000000123u;
    uint64_t out64 = 0;
    doubles->FunnelBuffer(&out64, &signalling64, 1);
    EXPECT_EQ(out64, __builtin_bswap64(0x7FF8000000000123u));

    // Float to double keeps the payload's high bits.
    std::unique_ptr<CSampleFunnel> widen = DplAudio_CreateSampleTypeConverter(6, 7, 1, nullptr);
    widen->FunnelBuffer(&out64, &signalling, 1);
    EXPECT_EQ(out64, 0x7FFEBCBA20000000u);
}
