#pragma once

#include <cstdint>
#include <memory>

#include "engine/media/DRAVAudioBuffer.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"

// What a consumer calls to get audio on its own clock: first the position
// (RequestAudioFrame), then the span (PullAudioFrame). A negative pin lets
// the unit choose.
class DRAVUnitPullInterface
{
public:
    virtual ~DRAVUnitPullInterface() = default;
    virtual DRAVResult RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration,
                                         int pin) = 0;
    virtual DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                      const DRAVDuration& duration, int pin) = 0;
    virtual DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                      int64_t frames, int pin) = 0;
};
