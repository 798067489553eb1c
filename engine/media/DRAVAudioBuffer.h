#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "engine/media/DRAVAudioFormat.h"
#include "engine/media/DRAVMediaBuffer.h"

class DRAVAudioBuffer;
class DRAVAudioSampleConverter;

// Makes copies of one audio frame in another sample type; keeps the sample
// converter between copies. Not safe for two threads: its parent serialises.
class DRAVAudioBufferHelper
{
public:
    explicit DRAVAudioBufferHelper(const std::string& name);
    virtual ~DRAVAudioBufferHelper();
    DRAVAudioBufferHelper(const DRAVAudioBufferHelper&) = delete;
    DRAVAudioBufferHelper& operator=(const DRAVAudioBufferHelper&) = delete;

    virtual DRAVResult InitWithParent(const std::weak_ptr<DRAVMediaBuffer>& parent);
    // A new frame with the parent's content in `sampleType`, with the
    // parent's time stamp and duration.
    virtual DRAVResult CopyBuffer(std::shared_ptr<DRAVAudioBuffer>* out, DRAVAudioSampleType sampleType);

private:
    DRAVResult CreateConverter(DRAVAudioSampleType from, DRAVAudioSampleType to, uint32_t channels);

    std::weak_ptr<DRAVMediaBuffer> parent_;
    std::unique_ptr<DRAVAudioSampleConverter> converter_;
    DRAVAudioSampleType converterTarget_ = kDRAVAudioSampleTypeUnknown;
    std::string name_;
};

// An audio frame: interleaved PCM of one DRAVAudioFormat.
class DRAVAudioBuffer : public DRAVMediaBuffer
{
public:
    // Frames are made by GetAudioBuffer(); the constructor makes no storage.
    DRAVAudioBuffer(const std::string& owner, const DRAVAudioFormat& format);
    ~DRAVAudioBuffer() override;

    // The one way to make an audio frame: `size` bytes of storage for `owner`,
    // filled with `data` when given. Null when no storage could be had.
    static std::shared_ptr<DRAVAudioBuffer> GetAudioBuffer(const std::string& owner, int64_t size,
                                                           const DRAVAudioFormat& format, const void* data,
                                                           int64_t dataSize);
    // Makes `count` such frames and lets them go, so that a device or mix
    // thread finds that many ready when a late wake-up makes it render a
    // burst, without a trip to the heap. For a control thread.
    static void ReserveFrames(const std::string& owner, int64_t size, const DRAVAudioFormat& format,
                              int count);

    DRAVMediaType GetMediaType() const override { return kDRAVMediaTypeAudio; }
    DRAVResult GetMediaFormatCopy(std::shared_ptr<DRAVMediaFormat>* out) const override;

    // Null when the format is no audio format.
    virtual std::shared_ptr<DRAVAudioFormat> GetAudioFormat() const;
    // Single samples of all channels in the used bytes.
    virtual int64_t GetNumSamples() const;
    virtual DRAVResult CopyToInt16(std::shared_ptr<DRAVAudioBuffer>* out);
    virtual DRAVResult CopyToFloat(std::shared_ptr<DRAVAudioBuffer>* out);

private:
    DRAVResult CopyBuffer(std::shared_ptr<DRAVAudioBuffer>* out, DRAVAudioSampleType sampleType);

    std::recursive_mutex helperMutex_;
    std::shared_ptr<DRAVAudioBufferHelper> helper_;
};
