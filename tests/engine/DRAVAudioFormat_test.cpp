#include "engine/media/DRAVAudioFormat.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "engine/media/DRAVAudioFormatConfiguration.h"

namespace
{
TEST(DRAVTimestampText, NegativeAndDayWrap)
{
    EXPECT_EQ(DRAVTimestamp(-1500).ToString(), "-00:00:00.001");
    EXPECT_EQ(DRAVTimestamp(90061001000LL).ToString(), "01:01:01.001");
    EXPECT_EQ(DRAVTimestamp(90061001000LL).ToStringSeconds(), "01:01:01");
    EXPECT_EQ(DRAVTimestamp(0).ToStringMilliseconds(), "00:00:00.000");
    EXPECT_EQ(DRAVTimestamp(-3723004000LL).ToStringSeconds(), "-01:02:03");
}

TEST(DRAVDurationArithmetic, ScalingTruncatesTowardZero)
{
    EXPECT_EQ((DRAVDuration(10) * 0.55).Get(), 5);
    EXPECT_EQ((DRAVDuration(-10) * 0.55).Get(), -5);
    EXPECT_EQ((DRAVDuration(10) / 3.0).Get(), 3);
    EXPECT_EQ((2.5 * DRAVDuration(3)).Get(), 7);
    EXPECT_EQ((DRAVTimestamp(100) - DRAVTimestamp(250)).Get(), -150);
    EXPECT_EQ((DRAVTimestamp(100) + DRAVDuration::OneMillisecond()).Get(), 1100);
}

TEST(DRAVAudioFormatArithmetic, FloatStereoAt48k)
{
    const DRAVAudioFormat& f = kDefaultAudioFormatFloat;
    EXPECT_EQ(f.GetSizeFromDuration(DRAVDuration(10000)), 3840);
    EXPECT_EQ(f.GetDurationFromSize(3840).Get(), 10000);
    EXPECT_EQ(f.GetSizeFromDuration(DRAVDuration(0)), 0);
    EXPECT_EQ(kDefaultAudioFormatInt.GetSizeFromDuration(DRAVDuration(10000)), 1920);
}

TEST(DRAVAudioFormatArithmetic, PartialFramesRoundUpAndDurationsTruncate)
{
    const DRAVAudioFormat f44(44100, 2, kDRAVAudioSampleTypeFloat, 0);
    EXPECT_EQ(f44.GetFramesFromDuration(DRAVDuration(10000)), 441);
    EXPECT_EQ(f44.GetFramesFromDuration(DRAVDuration(1)), 1);
    EXPECT_EQ(f44.GetSizeFromDuration(DRAVDuration(1)), 8);
    // 8 bytes are one frame of 1/44100 s = 22.67... microseconds.
    EXPECT_EQ(f44.GetDurationFromSize(8).Get(), 22);
    // Every whole number of milliseconds at 44.1 kHz is a whole number of frames.
    for (int64_t ms = 1; ms <= 1000; ++ms)
    {
        ASSERT_EQ(f44.GetFramesFromDuration(DRAVDuration(ms * 1000)), ms * 441 / 10 + (ms * 441 % 10 != 0))
            << ms;
    }
    // Very long durations do not overflow.
    EXPECT_GT(kDefaultAudioFormatFloat.GetFramesFromDuration(DRAVDuration::OneDay()), 0);
    EXPECT_EQ(kDefaultAudioFormatFloat.GetFramesFromDuration(DRAVDuration::OneDay()), 86400LL * 48000);
}

TEST(DRAVAudioFormatArithmetic, DegenerateFormatsDoNotDivideByZero)
{
    const DRAVAudioFormat unknownType(48000, 2, static_cast<DRAVAudioSampleType>(7), 0);
    EXPECT_EQ(unknownType.GetBitsPerSample(), 0u);
    EXPECT_EQ(unknownType.GetBytesPerFrame(), 0);
    EXPECT_EQ(unknownType.GetSizeFromDuration(DRAVDuration(10000)), 0);
    EXPECT_EQ(unknownType.GetDurationFromSize(3840).Get(), 0);
    const DRAVAudioFormat noRate(0, 2, kDRAVAudioSampleTypeFloat, 0);
    EXPECT_EQ(noRate.GetDurationFromSize(3840).Get(), 0);
    EXPECT_EQ(noRate.GetDurationFromFrames(480).Get(), 0);
    EXPECT_EQ(DRAVAudioFormat().GetFramesFromDuration(DRAVDuration(10000)), 0);
}

TEST(DRAVAudioFormatCompare, MaskAndFlagDoNotCount)
{
    auto a = std::make_shared<DRAVAudioFormat>(48000, 2, kDRAVAudioSampleTypeFloat, 3, true);
    EXPECT_TRUE(kDefaultAudioFormatFloat.IsMediaFormat(a));
    EXPECT_FALSE(kDefaultAudioFormatInt.IsMediaFormat(a));
    EXPECT_FALSE(kDefaultAudioFormatFloat.IsMediaFormat(
        std::make_shared<DRAVAudioFormat>(44100, 2, kDRAVAudioSampleTypeFloat, 0)));
    EXPECT_FALSE(kDefaultAudioFormatFloat.IsMediaFormat(std::make_shared<DRAVMediaFormat>()));
    EXPECT_FALSE(kDefaultAudioFormatFloat.IsMediaFormat(nullptr));
    EXPECT_FALSE(DRAVMediaFormat().IsMediaFormat(a));
}

TEST(DRAVAudioFormatConfigurationJson, RoundTripAndTextForm)
{
    DRAVAudioFormatConfiguration config(DRAVAudioFormat(44100, 6, kDRAVAudioSampleTypeInt16, 0x3f));
    const std::string text = config.ToJSON();
    const auto object = nlohmann::json::parse(text);
    EXPECT_EQ(object.at("sampleRateHz"), 44100);
    EXPECT_EQ(object.at("numChannels"), 6);
    EXPECT_EQ(object.at("sampleType"), 1);
    EXPECT_EQ(object.at("channelMask"), 0x3f);
    EXPECT_EQ(object.at("sampleTypeInfo"), "1-short,2-float");
    EXPECT_NE(text.find("\n    \""), std::string::npos) << "indented by four blanks";

    DRAVAudioFormatConfiguration back;
    DRAVJSONSerializationInterface& record = back;
    ASSERT_TRUE(record.FromJSON(text).Succeeded());
    EXPECT_TRUE(back.IsSameFormat(config));
    EXPECT_EQ(back.GetChannelMask(), 0x3fu);
}

TEST(DRAVAudioFormatConfigurationJson, BadInputKeepsWhatWasReadBefore)
{
    DRAVAudioFormatConfiguration config(kDefaultAudioFormatFloat);
    // "sampleType" is read last: the other three have been taken.
    EXPECT_EQ(config.FromJSON(R"({"sampleRateHz": 32000, "numChannels": 1, "channelMask": 4})").GetCode(),
              kDRAVResultErrInvalidParameter);
    EXPECT_EQ(config.GetSampleRate(), 32000u);
    EXPECT_EQ(config.GetNumChannels(), 1u);
    EXPECT_EQ(config.GetChannelMask(), 4u);
    EXPECT_EQ(config.GetSampleType(), kDRAVAudioSampleTypeFloat);

    // "channelMask" comes before "sampleType": a missing mask stops the read there.
    DRAVAudioFormatConfiguration second(kDefaultAudioFormatFloat);
    EXPECT_EQ(second.FromJSON(R"({"sampleRateHz": 22050, "numChannels": 3, "sampleType": 1})").GetCode(),
              kDRAVResultErrInvalidParameter);
    EXPECT_EQ(second.GetNumChannels(), 3u);
    EXPECT_EQ(second.GetSampleType(), kDRAVAudioSampleTypeFloat);

    for (const char* bad : {"not json", "[1,2]", R"({"sampleRateHz": -1})", R"({"sampleRateHz": "48000"})"})
        EXPECT_EQ(config.FromJSON(bad).GetCode(), kDRAVResultErrInvalidParameter) << bad;
}

TEST(DRAVAudioFormatConfigurationJson, UnknownSampleTypeIsStoredAsZero)
{
    DRAVAudioFormatConfiguration config;
    ASSERT_TRUE(
        config.FromJSON(R"({"sampleRateHz": 48000, "numChannels": 2, "channelMask": 0, "sampleType": 5})")
            .Succeeded());
    EXPECT_EQ(config.GetSampleType(), kDRAVAudioSampleTypeUnknown);
    EXPECT_EQ(config.GetBytesPerFrame(), 0);
}
}  // namespace
