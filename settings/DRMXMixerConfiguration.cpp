#include "settings/DRMXMixerConfiguration.h"

#include <algorithm>

namespace DRMX_Settings
{

void DRMXMixerConfiguration::ResetMixerSettings()
{
    mixerInputsLocal.clear();
    mixerInputsStream.clear();
    mixerOutputLocal = DRMXOutputSelector();
    mixerOutputStream = DRMXOutputSelector();
}

DRAVResult DRMXMixerConfiguration::ValidateInputs() const
{
    if (mixerInputsLocal.size() != mixerInputsStream.size() || mixerInputsLocal.empty())
    {
        return DRAVResult(kDRAVResultErrInvalidState, "input lists of %zu and %zu entries",
                          mixerInputsLocal.size(), mixerInputsStream.size());
    }
    for (size_t i = 0; i < mixerInputsLocal.size(); ++i)
    {
        if (!DRMXInputSelector::EqualsMixerTypeUnspecifically(mixerInputsLocal[i], mixerInputsStream[i]))
        {
            return DRAVResult(kDRAVResultErrInvalidState, "inputs at %zu differ between the mixers", i);
        }
    }
    auto isMain = [](const DRMXInputSelector& input) { return input.GetType() == kInputTypeMainMicrophone; };
    const bool localHasMain = std::any_of(mixerInputsLocal.begin(), mixerInputsLocal.end(), isMain);
    const bool streamHasMain = std::any_of(mixerInputsStream.begin(), mixerInputsStream.end(), isMain);
    if (!localHasMain || !streamHasMain)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "no main microphone among the inputs");
    }
    return kDRAVResultOk;
}

}  // namespace DRMX_Settings
