#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "portable-core/CDplThreadMutex.h"

class DRAVMediaFormatChangeDelegate;

// The capture source of an input (a plain input or the main microphone): made
// at each start, dropped at each stop, with a ring of a few blocks of the mix
// that starts a little behind the device. Between a stop and the next start
// only the buffer size stays.
class DRMXCaptureSourceSlot
{
public:
    // The source's ring holds this many blocks, and the first block that
    // arrives is replaced by kStartFillBlocks of silence. However the device's
    // packets fall against the mix's pulls (512 frames at 44100 Hz finish a
    // block after 11.6 or 23.2 ms), a pull then finds at least one whole
    // block, and the ring never holds more than three.
    static constexpr int64_t kRingBlocks = 4;
    static constexpr int64_t kStartFillBlocks = 2;
    static constexpr int64_t kDefaultBufferFrameCount = 1000;

    DRMXCaptureSourceSlot();
    ~DRMXCaptureSourceSlot();

    // Stops any source there is, makes a new one and runs it on the device at
    // devicePath (with hardwareId as its property when given). An empty path
    // leaves the source made but not running, and gives ErrUnknown.
    DRAVResult Start(const std::string& devicePath, const std::string& hardwareId = std::string());
    void Stop();

    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> Source() const;
    int64_t GetBufferSizeFrameCount() const;
    // ErrInvalidParameter for less than 1 or more than the source's limit;
    // the value stays.
    DRAVResult SetBufferSizeFrameCount(int64_t frames);

private:
    mutable CDplThreadMutex lock_;
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source_;
    // The ring holds its delegate weakly.
    std::shared_ptr<DRAVMediaFormatChangeDelegate> startFill_;
    std::atomic<int64_t> bufferFrameCount_{kDefaultBufferFrameCount};
};
