#include "engine/media/DRAVMediaBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"

namespace
{
// Storage of another class, to see the cast checks.
class OtherStorage : public DRAVBuffer
{
public:
    OtherStorage() : DRAVBuffer("other") {}
    uint8_t* GetData() override { return nullptr; }
    int64_t GetSizeMax() const override { return 0; }
    int64_t GetSizeCurrent() const override { return 0; }
    DRAVResult SetSizeCurrent(int64_t) override { return DRAVResult(); }
    void ResetBuffer() override {}
    DRAVResult FillBuffer(const void*, int64_t) override { return DRAVResult(); }
};

std::vector<float> Ramp(size_t count)
{
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(i) * 0.25f;
    return samples;
}

TEST(DRAVAudioBuffer, FactoryRoundsToWholeFramesAndCopiesData)
{
    const auto samples = Ramp(960 * 2);
    auto frame =
        DRAVAudioBuffer::GetAudioBuffer("maker", 7680, kDefaultAudioFormatFloat, samples.data(), 7680);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetUsedBufferSize(), 7680);
    EXPECT_EQ(frame->GetNumSamples(), 1920);
    EXPECT_EQ(memcmp(frame->GetStorage()->GetData(), samples.data(), 7680), 0);

    auto odd = DRAVAudioBuffer::GetAudioBuffer("maker", 10, kDefaultAudioFormatFloat, nullptr, 0);
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->GetAllocatedBufferSize(), 16);

    EXPECT_FALSE(DRAVAudioBuffer::GetAudioBuffer("maker", 8, kDefaultAudioFormatFloat, samples.data(), 16))
        << "more data than the frame holds";
    EXPECT_FALSE(DRAVAudioBuffer::GetAudioBuffer("maker", -8, kDefaultAudioFormatFloat, nullptr, 0));
}

TEST(DRAVAudioBuffer, FormatAccess)
{
    auto frame = DRAVAudioBuffer::GetAudioBuffer("f", 64, kDefaultAudioFormatInt, nullptr, 0);
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->HasMediaFormat(std::make_shared<DRAVAudioFormat>(kDefaultAudioFormatInt)));
    EXPECT_FALSE(frame->HasMediaFormat(std::make_shared<DRAVAudioFormat>(kDefaultAudioFormatFloat)));

    std::shared_ptr<DRAVMediaFormat> copy;
    ASSERT_TRUE(frame->GetMediaFormatCopy(&copy).Succeeded());
    ASSERT_NE(copy, frame->GetMediaFormat());
    std::static_pointer_cast<DRAVAudioFormat>(copy)->SetSampleRate(8000);
    EXPECT_EQ(frame->GetAudioFormat()->GetSampleRate(), 48000u) << "the copy is the caller's own";
    EXPECT_EQ(frame->GetMediaFormatCopy(nullptr).GetCode(), kDRAVResultErrNullPointer);

    frame->SetMediaFormat(std::make_shared<DRAVMediaFormat>());
    EXPECT_EQ(frame->GetAudioFormat(), nullptr);
    EXPECT_EQ(frame->GetNumSamples(), 0);
    EXPECT_EQ(frame->GetMediaFormatCopy(&copy).GetCode(), kDRAVResultErrNullPointer);
    frame->SetMediaFormat(nullptr);
    EXPECT_FALSE(frame->HasMediaFormat(std::make_shared<DRAVAudioFormat>(kDefaultAudioFormatInt)));
}

TEST(DRAVMediaBufferLocks, ResultsWithoutStorageOutOrTheRightType)
{
    DRAVAudioBuffer bare("bare", kDefaultAudioFormatFloat);
    std::shared_ptr<DRAVBuffer> storage;
    EXPECT_EQ(bare.LockRead(&storage).GetCode(), kDRAVResultErrNotInitialized);
    EXPECT_EQ(bare.LockWrite(&storage).GetCode(), kDRAVResultErrNotInitialized);
    EXPECT_EQ(bare.GetAllocatedBufferSize(), 0);
    EXPECT_EQ(bare.GetUsedBufferSize(), 0);

    auto frame = DRAVAudioBuffer::GetAudioBuffer("f", 64, kDefaultAudioFormatFloat, nullptr, 0);
    EXPECT_EQ(frame->LockRead(static_cast<std::shared_ptr<DRAVBuffer>*>(nullptr)).GetCode(),
              kDRAVResultErrNullPointer);
    EXPECT_EQ(frame->LockWrite<DRAVBufferRAM>(nullptr).GetCode(), kDRAVResultErrNullPointer);
    EXPECT_EQ(frame->UnlockRead().GetCode(), kDRAVResultErrInvalidState) << "no reader to unlock";
    EXPECT_EQ(frame->UnlockWrite().GetCode(), kDRAVResultErrInvalidState);

    // A typed lock of the wrong storage class fails and unlocks again.
    std::shared_ptr<OtherStorage> other;
    EXPECT_EQ(frame->LockRead<OtherStorage>(&other).GetCode(), kDRAVResultErrInvalidCast);
    EXPECT_EQ(frame->GetNumReaders(), 0);
    EXPECT_EQ(frame->LockWrite<OtherStorage>(&other).GetCode(), kDRAVResultErrInvalidCast);
    std::shared_ptr<DRAVBufferRAM> ram;
    ASSERT_TRUE(frame->LockWrite<DRAVBufferRAM>(&ram).Succeeded()) << "an exclusive lock is free again";
    EXPECT_EQ(ram, frame->GetStorage());
    EXPECT_TRUE(frame->UnlockWrite().Succeeded());
}

TEST(DRAVMediaBufferLocks, ScopeGuardsLockAndRelease)
{
    auto frame = DRAVAudioBuffer::GetAudioBuffer("f", 64, kDefaultAudioFormatFloat, nullptr, 0);
    {
        std::shared_ptr<DRAVBufferRAM> a;
        std::shared_ptr<DRAVBufferRAM> b;
        DRAVResult result;
        DRAVMediaBufferReadLock<DRAVBufferRAM> first(frame, &a, &result);
        DRAVMediaBufferReadLock<DRAVBufferRAM> second(frame, &b);
        EXPECT_TRUE(result.Succeeded());
        EXPECT_TRUE(second.IsLocked());
        EXPECT_EQ(frame->GetNumReaders(), 2) << "readers share the lock";
        EXPECT_EQ(a, b);
    }
    EXPECT_EQ(frame->GetNumReaders(), 0);
    {
        std::shared_ptr<DRAVBufferRAM> w;
        DRAVMediaBufferWriteLock<DRAVBufferRAM> writer(frame, &w);
        EXPECT_TRUE(writer.IsLocked());
    }
    std::shared_ptr<DRAVBufferRAM> afterwards;
    DRAVMediaBufferWriteLock<DRAVBufferRAM> again(frame, &afterwards);
    EXPECT_TRUE(again.IsLocked()) << "the first writer released its lock";

    std::shared_ptr<DRAVBufferRAM> none;
    DRAVResult result;
    DRAVMediaBufferReadLock<DRAVBufferRAM> empty(nullptr, &none, &result);
    EXPECT_FALSE(empty.IsLocked());
    EXPECT_EQ(result.GetCode(), kDRAVResultErrNullPointer);
    EXPECT_EQ(none, nullptr);
}

TEST(DRAVMediaBuffer, TextForm)
{
    auto frame = DRAVAudioBuffer::GetAudioBuffer("f", 3840, kDefaultAudioFormatFloat, nullptr, 0);
    frame->SetTimestamp(DRAVTimestamp(1500000));
    frame->GetStorage()->SetSizeCurrent(1920);
    const std::string text = frame->ToString();
    EXPECT_NE(text.find(": 00:00:01.500 Size: 1920/3840 bytes"), std::string::npos) << text;
}

TEST(DRAVAudioBuffer, CopyOfTheSameTypeCarriesContentAndTime)
{
    const auto samples = Ramp(200);
    auto frame = DRAVAudioBuffer::GetAudioBuffer("src", 1600, kDefaultAudioFormatFloat, samples.data(), 800);
    frame->SetTimestamp(DRAVTimestamp(42));
    frame->SetDuration(DRAVDuration(2083));
    std::shared_ptr<DRAVAudioBuffer> copy;
    ASSERT_TRUE(frame->CopyToFloat(&copy).Succeeded());
    ASSERT_TRUE(copy);
    EXPECT_NE(copy->GetStorage(), frame->GetStorage());
    EXPECT_EQ(std::make_tuple(copy->GetUsedBufferSize(), copy->GetAllocatedBufferSize(),
                              copy->GetTimestamp().Get(), copy->GetDuration().Get()),
              std::make_tuple(int64_t{800}, int64_t{1600}, int64_t{42}, int64_t{2083}));
    EXPECT_EQ(memcmp(copy->GetStorage()->GetData(), samples.data(), 800), 0);
    EXPECT_EQ(frame->CopyToFloat(nullptr).GetCode(), kDRAVResultErrNullPointer);
}
TEST(DRAVAudioBuffer, CopiesBetweenFloatAndSixteenBitUseTheSoundConverters)
{
    // Stereo float: silence, full scale both ways, a half, beyond full scale.
    const std::vector<float> samples = {0.0f, 0.0f, 1.0f, -1.0f, 0.5f, -0.5f, 1.5f, -1.5f};
    const int64_t bytes = static_cast<int64_t>(samples.size() * sizeof(float));
    auto frame =
        DRAVAudioBuffer::GetAudioBuffer("src", bytes, kDefaultAudioFormatFloat, samples.data(), bytes);
    frame->SetTimestamp(DRAVTimestamp(7));
    std::shared_ptr<DRAVAudioBuffer> shorts;
    ASSERT_TRUE(frame->CopyToInt16(&shorts).Succeeded());
    ASSERT_TRUE(shorts);
    EXPECT_EQ(shorts->GetAudioFormat()->GetSampleType(), kDRAVAudioSampleTypeInt16);
    EXPECT_EQ(shorts->GetUsedBufferSize(), bytes / 2);
    EXPECT_EQ(shorts->GetTimestamp().Get(), 7);
    // The clamping quantizer: a scale of 32767, truncation, the full range at the ends.
    const auto* converted = reinterpret_cast<const int16_t*>(shorts->GetStorage()->GetData());
    const std::vector<int16_t> expected = {0, 0, 32767, -32768, 16383, -16383, 32767, -32768};
    EXPECT_EQ(std::vector<int16_t>(converted, converted + expected.size()), expected);

    // And back: the 16-bit scale maps the whole range onto -1 to 1.
    std::shared_ptr<DRAVAudioBuffer> floats;
    ASSERT_TRUE(shorts->CopyToFloat(&floats).Succeeded());
    ASSERT_TRUE(floats);
    EXPECT_EQ(floats->GetUsedBufferSize(), bytes);
    const auto* back = reinterpret_cast<const float*>(floats->GetStorage()->GetData());
    EXPECT_FLOAT_EQ(back[2], 1.0f);
    EXPECT_FLOAT_EQ(back[3], -1.0f);
    EXPECT_NEAR(back[4], 0.5f, 1e-4f);
}
}  // namespace
