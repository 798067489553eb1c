#pragma once

#include <memory>

#include "engine/units/DRAVSource.h"

// The frequency the composite test source gives its audio generator.
extern double gTestSineHz;

// A composite test source: a video and an audio test generator as children,
// the audio side reached through this unit.
class DRAVSourceTest : public DRAVSource
{
public:
    static constexpr DRAVSourceType kSourceType = 1;
    static constexpr DRAVSourceType kVideoGeneratorType = 7;
    static constexpr DRAVSourceType kAudioGeneratorType = 6;
    static constexpr DRAVSourceUsageType kGeneratorUsage = 4;

    explicit DRAVSourceTest(DRAVSourceConfig config = DRAVSourceConfig{kSourceType, kGeneratorUsage});
    ~DRAVSourceTest() override;

    DRAVResult InitSource(DRAVPinType outputPinType) override;
    DRAVResult Deinit() override;
    DRAVResult RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration, int pin) override;
    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration& duration, int pin) override;
    using DRAVSource::PullAudioFrame;
    void SetAudioMute(bool mute) override;
    void SetAudioBufferSizeMsec(int64_t sizeMsec) override;
    int64_t GetAudioBufferSizeMsec() override;

    std::shared_ptr<DRAVSource> GetAudioGenerator();
    std::shared_ptr<DRAVUnit> GetVideoGenerator();

private:
    void ReleaseChildren();

    CDplThreadMutex videoMutex_;
    std::shared_ptr<DRAVUnit> videoGenerator_;
    CDplThreadMutex audioMutex_;
    std::shared_ptr<DRAVSource> audioGenerator_;
};
