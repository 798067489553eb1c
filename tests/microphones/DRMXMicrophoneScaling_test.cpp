#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "microphones/DRMXMicrophoneHelperBase.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "microphones/DRMXMicrophoneReedPro.h"

namespace
{
// The controls over a block without a device behind them.
template <typename T>
class Controls : public DRMXMicrophoneHelperBase<T>
{
public:
    bool IsMicrophoneConnected() override { return false; }
    DRAVResult ReadMicrophoneConfiguration(int& bytesRead) override
    {
        bytesRead = 0;
        return kDRAVResultErrNotInitialized;
    }
    DRAVResult WriteMicrophoneConfiguration() override { return kDRAVResultErrNotInitialized; }
    std::string GetSerialNumber() const override { return {}; }

    T& Raw() { return this->block; }
};

template <typename T>
short RawInt16(const T& block, size_t offset)
{
    return static_cast<short>(block.Bytes()[offset] | (block.Bytes()[offset + 1] << 8));
}

TEST(DRMXMicrophoneScaling, GainAndDirectMonitorBothModels)
{
    Controls<DRMXMicrophoneReed> reed;
    Controls<DRMXMicrophoneReedPro> pro;
    struct Case
    {
        double value;
        short gain;
        short monitor;
    };
    const Case cases[] = {
        {1.0, 10240, 0},
        {0.0, 0, 25600},
        {0.99999, 10239, 1},
        {0.5, 5120, 12800},
        // Beyond what a short holds, and NaN: saturated and taken as 0.0.
        {5.0, 32767, -32768},
        {std::numeric_limits<double>::quiet_NaN(), 0, 25600},
    };
    for (const Case& c : cases)
    {
        reed.SetMicrophoneGain(c.value);
        pro.SetMicrophoneGain(c.value);
        reed.SetMicrophoneDirectMonitorVolume(c.value);
        EXPECT_EQ(RawInt16(reed.Block(), 0), c.gain) << c.value;
        EXPECT_EQ(RawInt16(pro.Block(), 0), c.gain) << c.value;
        EXPECT_EQ(RawInt16(reed.Block(), 10), c.monitor) << c.value;
    }
    reed.Raw().SetMicrophoneGain(5120);
    EXPECT_EQ(reed.GetMicrophoneGain(), 0.5);
    reed.Raw().SetMicrophoneDirectMonitorVolume(25600);
    EXPECT_EQ(reed.GetMicrophoneDirectMonitorVolume(), 0.0);
    reed.Raw().SetMicrophoneDirectMonitorVolume(0);
    EXPECT_EQ(reed.GetMicrophoneDirectMonitorVolume(), 1.0);
}

TEST(DRMXMicrophoneScaling, OutputVolumeStraightReadBucketWriteOnThePro)
{
    Controls<DRMXMicrophoneReed> reed;
    Controls<DRMXMicrophoneReedPro> pro;
    struct Case
    {
        short raw;
        double reed;
        double pro;
    };
    const Case cases[] = {
        {-32768, 0.0, (-32768 + 15360) / 15360.0},
        {-15360, (17408.0 / 18944.0) / 13, 0.0},
        {-3008, 0.5, (-3008 + 15360) / 15360.0},
        {0, 1.0, 1.0},
        {-16000, (16768.0 / 18944.0) / 13, (-16000 + 15360) / 15360.0},
    };
    for (const Case& c : cases)
    {
        pro.Raw().SetMicrophoneOutputVolume(c.raw);
        reed.Raw().SetMicrophoneOutputVolume(c.raw);
        EXPECT_NEAR(pro.GetMicrophoneOutputVolume(), c.pro, 1e-6) << c.raw;
        EXPECT_NEAR(reed.GetMicrophoneOutputVolume(), c.reed, 1e-9) << c.raw;
    }
    EXPECT_LT(pro.GetMicrophoneOutputVolume(), 0.0);  // raw -16000 lies below the line's start
    // Both write through the table, so the Pro reads a written value back as another number.
    reed.SetMicrophoneOutputVolume(0.5);
    pro.SetMicrophoneOutputVolume(0.5);
    EXPECT_EQ(RawInt16(reed.Block(), 7), -3008);
    EXPECT_EQ(RawInt16(pro.Block(), 7), -3008);
    EXPECT_NEAR(pro.GetMicrophoneOutputVolume(), (-3008 + 15360) / 15360.0, 1e-6);
    reed.SetMicrophoneOutputVolume(1.0 / 13);
    EXPECT_EQ(RawInt16(reed.Block(), 7), -13824);
}

TEST(DRMXMicrophoneScaling, ModelTable)
{
    Controls<DRMXMicrophoneReed> reed;
    Controls<DRMXMicrophoneReedPro> pro;
    reed.SetMicrophoneVolumeSelect(3);
    reed.SetMicrophoneAllLEDOff(true);
    reed.SetMicrophoneLEDFlip(true);
    reed.SetMicrophoneGainLock(true);
    reed.SetMicrophonePolarization(0.02);
    const uint8_t reedTail[] = {3, 1, 1, 1};
    EXPECT_TRUE(std::equal(reedTail, reedTail + 4, reed.Block().Bytes().begin() + 12));
    EXPECT_TRUE(reed.HasMicrophoneVolumeSelect() && reed.HasMicrophoneGainLock() &&
                reed.HasMicrophoneLEDFlip());
    EXPECT_FALSE(reed.HasMicrophonePolarization());
    EXPECT_EQ(reed.GetMicrophonePolarization(), 0.0);
    EXPECT_EQ(reed.GetMicrophoneVolumeSelect(), 3);

    // The Pro's byte 12 is the polarization; bytes 13 to 15 are carried, never written.
    pro.Raw().Data()[13] = 0xA5;
    pro.Raw().Data()[14] = 0x5A;
    pro.Raw().Data()[15] = 0x77;
    pro.SetMicrophoneVolumeSelect(3);
    pro.SetMicrophoneAllLEDOff(true);
    pro.SetMicrophoneLEDFlip(false);
    pro.SetMicrophoneGainLock(false);
    pro.SetMicrophonePolarization(0.02);
    const uint8_t proTail[] = {2, 0xA5, 0x5A, 0x77};
    EXPECT_TRUE(std::equal(proTail, proTail + 4, pro.Block().Bytes().begin() + 12));
    EXPECT_TRUE(pro.HasMicrophonePolarization());
    EXPECT_FALSE(pro.HasMicrophoneVolumeSelect() || pro.HasMicrophoneGainLock() ||
                 pro.HasMicrophoneLEDFlip());
    EXPECT_FALSE(pro.GetMicrophoneAllLEDOff() || pro.GetMicrophoneGainLock() || pro.GetMicrophoneLEDFlip());
    EXPECT_EQ(pro.GetMicrophoneVolumeSelect(), 0);
    EXPECT_NEAR(pro.GetMicrophonePolarization(), 0.02, 1e-7);

    // The 16-bit field at the odd offset 7 stands whole beside its neighbours.
    reed.Raw().SetMicrophoneLowCut(true);
    reed.Raw().SetMicrophoneOutputVolume(-2);
    reed.Raw().SetMicrophoneOutputMute(true);
    const uint8_t middle[] = {1, 0xFE, 0xFF, 1};
    EXPECT_TRUE(std::equal(middle, middle + 4, reed.Block().Bytes().begin() + 6));
    EXPECT_EQ(reed.Raw().GetMicrophoneOutputVolume(), -2);
}

TEST(DRMXMicrophoneScaling, ProductIdTable)
{
    EXPECT_EQ(GetTypeById(0x0B21), kMicrophoneTypeReed1);
    EXPECT_EQ(GetTypeById(0x0B26), kMicrophoneTypeReedProDFU);
    EXPECT_EQ(GetTypeById(0x0B27), kMicrophoneTypeUnknown);
}
}  // namespace
