#include "engine/sinks/DRAVSinkPreview.h"

#include "engine/units/DRAVUnitFactory.h"
#include "portable-core/KVCMapBuilder.h"

DRAVSinkPreview::DRAVSinkPreview(const DRAVSinkConfig& config)
    : DRAVSink("DRAVSinkPreview", DRAVSinkPreview::GetMyObjectProperties(),
               DRAVSinkConfig{kTypePreview, config.reserved, config.blocking, config.useDefaultRouting}, 2)
{
}

DRAVSinkPreview::~DRAVSinkPreview()
{
    ReleaseRenderer(audioRenderer_, this);
    ReleaseRenderer(videoRenderer_, this);
}

KVCMap* DRAVSinkPreview::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSinkPreview>(DRAVSink::GetMyObjectProperties())
            .Bool(kPropertySinkAlternativeAudioRenderer, &DRAVSinkPreview::SelectAlternativeAudioRenderer,
                  &DRAVSinkPreview::IsAlternativeAudioRendererSelected)
            .Bool(kPropertySinkAlternativeVideoRenderer, &DRAVSinkPreview::SelectAlternativeVideoRenderer,
                  &DRAVSinkPreview::IsAlternativeVideoRendererSelected)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVSinkPreview::Init()
{
    DRAVResult result = InitSink(kDRAVPinTypePassthrough);
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (result.Succeeded())
    {
        CDplScopedLock lock(videoMutex_);
        std::shared_ptr<DRAVUnit> renderer;
        result = DRAVUnitFactory::CreateSink(
            alternativeVideo_.load() ? kAlternativeVideoRenderer : kVideoRenderer, self, true, &renderer);
        videoRenderer_ = result.Succeeded() ? renderer : nullptr;
    }
    if (result.Succeeded())
    {
        CDplScopedLock lock(audioMutex_);
        std::shared_ptr<DRAVUnit> renderer;
        result = DRAVUnitFactory::CreateSink(
            alternativeAudio_.load() ? kAlternativeAudioRenderer : kAudioRenderer, self, true, &renderer);
        audioRenderer_ = result.Succeeded() ? renderer : nullptr;
    }
    if (result.Succeeded())
    {
        SetUnitInitialized(true);
    }
    else
    {
        Deinit();
    }
    return result;
}

void DRAVSinkPreview::ReleaseRenderer(std::shared_ptr<DRAVUnit>& renderer, DRAVUnit* self)
{
    if (!renderer)
    {
        return;
    }
    if (renderer->GetOwner().get() == self)
    {
        DRAVUnitFactory::RemoveUnit(renderer);
    }
    renderer->Deinit();
    renderer.reset();
}

DRAVResult DRAVSinkPreview::Deinit()
{
    SetUnitInitialized(false);
    {
        CDplScopedLock lock(audioMutex_);
        ReleaseRenderer(audioRenderer_, this);
    }
    {
        CDplScopedLock lock(videoMutex_);
        ReleaseRenderer(videoRenderer_, this);
    }
    return DRAVSink::Deinit();
}

DRAVResult DRAVSinkPreview::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int pinNumber,
                                                     std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    std::shared_ptr<DRAVUnit> renderer = pinNumber == 1 ? GetAudioRenderer() : GetVideoRenderer();
    if (!renderer)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return renderer->SendFrame(std::move(frame));
}

void DRAVSinkPreview::SelectAlternativeAudioRenderer(bool alternative)
{
    alternativeAudio_.store(alternative);
    ReinitAsync();
}

void DRAVSinkPreview::SelectAlternativeVideoRenderer(bool alternative)
{
    alternativeVideo_.store(alternative);
    ReinitAsync();
}

std::shared_ptr<DRAVUnit> DRAVSinkPreview::GetAudioRenderer()
{
    CDplScopedLock lock(audioMutex_);
    return audioRenderer_;
}

std::shared_ptr<DRAVUnit> DRAVSinkPreview::GetVideoRenderer()
{
    CDplScopedLock lock(videoMutex_);
    return videoRenderer_;
}
