#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVBlockFrameCount.h"
#include "engine/units/DRAVSource.h"

// Takes audio from one capture device, in whatever format the device has,
// and hands it out in blocks of bufferSizeFrameCount frames of 48000 Hz
// stereo planar float (left, then right). Bip buffers stand between the
// device's packets and the blocks; every block is made on the device's thread
// as soon as enough device frames wait, and goes to the level meter and to
// output pin 0.
//
// A packet that doesn't fit into the bip buffers is dropped whole and
// counted: the drift between the device's clock and the mix's ends there.
//
// Threads: the device's packets arrive on its own thread, which takes only
// the data lock of the device machinery (DeviceStreamBridge) for one packet
// and its blocks. Start, stop and moves hold its control lock.
class DRAVSourceAudioCaptureCoreAudio : public DRAVSource
{
public:
    static constexpr DRAVSourceType kSourceType = 2;
    static constexpr DRAVSourceUsageType kUsageType = 1;
    // At most this many channels (planar) or buffers.
    static constexpr uint64_t kBipBufferCount = 64;
    static constexpr uint32_t kBipBufferSeconds = 5;
    // Frames made ready at each start for the device thread's bursts.
    static constexpr int kReservedFrames = 16;
    static constexpr uint32_t kDefaultBufferSizeFrameCount = 1000;
    // A block must fit the bip buffers many times over: one second at most.
    static constexpr int64_t kMaxBufferSizeFrameCount = kMaxBlockFrameCount;

    explicit DRAVSourceAudioCaptureCoreAudio(DRAVSourceConfig config = DRAVSourceConfig{kSourceType,
                                                                                        kUsageType},
                                             KVCMap* propertyMap = nullptr);
    ~DRAVSourceAudioCaptureCoreAudio() override;

    static KVCMap* GetMyObjectProperties();

    DRAVResult InitSource(DRAVPinType outputPinType) override;
    DRAVResult Deinit() override;
    // 2 opens and starts the device, 1 stops and closes it.
    DRAVResult SetUnitState(DRAVUnitState state) override;

    // While running, the source moves to the new device at once.
    void SetDevicePath(const std::string& path);
    std::string GetDevicePath();
    void SetDeviceIndex(int64_t index);
    int64_t GetDeviceIndex();
    // Names the device when the path is empty.
    void SetDeviceHardwareId(const std::string& hardwareId);
    std::string GetDeviceHardwareId();
    // ErrInvalidParameter for less than 1 or more than kMaxBufferSizeFrameCount.
    DRAVResult SetBufferSizeFrameCount(int64_t frames);
    int64_t GetBufferSizeFrameCount();

    // A device stream is open and started.
    bool IsRunning();
    // Device frames put into the bip buffers, and taken out for blocks, since
    // the start; both go back to 0 at a stop.
    int64_t GetFramesWritten();
    int64_t GetFramesRead();
    // Since construction: blocks handed out, device packets dropped because
    // they didn't fit (or didn't match the device's format), blocks lost for
    // want of a frame buffer.
    int64_t GetBlockCount();
    int64_t GetDroppedPacketCount();
    int64_t GetLostBlockCount();

private:
    struct Impl;

    DRAVResult StartDevice();
    DRAVResult StopDevice();
    // On the device's thread, with the data lock held: to the level meter
    // and into the ring of output pin 0. No allocation, no log, no lock that
    // a control call holds for longer than a block.
    void HandOutBlock(const std::shared_ptr<DRAVMediaBuffer>& block);

    std::unique_ptr<Impl> impl_;
};
