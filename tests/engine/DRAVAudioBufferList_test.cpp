#include "engine/DRAVAudioBufferList.h"
#include "engine/DRAVAudioFormat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace
{
bool Aligned(const void* p)
{
    return reinterpret_cast<uintptr_t>(p) % 64 == 0;
}

TEST(DRAVAudioBufferList, FormatDescriptions)
{
    const auto planarFloat = ASBDForLinearPCM(48000, 2, true, true);
    EXPECT_EQ(planarFloat.mFormatFlags, 41u);
    EXPECT_EQ(planarFloat.mBytesPerFrame, 4u);
    EXPECT_EQ(planarFloat.mBytesPerPacket, 4u);
    EXPECT_EQ(planarFloat.mBitsPerChannel, 32u);
    EXPECT_EQ(planarFloat.mFramesPerPacket, 1u);
    EXPECT_EQ(planarFloat.mFormatID, 0x6C70636Du);  // 'lpcm'
    EXPECT_EQ(planarFloat.mSampleRate, 48000.0);

    const auto interleavedFloat = ASBDForLinearPCM(44100, 2, true, false);
    EXPECT_EQ(interleavedFloat.mFormatFlags, 9u);
    EXPECT_EQ(interleavedFloat.mBytesPerFrame, 8u);

    const auto planarInt = ASBDForLinearPCM(48000, 2, false, true);
    EXPECT_EQ(planarInt.mFormatFlags, 44u);
    EXPECT_EQ(planarInt.mBytesPerFrame, 2u);
    EXPECT_EQ(planarInt.mBitsPerChannel, 16u);
    const auto interleavedInt = ASBDForLinearPCM(48000, 6, false, false);
    EXPECT_EQ(interleavedInt.mFormatFlags, 12u);
    EXPECT_EQ(interleavedInt.mBytesPerFrame, 12u);
}

TEST(DRAVAudioBufferList, PlanarGetsOneAlignedBufferPerChannel)
{
    AudioBufferList* list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 2, true, true), 960, true);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->mNumberBuffers, 2u);
    for (uint32_t i = 0; i < 2; ++i)
    {
        EXPECT_EQ(list->mBuffers[i].mNumberChannels, 1u);
        EXPECT_EQ(list->mBuffers[i].mDataByteSize, 4u * 960);
        ASSERT_NE(list->mBuffers[i].mData, nullptr);
        EXPECT_TRUE(Aligned(list->mBuffers[i].mData));
        // The whole size is writable (ASan checks).
        std::memset(list->mBuffers[i].mData, 0x7F, list->mBuffers[i].mDataByteSize);
    }
    EXPECT_NE(list->mBuffers[0].mData, list->mBuffers[1].mData);
    DestroyAudioBufferList(&list);
    EXPECT_EQ(list, nullptr);
}

TEST(DRAVAudioBufferList, InterleavedGetsOneBufferOfAllChannels)
{
    AudioBufferList* list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 2, true, false), 960, true);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->mNumberBuffers, 1u);
    EXPECT_EQ(list->mBuffers[0].mNumberChannels, 2u);
    // Channels times bytes per frame: twice what the frames need.
    EXPECT_EQ(list->mBuffers[0].mDataByteSize, 16u * 960);
    EXPECT_TRUE(Aligned(list->mBuffers[0].mData));
    std::memset(list->mBuffers[0].mData, 0, list->mBuffers[0].mDataByteSize);
    DestroyAudioBufferList(&list);

    AudioBufferList* mono = AllocateAudioBufferList(ASBDForLinearPCM(48000, 1, false, false), 100, true);
    ASSERT_NE(mono, nullptr);
    EXPECT_EQ(mono->mBuffers[0].mDataByteSize, 200u);
    DestroyAudioBufferList(&mono);
}

TEST(DRAVAudioBufferList, WithoutAllocationTheDataStaysNull)
{
    AudioBufferList* list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 8, true, true), 512, false);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->mNumberBuffers, 8u);
    for (uint32_t i = 0; i < 8; ++i)
    {
        EXPECT_EQ(list->mBuffers[i].mData, nullptr);
        EXPECT_EQ(list->mBuffers[i].mDataByteSize, 2048u);
    }
    DestroyAudioBufferList(&list);
}

TEST(DRAVAudioBufferList, EdgeSizesAndNullsAreSafe)
{
    AudioBufferList* empty = AllocateAudioBufferList(ASBDForLinearPCM(48000, 0, true, true), 960, true);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->mNumberBuffers, 0u);
    DestroyAudioBufferList(&empty);

    AudioBufferList* noFrames = AllocateAudioBufferList(ASBDForLinearPCM(48000, 2, true, true), 0, true);
    ASSERT_NE(noFrames, nullptr);
    EXPECT_EQ(noFrames->mBuffers[0].mDataByteSize, 0u);
    DestroyAudioBufferList(&noFrames);

    // Sizes that don't fit the record's 32 bits are refused, not wrapped.
    EXPECT_EQ(AllocateAudioBufferList(ASBDForLinearPCM(48000, 64, true, false), 0x7FFFFFFF, false), nullptr);

    DestroyAudioBufferList(nullptr);
    AudioBufferList* none = nullptr;
    DestroyAudioBufferList(&none);
    EXPECT_EQ(none, nullptr);
}

}  // namespace

TEST(StreamDescriptions, EngineFormatsChooseFloatOrIntegerAndPlanarByTheirFlag)
{
    const DRAVAudioFormat planarFloat(48000, 2, kDRAVAudioSampleTypeFloat, 0, true);
    const AudioStreamBasicDescription a = ASBDFromAudioFormat(planarFloat);
    EXPECT_EQ(a.mFormatFlags, 41u);
    EXPECT_EQ(a.mBytesPerFrame, 4u);
    EXPECT_EQ(a.mBitsPerChannel, 32u);
    EXPECT_DOUBLE_EQ(a.mSampleRate, 48000.0);

    const DRAVAudioFormat interleavedShorts(44100, 2, kDRAVAudioSampleTypeInt16, 0, false);
    const AudioStreamBasicDescription b = ASBDFromAudioFormat(interleavedShorts);
    EXPECT_EQ(b.mFormatFlags, 12u);
    EXPECT_EQ(b.mBytesPerFrame, 4u);
    EXPECT_EQ(b.mBitsPerChannel, 16u);

    const DRAVAudioFormat planarShorts(48000, 1, kDRAVAudioSampleTypeInt16, 0, true);
    EXPECT_EQ(ASBDFromAudioFormat(planarShorts).mFormatFlags, 44u);
    EXPECT_EQ(ASBDFromAudioFormatPtr(nullptr).mChannelsPerFrame, 0u);
}
