#include "engine/sources/DRAVSourceTest.h"

#include "engine/units/DRAVUnitFactory.h"

double gTestSineHz = 880.0;

DRAVSourceTest::DRAVSourceTest(DRAVSourceConfig config) : DRAVSource("DRAVSourceTest", nullptr, config, 2) {}

DRAVSourceTest::~DRAVSourceTest()
{
    ReleaseChildren();
}

DRAVResult DRAVSourceTest::InitSource(DRAVPinType outputPinType)
{
    DRAVResult result = DRAVSource::InitSource(outputPinType);
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (result.Succeeded())
    {
        CDplScopedLock lock(videoMutex_);
        std::shared_ptr<DRAVUnit> video;
        result = DRAVUnitFactory::CreateSource(kVideoGeneratorType, kGeneratorUsage, self, true, &video);
        videoGenerator_ = result.Succeeded() ? video : nullptr;
    }
    if (result.Succeeded())
    {
        CDplScopedLock lock(audioMutex_);
        std::shared_ptr<DRAVUnit> audio;
        result = DRAVUnitFactory::CreateSource(kAudioGeneratorType, kGeneratorUsage, self, true, &audio);
        audioGenerator_ = result.Succeeded() ? std::dynamic_pointer_cast<DRAVSource>(audio) : nullptr;
        if (result.Succeeded() && !audioGenerator_)
        {
            result = DRAVResult(kDRAVResultErrInvalidCast, "The audio generator is no source");
        }
        if (audioGenerator_)
        {
            audioGenerator_->SetIntProperty(kPropertyTestSignalFrequencyHz,
                                            static_cast<int64_t>(gTestSineHz));
        }
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

void DRAVSourceTest::ReleaseChildren()
{
    std::shared_ptr<DRAVUnit> audio;
    {
        CDplScopedLock lock(audioMutex_);
        audio = std::move(audioGenerator_);
    }
    std::shared_ptr<DRAVUnit> video;
    {
        CDplScopedLock lock(videoMutex_);
        video = std::move(videoGenerator_);
    }
    for (const auto& child : {audio, video})
    {
        if (!child)
        {
            continue;
        }
        // A child in the unit's list is handed back by the unit's own Deinit.
        if (child->GetOwner().get() == this && !HasChild(child->GetObjectID()))
        {
            DRAVUnitFactory::RemoveUnit(child);
        }
        child->Deinit();
    }
}

DRAVResult DRAVSourceTest::Deinit()
{
    SetUnitInitialized(false);
    ReleaseChildren();
    return DRAVSource::Deinit();
}

std::shared_ptr<DRAVSource> DRAVSourceTest::GetAudioGenerator()
{
    CDplScopedLock lock(audioMutex_);
    return audioGenerator_;
}

std::shared_ptr<DRAVUnit> DRAVSourceTest::GetVideoGenerator()
{
    CDplScopedLock lock(videoMutex_);
    return videoGenerator_;
}

DRAVResult DRAVSourceTest::RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration, int)
{
    CDplScopedLock lock(audioMutex_);
    if (!audioGenerator_)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    return audioGenerator_->RequestAudioFrame(time, duration, -1);
}

DRAVResult DRAVSourceTest::PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                          const DRAVDuration& duration, int)
{
    CDplScopedLock lock(audioMutex_);
    if (!audioGenerator_)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    return audioGenerator_->PullAudioFrame(time, out, duration, -1);
}

void DRAVSourceTest::SetAudioMute(bool mute)
{
    DRAVSource::SetAudioMute(mute);
    CDplScopedLock lock(audioMutex_);
    if (audioGenerator_)
    {
        audioGenerator_->SetAudioMute(mute);
    }
}

void DRAVSourceTest::SetAudioBufferSizeMsec(int64_t sizeMsec)
{
    CDplScopedLock lock(audioMutex_);
    if (audioGenerator_)
    {
        audioGenerator_->SetAudioBufferSizeMsec(sizeMsec);
    }
}

int64_t DRAVSourceTest::GetAudioBufferSizeMsec()
{
    CDplScopedLock lock(audioMutex_);
    return audioGenerator_ ? audioGenerator_->GetAudioBufferSizeMsec() : DRAVSource::GetAudioBufferSizeMsec();
}
