#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "control/DRMXCaptureSourceSlot.h"
#include "control/DRMXInputBase.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "portable-core/CDplThreadMutex.h"

// An input of every kind but the main microphone: a further microphone, a
// channel of the virtual driver, any capture device, or one application's
// audio. A capture source is made at each start and dropped at each stop;
// between the two the input is a selector and two buffer sizes, so a mix can
// hold it with no device there.
class DRMXInput : public DRMXInputBase
{
public:
    static constexpr int64_t kDefaultBufferFrameCount = DRMXCaptureSourceSlot::kDefaultBufferFrameCount;

    explicit DRMXInput(const DRMX_Settings::DRMXInputSelector& selector = DRMX_Settings::DRMXInputSelector(),
                       const std::string& name = "Input");
    // An application's input deletes the application's device, also for
    // the input of the other mix.
    ~DRMXInput() override;

    // Under the application map's lock. A selector with the same inputId
    // changes nothing. A running source moves to the new selector's device.
    void SetSelector(const DRMX_Settings::DRMXInputSelector& selector) override;
    std::shared_ptr<DRAVSource> GetSource() const override;
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> GetCaptureSource() const;
    // ErrNotFound for an application without a capture device (no source is
    // made); ErrUnknown when no capture device has the selector's hardware id
    // (the source stays, not running, and plays silence on its bus).
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    // A source exists.
    bool IsUnitStarted() override;
    int64_t GetBufferSizeFrameCount() override;
    // ErrInvalidParameter for less than 1 or more than the source's limit;
    // the value stays.
    DRAVResult SetBufferSizeFrameCount(int64_t frames) override;

    // The device path of the selector: the application's capture device, else
    // the first capture device with the selector's hardware id; empty if none.
    static std::string GetDevicePathForSelector(const DRMX_Settings::DRMXInputSelector& selector);

private:
    // Both under appAudioMappingLock. The two inputs of one application (one
    // in each mix) share its entry and so its capture device; the first to
    // let go deletes the device and empties the entry.
    static void ActivateAppAudio(const DRMX_Settings::DRMXInputSelector& selector);
    static void DeactivateAppAudio(const DRMX_Settings::DRMXInputSelector& selector);

    // Bundle identifier to the device path of the capture device made for
    // that application (empty: none), and its lock. Never destroyed: an input
    // may go at the process's exit.
    static std::map<std::string, std::string>& AppAudioDeviceMapping();
    static CDplThreadMutex& AppAudioMappingLock();

    DRMXCaptureSourceSlot capture_;
};
