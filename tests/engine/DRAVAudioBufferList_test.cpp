#include "engine/media/DRAVAudioBufferList.h"
#include "engine/media/DRAVAudioFormat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace
{
bool Aligned(const void* p)
{
    return reinterpret_cast<uintptr_t>(p) % 64 == 0;
}

// Both ways to describe a format agree: from plain parameters and from an engine format.
TEST(DRAVAudioBufferList, FormatDescriptionsForFloatOrIntegerPlanarOrInterleaved)
{
    struct Case
    {
        uint32_t rate, channels;
        bool isFloat, planar;
        uint32_t flags, bytesPerFrame, bits;
    };
    const Case cases[] = {{48000, 2, true, true, 41, 4, 32},
                          {44100, 2, true, false, 9, 8, 32},
                          {48000, 2, false, true, 44, 2, 16},
                          {48000, 6, false, false, 12, 12, 16}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.channels << (c.isFloat ? " float" : " int16")
                                        << (c.planar ? " planar" : " interleaved"));
        const DRAVAudioFormat format(c.rate, c.channels,
                                     c.isFloat ? kDRAVAudioSampleTypeFloat : kDRAVAudioSampleTypeInt16, 0,
                                     c.planar);
        for (const AudioStreamBasicDescription& d :
             {ASBDForLinearPCM(c.rate, c.channels, c.isFloat, c.planar), ASBDFromAudioFormat(format)})
        {
            EXPECT_EQ(d.mFormatID, 0x6C70636Du);  // 'lpcm'
            EXPECT_EQ(d.mFormatFlags, c.flags);
            EXPECT_EQ(d.mBytesPerFrame, c.bytesPerFrame);
            EXPECT_EQ(d.mBytesPerPacket, c.bytesPerFrame);
            EXPECT_EQ(d.mFramesPerPacket, 1u);
            EXPECT_EQ(d.mBitsPerChannel, c.bits);
            EXPECT_DOUBLE_EQ(d.mSampleRate, c.rate);
        }
    }
    EXPECT_EQ(ASBDFromAudioFormatPtr(nullptr).mChannelsPerFrame, 0u);
}

TEST(DRAVAudioBufferList, PlanarGetsOneAlignedBufferPerChannelInterleavedOneForAll)
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

    list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 2, true, false), 960, true);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->mNumberBuffers, 1u);
    EXPECT_EQ(list->mBuffers[0].mNumberChannels, 2u);
    // Channels times bytes per frame: twice what the frames need.
    EXPECT_EQ(list->mBuffers[0].mDataByteSize, 16u * 960);
    EXPECT_TRUE(Aligned(list->mBuffers[0].mData));
    std::memset(list->mBuffers[0].mData, 0, list->mBuffers[0].mDataByteSize);
    DestroyAudioBufferList(&list);

    list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 1, false, false), 100, true);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->mBuffers[0].mDataByteSize, 200u);
    DestroyAudioBufferList(&list);
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
    AudioBufferList* list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 0, true, true), 960, true);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->mNumberBuffers, 0u);
    DestroyAudioBufferList(&list);

    list = AllocateAudioBufferList(ASBDForLinearPCM(48000, 2, true, true), 0, true);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->mBuffers[0].mDataByteSize, 0u);
    DestroyAudioBufferList(&list);

    // Sizes that don't fit the record's 32 bits are refused, not wrapped.
    EXPECT_EQ(AllocateAudioBufferList(ASBDForLinearPCM(48000, 64, true, false), 0x7FFFFFFF, false), nullptr);
    DestroyAudioBufferList(nullptr);
    DestroyAudioBufferList(&list);
    EXPECT_EQ(list, nullptr);
}

}  // namespace
