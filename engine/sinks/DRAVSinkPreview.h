#pragma once

#include <atomic>
#include <memory>

#include "engine/units/DRAVSink.h"

inline constexpr char kPropertySinkAlternativeAudioRenderer[] = "Alternative Audio Renderer";
inline constexpr char kPropertySinkAlternativeVideoRenderer[] = "Alternative Video Renderer";

// A shell around a video and an audio renderer, each made as a child sink:
// input pin 0 carries video, pin 1 audio.
class DRAVSinkPreview : public DRAVSink
{
public:
    static constexpr DRAVSinkType kVideoRenderer = 3;
    static constexpr DRAVSinkType kAlternativeVideoRenderer = 4;
    static constexpr DRAVSinkType kAudioRenderer = 5;
    static constexpr DRAVSinkType kAlternativeAudioRenderer = 6;

    explicit DRAVSinkPreview(const DRAVSinkConfig& config);
    ~DRAVSinkPreview() override;

    static KVCMap* GetMyObjectProperties();

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;

    // Each choice rebuilds the sink on a thread of its own.
    void SelectAlternativeAudioRenderer(bool alternative);
    bool IsAlternativeAudioRendererSelected() { return alternativeAudio_.load(); }
    void SelectAlternativeVideoRenderer(bool alternative);
    bool IsAlternativeVideoRendererSelected() { return alternativeVideo_.load(); }

    std::shared_ptr<DRAVUnit> GetAudioRenderer();
    std::shared_ptr<DRAVUnit> GetVideoRenderer();

private:
    static void ReleaseRenderer(std::shared_ptr<DRAVUnit>& renderer, DRAVUnit* self);

    std::atomic<bool> alternativeAudio_{false};
    std::atomic<bool> alternativeVideo_{false};
    CDplThreadMutex videoMutex_;
    std::shared_ptr<DRAVUnit> videoRenderer_;
    CDplThreadMutex audioMutex_;
    std::shared_ptr<DRAVUnit> audioRenderer_;
};
