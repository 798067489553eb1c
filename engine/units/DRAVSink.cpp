#include "engine/units/DRAVSink.h"

#include "portable-core/KVCMapBuilder.h"

DRAVSink::DRAVSink(const std::string& name, KVCMap* propertyMap, const DRAVSinkConfig& config, int inputPins)
    : DRAVUnit(name, propertyMap != nullptr ? propertyMap : DRAVSink::GetMyObjectProperties(), inputPins, 0),
      config_(config)
{
}

KVCMap* DRAVSink::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSink>(DRAVUnit::GetMyObjectProperties())
            .Int(kPropertyAudioBufferSizeMs, &DRAVSink::SetAudioBufferSizeMsec,
                 &DRAVSink::GetAudioBufferSizeMsec)
            .Build();
    return sClassProperties;
}

void DRAVSink::SetAudioBufferSizeMsec(int64_t sizeMsec)
{
    audioBufferSizeMsec_.store(sizeMsec);
}

int64_t DRAVSink::GetAudioBufferSizeMsec()
{
    return audioBufferSizeMsec_.load();
}

DRAVResult DRAVSink::Init()
{
    return InitSink(config_.blocking ? kDRAVPinTypeThreadedBlocking : kDRAVPinTypeThreaded);
}

DRAVResult DRAVSink::InitSink(DRAVPinType input)
{
    return InitUnit(input, kDRAVPinTypeNone);
}

DRAVResult DRAVSink::SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame)
{
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    return SendFrame(GetNumInputPins() > 1 ? 1 : 0, std::move(frame));
}
