#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/units/DRAVUnit.h"
#include "engine/units/DRAVUnitPushInterface.h"

using DRAVSinkType = int32_t;

struct DRAVSinkConfig
{
    DRAVSinkType type = 0;
    int32_t reserved = 0;
    bool blocking = false;
    bool useDefaultRouting = false;
};

class DRAVSinkInterface
{
public:
    virtual ~DRAVSinkInterface() = default;
    virtual DRAVResult InitSink(DRAVPinType input) = 0;
    virtual DRAVSinkType GetType() = 0;
    virtual bool UseDefaultRouting() = 0;
};

// A unit without output pins: the end of a road of frames. A concrete sink's
// Init ends with SetUnitInitialized(true) on success.
class DRAVSink : public DRAVUnit, public DRAVSinkInterface, public DRAVUnitPushInterface
{
public:
    static constexpr DRAVSinkType kTypePreview = 1;
    static constexpr DRAVSinkType kTypeAudioRenderer = 5;

    DRAVSink(const std::string& name, KVCMap* propertyMap, const DRAVSinkConfig& config, int inputPins);

    static KVCMap* GetMyObjectProperties();

    virtual void SetAudioBufferSizeMsec(int64_t sizeMsec);
    virtual int64_t GetAudioBufferSizeMsec();
    DRAVResult Init() override;
    DRAVResult InitSink(DRAVPinType input) override;
    DRAVSinkType GetType() override { return config_.type; }
    bool UseDefaultRouting() override { return config_.useDefaultRouting; }
    // Into the sink's audio input (pin 1 when there are several, else 0);
    // ErrInvalidState unless running. On the mix's thread: the input pin's
    // queue carries the frame on; no allocation, no log.
    DRAVResult SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame) override;
    const DRAVSinkConfig& GetSinkConfig() const { return config_; }

private:
    std::atomic<int64_t> audioBufferSizeMsec_{-1};
    const DRAVSinkConfig config_;
};
