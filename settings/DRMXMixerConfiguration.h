#pragma once

#include <cstdint>
#include <vector>

#include "portable-core/DRAVResult.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXOutputSelector.h"

namespace DRMX_Settings
{

// The layout of both mixes. The two input lists are parallel: entry i of
// each is the same input in its two mixers.
class DRMXMixerConfiguration
{
public:
    void AddMixerInputLocal(const DRMXInputSelector& input) { mixerInputsLocal.push_back(input); }
    void AddMixerInputStream(const DRMXInputSelector& input) { mixerInputsStream.push_back(input); }
    void SetMixerOutputLocal(const DRMXOutputSelector& output) { mixerOutputLocal = output; }
    void SetMixerOutputStream(const DRMXOutputSelector& output) { mixerOutputStream = output; }
    void SetAudioBufferFrameCount(int frames) { audioBufferFrameCount = frames; }
    void SetAudioBufferSizeInputMSec(int milliseconds) { audioBufferSizeInputMSec = milliseconds; }
    void SetAudioBufferSizeOutputMSec(int milliseconds) { audioBufferSizeOutputMSec = milliseconds; }

    // Empties both input lists and gives both outputs new-record values; the
    // buffer sizes stay.
    void ResetMixerSettings();
    // "Ok" when both lists are equally long and not empty, pair i names the
    // same input in both, and each list holds a main microphone; otherwise
    // "ErrInvalidState".
    DRAVResult ValidateInputs() const;

    std::vector<DRMXInputSelector> mixerInputsLocal;
    std::vector<DRMXInputSelector> mixerInputsStream;
    DRMXOutputSelector mixerOutputLocal;
    DRMXOutputSelector mixerOutputStream;
    int32_t audioBufferFrameCount = 960;
    int32_t audioBufferSizeInputMSec = 20;
    int32_t audioBufferSizeOutputMSec = 60;
};

}  // namespace DRMX_Settings
