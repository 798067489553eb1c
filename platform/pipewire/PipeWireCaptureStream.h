#pragma once

#include "platform/pipewire/PipeWireStreamBase.h"

namespace tidemix::platform::pipewire
{

// Records one node: each packet PipeWire delivers goes to the callback on
// PipeWire's data thread, stamped with the host time of its first frame.
class PipeWireCaptureStream final : public CaptureStream, private PipeWireStreamBase
{
public:
    PipeWireCaptureStream(std::shared_ptr<PipeWireContext> context, StreamTarget target,
                          CaptureCallback callback);
    ~PipeWireCaptureStream() override;

    DeviceStreamFormat Format() const override { return StreamFormat(); }
    DRAVResult Start() override { return StartStream(); }
    void Stop() override { StopStream(); }

private:
    void Process(pw_stream* stream) override;

    CaptureCallback callback_;
};

}  // namespace tidemix::platform::pipewire
