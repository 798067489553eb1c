#include "engine/sources/DRAVSourceAudioTestGenerator.h"

#include <cmath>
#include <numbers>

#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "portable-core/KVCMapBuilder.h"

namespace
{
// One running sample position for every generator, so that tones of several
// generators stay in phase.
std::atomic<int64_t> gSampleCounter{0};
}  // namespace

DRAVSourceAudioTestGenerator::DRAVSourceAudioTestGenerator(DRAVSourceConfig config)
    : DRAVSource("DRAVSourceAudioTestGenerator", DRAVSourceAudioTestGenerator::GetMyObjectProperties(),
                 config, 1)
{
}

DRAVSourceAudioTestGenerator::~DRAVSourceAudioTestGenerator()
{
    if (IsUnitInitialized())
    {
        DRAVSource::Deinit();
    }
}

KVCMap* DRAVSourceAudioTestGenerator::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSourceAudioTestGenerator>(DRAVSource::GetMyObjectProperties())
            .Int(kPropertyTestSignalFrequencyHz, &DRAVSourceAudioTestGenerator::SetFrequencyHz,
                 &DRAVSourceAudioTestGenerator::GetFrequencyHz)
            .Bool(kPropertyTestAudioRingbuffer, &DRAVSourceAudioTestGenerator::SetUseRingBuffer,
                  &DRAVSourceAudioTestGenerator::GetUseRingBuffer)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVSourceAudioTestGenerator::InitSource(DRAVPinType outputPinType)
{
    DRAVResult result = DRAVSource::InitSource(outputPinType);
    if (!result.Succeeded())
    {
        Deinit();
        return result;
    }
    {
        CDplScopedLock lock(mutex_);
        lastTimestamp_ = DRAVTimestamp(-1);
    }
    SetUnitInitialized(true);
    // Without a meter the generator works on.
    StartAudioLevelmeter();
    return result;
}

DRAVResult DRAVSourceAudioTestGenerator::RequestAudioFrame(const DRAVTimestamp& time,
                                                           const DRAVDuration& duration, int)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (GetAudioMute())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    CDplScopedLock lock(mutex_);
    DRAVResult result = CreateNewAudioBuffer(time, duration, &lastFrame_);
    if (!result.Succeeded())
    {
        return result;
    }
    if (std::shared_ptr<DRAVUnit> meter = GetAudioLevelmeter())
    {
        meter->SendFrame(lastFrame_);
    }
    if (useRingBuffer_.load())
    {
        result = ProcessFrame(0, lastFrame_);
    }
    return result;
}

DRAVResult DRAVSourceAudioTestGenerator::PullAudioFrame(const DRAVTimestamp& time,
                                                        std::shared_ptr<DRAVAudioBuffer>* out,
                                                        const DRAVDuration& duration, int pin)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (GetAudioMute())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    if (useRingBuffer_.load())
    {
        return DRAVSource::PullAudioFrame(time, out, duration, pin);
    }
    CDplScopedLock lock(mutex_);
    if (!lastFrame_)
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    return lastFrame_->CopyToFloat(out);
}

DRAVResult DRAVSourceAudioTestGenerator::CreateNewAudioBuffer(const DRAVTimestamp& time,
                                                              const DRAVDuration& duration,
                                                              std::shared_ptr<DRAVAudioBuffer>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (duration.Get() <= 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    CDplScopedLock lock(mutex_);
    DRAVSource::SetAudioBufferSizeMsec(duration.Get() / 1000);

    bool tick = false;
    if (lastTimestamp_.Get() >= 0 && time.Get() / 1000000 > lastTimestamp_.Get() / 1000000)
    {
        toneStep_ = (toneStep_ + 1) % kToneSteps;
        tick = true;
    }

    const DRAVAudioFormat& format = kDefaultAudioFormatFloat;
    const int64_t rate = format.GetSampleRate();
    const int64_t channels = format.GetNumChannels();
    const int64_t samplesPerChannel = rate * duration.Get() / 1000000;
    const int64_t size = samplesPerChannel * channels * static_cast<int64_t>(sizeof(float));
    std::shared_ptr<DRAVAudioBuffer> frame =
        DRAVAudioBuffer::GetAudioBuffer("DRAVSourceAudioTestGenerator", size, format, nullptr, 0);
    if (!frame)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    lastTimestamp_ = time;

    {
        std::shared_ptr<DRAVBufferRAM> storage;
        DRAVResult locked;
        DRAVMediaBufferWriteLock<DRAVBufferRAM> lockContent(frame, &storage, &locked);
        if (!locked.Succeeded())
        {
            return locked;
        }
        auto* samples = reinterpret_cast<float*>(storage->GetData());
        const float amplitude = tick ? kTickAmplitude : kToneAmplitude;
        const int64_t frequency = frequencyHz_.load();
        const int64_t firstSample = gSampleCounter.fetch_add(samplesPerChannel);
        constexpr double kPi = std::numbers::pi;
        for (int64_t index = 0; index < samplesPerChannel; ++index)
        {
            const int64_t counter = firstSample + index;
            for (int64_t channel = 0; channel < channels; ++channel)
            {
                int64_t pitch = frequency - channel * (frequency / 2);
                if (tick)
                {
                    pitch = pitch * (toneStep_ * 5 + 10) / 10;
                }
                // The phase advances by pi times the pitch per second: the tone
                // sounds an octave below the pitch, starting from its trough.
                const float product = static_cast<float>(pitch) * static_cast<float>(counter);
                const double phase =
                    static_cast<double>(product) / static_cast<double>(rate) * kPi - kPi / 2.0;
                samples[index * channels + channel] = static_cast<float>(std::sin(phase) * amplitude);
            }
        }
        storage->SetSizeCurrent(size);
    }
    frame->SetTimestamp(time);
    frame->SetDuration(duration);
    *out = std::move(frame);
    return DRAVResult(kDRAVResultOk);
}
