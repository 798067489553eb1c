#include "settings/DRMXInputSelector.h"

#include <mutex>

#include "settings/DPLJSONUtils.h"
#include "settings/DRMXRecordJSON.h"

namespace DRMX_Settings
{
namespace
{
std::mutex gAvailabilityLock;
DRMXInputSelector::AppAudioAvailabilityCheck gAvailabilityCheck;

constexpr const char* kVirtualPrefix = "Tidemix ";

bool IsLineTerminator(char c)
{
    return c == '\n' || c == '\r';
}

// What "Tidemix (.+)" keeps of a whole-string match: the tail after the
// prefix. The tail must not be empty and, as '.' doesn't match line
// terminators, must hold none.
bool StripVirtualPrefix(std::string& text)
{
    const std::string prefix = kVirtualPrefix;
    if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0)
    {
        return false;
    }
    for (size_t i = prefix.size(); i < text.size(); ++i)
    {
        if (IsLineTerminator(text[i]))
        {
            return false;
        }
    }
    text.erase(0, prefix.size());
    return true;
}

// What "(.+) \((.+)\)" keeps as its first group on a whole-string match. The
// greedy first group takes the last " (" that leaves both groups non-empty.
bool StripBracketedTail(std::string& text)
{
    const size_t length = text.size();
    if (length < 5 || text.back() != ')')
    {
        return false;
    }
    for (char c : text)
    {
        if (IsLineTerminator(c))
        {
            return false;
        }
    }
    // p is where " (" begins: group 1 is [0, p), group 2 is [p + 2, length - 1).
    for (size_t p = length - 4; p >= 1; --p)
    {
        if (text[p] == ' ' && text[p + 1] == '(')
        {
            text.resize(p);
            return true;
        }
    }
    return false;
}
}  // namespace

void DRMXInputSelector::SetName(const std::string& newName)
{
    name = newName;
    inputId = getInputIdFromHardwareId(hardwareId);
}

void DRMXInputSelector::SetHardwareId(const std::string& id)
{
    hardwareId = id;
    inputId = getInputIdFromHardwareId(id);
}

std::string DRMXInputSelector::GetCustomName() const
{
    return customName.empty() ? GetNameShort() : customName;
}

std::string DRMXInputSelector::GetNameShort() const
{
    std::string result = name;
    if (type != kInputTypeVirtual)
    {
        return result;
    }
    StripVirtualPrefix(result);
    StripBracketedTail(result);
    return result;
}

bool DRMXInputSelector::IsDrovaneMicrophone() const
{
    return IsDrovaneRuntimeProduct(vendorId, productId);
}

void DRMXInputSelector::SetAppAudioAvailabilityCheck(AppAudioAvailabilityCheck check)
{
    std::lock_guard guard(gAvailabilityLock);
    gAvailabilityCheck = std::move(check);
}

bool DRMXInputSelector::GetIsAvailable() const
{
    if (type == kInputTypeAppAudio)
    {
        AppAudioAvailabilityCheck check;
        {
            std::lock_guard guard(gAvailabilityLock);
            check = gAvailabilityCheck;
        }
        if (check)
        {
            return check(*this);
        }
    }
    return available;
}

bool DRMXInputSelector::EqualsMixerTypeUnspecifically(const DRMXInputSelector& a, const DRMXInputSelector& b)
{
    if (a.type != b.type || a.name != b.name || a.vendorId != b.vendorId || a.productId != b.productId ||
        a.mixerNodeId != b.mixerNodeId || a.fwVersion != b.fwVersion || a.isDefault != b.isDefault ||
        a.inputId != b.inputId)
    {
        return false;
    }
    return a.devicePath.empty() || b.devicePath.empty() || a.devicePath == b.devicePath;
}

nlohmann::json DRMXInputSelector::ToJSONObject() const
{
    nlohmann::json value = nlohmann::json::object();
    value["inputType"] = static_cast<int32_t>(type);
    value["inputName"] = name;
    value["inputHardwareId"] = hardwareId;
    value["inputVendorId"] = vendorId;
    value["inputProductId"] = productId;
    value["inputMixerNodeId"] = mixerNodeId;
    value["inputMixerNodeGain"] = gain;
    value["inputMixerNodeMute"] = mute;
    value["inputFWVersion"] = fwVersion;
    const std::string shownName = GetCustomName();
    if (!shownName.empty())
    {
        value["inputCustomName"] = shownName;
    }
    value["inputLinked"] = linked;
    if (linkedDelta != 0.0)
    {
        value["inputLinkedDelta"] = linkedDelta;
    }
    value["inputDefault"] = isDefault;
    return value;
}

void DRMXInputSelector::FillFromJSON(const nlohmann::json& value)
{
    type = static_cast<DRMXInputType>(DPLJSONUtils::RequireInt(value, "inputType"));
    SetHardwareId(DPLJSONUtils::GetStringByName(value, "inputHardwareId", ""));
    vendorId = DPLJSONUtils::GetUnsignedIntByName(value, "inputVendorId", 0);
    productId = DPLJSONUtils::GetUnsignedIntByName(value, "inputProductId", 0);
    // Read as unsigned: a stored -1 comes back as 0.
    mixerNodeId = static_cast<int32_t>(DPLJSONUtils::GetUnsignedIntByName(value, "inputMixerNodeId", 0));
    gain = DPLJSONUtils::GetFloatByName(value, "inputMixerNodeGain", 0.0f);
    mute = DPLJSONUtils::GetBoolByName(value, "inputMixerNodeMute", false);
    fwVersion = DPLJSONUtils::GetIntByName(value, "inputFWVersion", 0);
    customName = DPLJSONUtils::GetStringByName(value, "inputCustomName", "");
    linked = DPLJSONUtils::GetBoolByName(value, "inputLinked", false);
    linkedDelta = DPLJSONUtils::GetFloatByName(value, "inputLinkedDelta", 0.0f);
    isDefault = DPLJSONUtils::GetBoolByName(value, "inputDefault", false);
    SetName(DPLJSONUtils::GetStringByName(value, "inputName", ""));
}

std::string DRMXInputSelector::ToJSON() const
{
    return DumpRecord(ToJSONObject());
}

DRAVResult DRMXInputSelector::FromJSON(const std::string& text)
{
    return RecordFromJSONText(text, *this);
}

DRAVResult DRMXInputSelector::FromJSONObject(const nlohmann::json& value)
{
    return RecordFromJSONObject(value, *this);
}

}  // namespace DRMX_Settings
