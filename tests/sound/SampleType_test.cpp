#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "sound/CSampleType.h"
#include "sound/CSoundTraits.h"
#include "sound/StoredSampleTypes.h"
#include "sound/TSampleTraits.h"

TEST(SampleTypeTable, NamesAndOutOfRangeNumbers)
{
    EXPECT_STREQ(CSampleType(0).GetName(), "unknown");
    EXPECT_STREQ(CSampleType(4).GetName(), "24 bit (wide)");
    EXPECT_STREQ(CSampleType(24).GetName(), "32 bit unsigned swapped");  // the last named row
    for (int type : {25, 26, 27, 28, 1000, -1, std::numeric_limits<int>::min()})
    {
        EXPECT_STREQ(CSampleType(type).GetName(), "unknown") << type;
    }
}

TEST(SampleTypeTable, AccessorsAreSafeOutsideTheTable)
{
    for (int type : {-1, 27, 28, 29, 1 << 30})
    {
        const CSampleType t(type);
        EXPECT_EQ(t.GetSize(), 0);
        EXPECT_EQ(t.GetContentBits(), 0);
        EXPECT_FALSE(t.IsUnsigned());
        EXPECT_FALSE(t.IsFloating());
        EXPECT_EQ(t.GetEndianity(), CSampleType::kEndianityNone);
        EXPECT_FALSE(t.IsConvertible());
    }
    EXPECT_FALSE(CSampleType(0).IsConvertible());
}

namespace
{
// Every stored type of the conversion traits is found under its own number.
template <class Traits>
void ExpectStoredTypeFound()
{
    EXPECT_EQ(CSampleType::GetTypeForTypeInfo(typeid(typename Traits::Type)), Traits::kId) << Traits::kId;
}

template <class... Traits>
void ExpectEachStoredTypeFound()
{
    (ExpectStoredTypeFound<Traits>(), ...);
}
}  // namespace

TEST(SampleTypeTable, TypeForTypeInfo)
{
    ExpectEachStoredTypeFound<SampleTraits8, SampleTraits16, SampleTraitsPacked24, SampleTraitsWide24,
                              SampleTraits32, SampleTraitsFloat, SampleTraitsDouble, SampleTraitsUnsigned8,
                              SampleTraitsUnsigned16, SampleTraitsUnsignedPacked24,
                              SampleTraitsUnsignedWide24, SampleTraitsUnsigned32, SampleTraitsSwapped8,
                              SampleTraitsSwapped16, SampleTraitsSwappedPacked24, SampleTraitsSwappedWide24,
                              SampleTraitsSwapped32, SampleTraitsSwappedFloat, SampleTraitsSwappedDouble,
                              SampleTraitsSwappedUnsigned8, SampleTraitsSwappedUnsigned16,
                              SampleTraitsSwappedUnsignedPacked24, SampleTraitsSwappedUnsignedWide24,
                              SampleTraitsSwappedUnsigned32, SampleTraitsWide25, SampleTraitsSwappedWide25>();
    // Plain `char` is the signed 8-bit format whatever the platform's char.
    EXPECT_EQ(CSampleType::GetTypeForTypeInfo(typeid(signed char)), 1);
    EXPECT_EQ(CSampleType::GetTypeForTypeInfo(typeid(long long)), 0);
    EXPECT_EQ(CSampleType::GetTypeForTypeInfo(typeid(std::string)), 0);
}

TEST(SampleTypeTable, Parametrized)
{
    using T = CSampleType;
    // Rows found from their full description are covered by the loop at the end;
    // here the defaults of the content bits (-1: all of them).
    EXPECT_EQ(T::Parametrized(32, false, T::kEndianityNative, false, -1), 5);
    EXPECT_EQ(T::Parametrized(24, false, T::kEndianitySwapped, true, -1), 22);
    // Byte order doesn't count for one byte: the first match wins.
    EXPECT_EQ(T::Parametrized(8, false, T::kEndianitySwapped, false, -1), 1);
    EXPECT_EQ(T::Parametrized(8, false, T::kEndianityNone, true, -1), 8);
    // (bits + 7) / 8 bytes: 12 bits ask for 2 bytes with 12 bits of content, which no row has.
    EXPECT_EQ(T::Parametrized(12, false, T::kEndianityNative, false, -1), 0);
    EXPECT_EQ(T::Parametrized(12, false, T::kEndianityNative, false, 16), 2);
    // No such row, or nonsense input.
    EXPECT_EQ(T::Parametrized(16, true, T::kEndianityNative, false, -1), 0);
    EXPECT_EQ(T::Parametrized(16, false, T::kEndianityNone, false, -1), 0);
    EXPECT_EQ(T::Parametrized(0, false, T::kEndianityNative, false, -1), 0);
    EXPECT_EQ(T::Parametrized(-8, false, T::kEndianityNative, false, -1), 0);
    EXPECT_EQ(T::Parametrized(std::numeric_limits<int>::max(), false, T::kEndianityNative, false, -1), 0);
    // Every row is found again from its own description.
    for (int type = 1; type <= 26; ++type)
    {
        const T t(type);
        const int found = T::Parametrized(t.GetSize() * 8, t.IsFloating(), t.GetEndianity(), t.IsUnsigned(),
                                          t.GetContentBits());
        if (type == 13 || type == 20)
        {
            EXPECT_EQ(found, type == 13 ? 1 : 8);
        }
        else
        {
            EXPECT_EQ(found, type);
        }
    }
}

TEST(SoundTraits, FrameSizeAndSetters)
{
    CSoundTraits traits(6, 2, 48000);
    EXPECT_EQ(traits.GetFrameSize(), 8);
    traits.SetSampleType(3);
    traits.SetChannels(5);
    EXPECT_EQ(traits.GetFrameSize(), 15);
    traits.SetSampleType(28);
    EXPECT_EQ(traits.GetFrameSize(), 0);
    traits.SetSampleType(2);
    traits.SetChannels(-3);
    EXPECT_EQ(traits.GetFrameSize(), 0);
}

TEST(SoundTraits, StreamDescriptionOfSixteenBitBigEndian)
{
    AudioStreamBasicDescription desc;
    desc.mSampleRate = 44100.0;
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mFormatFlags =
        kAudioFormatFlagIsBigEndian | kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    desc.mBitsPerChannel = 16;
    desc.mChannelsPerFrame = 2;
    desc.mBytesPerFrame = 4;
    desc.mBytesPerPacket = 4;
    desc.mFramesPerPacket = 1;
    CSoundTraits traits;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleType(), 14);
    EXPECT_EQ(traits.GetChannels(), 2);
    EXPECT_EQ(traits.GetSampleRate(), 44100);

    const AudioStreamBasicDescription back = traits.ToStreamDesc(true);
    EXPECT_EQ(std::memcmp(&back, &desc, sizeof(desc)), 0);
}

TEST(SoundTraits, FlagsOfEachKind)
{
    // Float, packed, non-interleaved: bytes per frame are one channel's.
    AudioStreamBasicDescription d = CSoundTraits(6, 2, 48000).ToStreamDesc(false);
    EXPECT_EQ(d.mFormatFlags, 1u | 8u | 32u);
    EXPECT_EQ(d.mBytesPerFrame, 4u);
    EXPECT_EQ(d.mBytesPerPacket, 4u);
    EXPECT_EQ(d.mBitsPerChannel, 32u);
    // Wide 24: signed, not packed, 24 content bits in the fraction field.
    d = CSoundTraits(4, 2, 48000).ToStreamDesc(true);
    EXPECT_EQ(d.mFormatFlags, 4u | (24u << 7));
    EXPECT_EQ(d.mBitsPerChannel, 32u);
    EXPECT_EQ(d.mBytesPerFrame, 8u);
    // Unsigned 16: no sign flag.
    d = CSoundTraits(9, 1, 8000).ToStreamDesc(true);
    EXPECT_EQ(d.mFormatFlags, 8u);
    // Swapped float.
    d = CSoundTraits(18, 1, 8000).ToStreamDesc(true);
    EXPECT_EQ(d.mFormatFlags, 1u | 2u | 8u);
}

TEST(SoundTraits, EveryTypeSurvivesTheRoundTrip)
{
    for (bool interleaved : {true, false})
    {
        for (int type = 1; type <= 26; ++type)
        {
            const CSoundTraits traits(type, 3, 96000);
            CSoundTraits back;
            back.FromStreamDesc(traits.ToStreamDesc(interleaved));
            const int expected = type == 13 ? 1 : type == 20 ? 8 : type;
            EXPECT_EQ(back.GetSampleType(), expected) << type;
            EXPECT_EQ(back.GetChannels(), 3);
            EXPECT_EQ(back.GetSampleRate(), 96000);
        }
    }
}

TEST(SoundTraits, FromStreamDescriptionEdges)
{
    AudioStreamBasicDescription desc;
    desc.mFormatID = 0x61616320;  // not linear PCM
    desc.mSampleRate = 22050.0;
    desc.mChannelsPerFrame = 1;
    desc.mBitsPerChannel = 16;
    desc.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    CSoundTraits traits(2, 2, 48000);
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleType(), 0);
    EXPECT_EQ(traits.GetChannels(), 1);
    EXPECT_EQ(traits.GetSampleRate(), 22050);

    // Bits from bytes per frame when the bits are missing.
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mBitsPerChannel = 0;
    desc.mChannelsPerFrame = 2;
    desc.mBytesPerFrame = 6;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleType(), 3);

    // No channels and no bits: no type, and no division by zero.
    desc.mChannelsPerFrame = 0;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleType(), 0);
    EXPECT_EQ(traits.GetChannels(), 0);

    // A format the table lacks.
    desc.mChannelsPerFrame = 1;
    desc.mBitsPerChannel = 16;
    desc.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleType(), 0);

    // Rates that don't fit an int get defined values.
    desc.mSampleRate = std::numeric_limits<double>::quiet_NaN();
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleRate(), 0);
    desc.mSampleRate = 1e30;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleRate(), std::numeric_limits<int32_t>::max());
    desc.mSampleRate = -std::numeric_limits<double>::infinity();
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetSampleRate(), std::numeric_limits<int32_t>::min());
    desc.mChannelsPerFrame = 0xFFFFFFFFu;
    traits.FromStreamDesc(desc);
    EXPECT_EQ(traits.GetChannels(), std::numeric_limits<int32_t>::max());
}

namespace
{
class CountingTraits : public CSoundTraits
{
public:
    void SetSampleType(const CSampleType& type) override
    {
        ++typeSets;
        CSoundTraits::SetSampleType(type);
    }
    int typeSets = 0;
};
}  // namespace

TEST(SoundTraits, FromStreamDescriptionGoesThroughTheSetters)
{
    // Subclasses that keep derived values (a socket's frame size) see the change.
    CountingTraits traits;
    traits.FromStreamDesc(CSoundTraits(2, 2, 48000).ToStreamDesc(true));
    EXPECT_EQ(traits.typeSets, 1);
    EXPECT_EQ(traits.GetSampleType(), 2);
}
