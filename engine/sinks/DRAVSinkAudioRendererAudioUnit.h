#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVBlockFrameCount.h"
#include "engine/units/DRAVSink.h"

// Plays blocks on one output device. The mix's audio thread pushes blocks
// into bip buffers; the device asks for its packets on its own thread and a
// converter turns the blocks into the device's format and rate. Two rules
// absorb the drift of the two clocks: with four blocks waiting a new block is
// dropped whole, and a request that more than waits can't fill is answered
// with whole silence, consuming nothing.
//
// The device is opened at the first block, since only then the format is
// known: a sink that gets no block costs nothing.
//
// Threads: the device's requests arrive on its own thread, which takes only
// the data lock of the device machinery (DeviceStreamBridge) for one
// request's conversion. Opening, closing, moves and the volume hold its
// control lock.
class DRAVSinkAudioRendererAudioUnit : public DRAVSink
{
public:
    // At most this many channels.
    static constexpr uint64_t kBipBufferCount = 64;
    static constexpr uint32_t kBipBufferSeconds = 5;
    static constexpr int64_t kMaxQueuedBlocks = 4;
    static constexpr uint32_t kDefaultBufferSizeFrameCount = 1000;
    // A block must fit the bip buffers many times over: one second at most.
    static constexpr int64_t kMaxBufferSizeFrameCount = kMaxBlockFrameCount;

    explicit DRAVSinkAudioRendererAudioUnit(const DRAVSinkConfig& config = DRAVSinkConfig{
                                                kTypeAudioRenderer});
    ~DRAVSinkAudioRendererAudioUnit() override;

    static KVCMap* GetMyObjectProperties();

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    // 2 waits for the first block; 1 closes the device.
    DRAVResult SetUnitState(DRAVUnitState state) override;
    // On the mix's thread: copies the block into the bip buffers under the
    // data lock, held for that copy. No allocation, no log; only the first
    // block (or the first after a stop) opens the device, which takes the
    // control lock and may wait for it.
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;

    // Limited to 0.0 to 1.0 (NaN counts as 0.0).
    void SetAudioVolume(double volume);
    double GetAudioVolume();
    void SetAudioMute(bool mute);
    bool GetAudioMute();
    // Empty or "0" for the system's default output. A running device moves
    // to a new non-zero path at once.
    void SetDevicePath(const std::string& path);
    std::string GetDevicePath();
    // ErrInvalidParameter for less than 1 or more than kMaxBufferSizeFrameCount.
    DRAVResult SetBufferSizeFrameCount(int64_t frames);
    int64_t GetBufferSizeFrameCount();

    // The device stream stands (from the first block to state 1).
    bool AreAudioUnitsInitialized();
    // The volume the device stream plays with; -1.0 without a stream.
    double GetDeviceVolume();
    // The id of the device the stream plays on; 0 without a stream.
    uint32_t GetDeviceId();
    // Block frames waiting for the device.
    int64_t GetQueuedFrameCount();
    // Block frames the device took since the device was opened.
    int64_t GetFramesPlayed();
    // Since construction: blocks dropped because four waited, device requests
    // answered with silence because too little waited, blocks refused because
    // their format differed from the first block's.
    int64_t GetDroppedBlockCount();
    int64_t GetUnderrunCount();
    int64_t GetRefusedBlockCount();

private:
    struct Impl;

    DRAVResult InitAudioUnits(const DRAVAudioFormat& format);
    void DeinitAudioUnits();
    void ApplyVolume();

    std::unique_ptr<Impl> impl_;
};
