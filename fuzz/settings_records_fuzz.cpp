// Feeds arbitrary text to every record parser. A parse either fails with
// "ErrInvalidParameter" and leaves the record as it was, or succeeds, and then
// the record's own text must read back. Reading narrows some values once (a
// node id of -1 reads as 0, gains become 32-bit floats), so the second
// writing must be a fixed point.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "settings/DRMXApplicationSettings.h"
#include "settings/DRMXDefaultAppAudioInputs.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXMicrophoneSettings.h"
#include "settings/DRMXMixerNodeSelector.h"
#include "settings/DRMXOutputSelector.h"

namespace
{
template <typename Record>
void Check(const std::string& text)
{
    Record record;
    const std::string before = record.ToJSON();
    const DRAVResult result = record.FromJSON(text);
    if (!result.Succeeded())
    {
        if (result.GetCode() != kDRAVResultErrInvalidParameter || record.ToJSON() != before)
        {
            abort();
        }
        return;
    }
    Record second;
    if (!second.FromJSON(record.ToJSON()).Succeeded())
    {
        abort();
    }
    const std::string settled = second.ToJSON();
    Record third;
    if (!third.FromJSON(settled).Succeeded() || third.ToJSON() != settled)
    {
        abort();
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    Check<DRMX_Settings::DRMXInputSelector>(text);
    Check<DRMX_Settings::DRMXOutputSelector>(text);
    Check<DRMX_Settings::DRMXMixerNodeSelector>(text);
    Check<DRMX_Settings::DRMXMicrophoneSettings>(text);
    Check<DRMX_Settings::DRMXApplicationSettings>(text);
    DRMX_Settings::DRMXInputSelector shortName;
    shortName.SetType(DRMX_Settings::kInputTypeVirtual);
    shortName.SetName(text);
    (void)shortName.GetNameShort();
    // The resource "DefaultAppAudioInputs.json": any text parses or fails
    // softly, and a failure leaves no entries behind.
    std::vector<DRMXDefaultAppAudioInputs::Entry> entries{{"stale", {"stale"}}};
    if (!DRMXDefaultAppAudioInputs::Parse(text, entries).Succeeded() && !entries.empty())
    {
        abort();
    }
    return 0;
}
