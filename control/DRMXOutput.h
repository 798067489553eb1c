#pragma once

#include <memory>
#include <string>

#include "control/DRMXOutputBase.h"

// An output device of a mix (or the stream mix's monitoring output). A
// renderer sink is made through the engine manager at each start and dropped
// at each stop; level and mutes set meanwhile reach the sink at the start.
// The sink is muted while the user's mute or the engine's mute is set.
class DRMXOutput : public DRMXOutputBase
{
public:
    static constexpr char kObjectName[] = "Monitor";

    explicit DRMXOutput(
        const DRMX_Settings::DRMXOutputSelector& selector = DRMX_Settings::DRMXOutputSelector());
    ~DRMXOutput() override;

    std::shared_ptr<DRAVSink> GetSink() const override;
    // A sink exists.
    bool IsUnitStarted() override;
    // ErrUnknown when neither the selector's path nor its hardware id names
    // an output device; the sink then stays, not running.
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    // A running sink moves to the new selector's device.
    void SetSelector(const DRMX_Settings::DRMXOutputSelector& selector) override;
    void SetOutputLevel(double level) override;
    void SetOutputMute(bool mute) override;
    void SetEngineMute(bool mute) override;
    int64_t GetBufferSizeFrameCount() override;
    DRAVResult SetBufferSizeFrameCount(int64_t frames) override;

    // The selector's path, else that of the first output device with its
    // hardware id; empty if none.
    static std::string GetDevicePathForSelector(const DRMX_Settings::DRMXOutputSelector& selector);

private:
    struct Impl;

    // Under the sink lock.
    void ApplyMuteLocked();
    void StopLocked();

    std::unique_ptr<Impl> impl_;
};
