#include "engine/media/DRAVAudioFormatConfiguration.h"

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

namespace
{
constexpr const char* kKeySampleRate = "sampleRateHz";
constexpr const char* kKeyNumChannels = "numChannels";
constexpr const char* kKeySampleType = "sampleType";
constexpr const char* kKeyChannelMask = "channelMask";
constexpr const char* kKeySampleTypeInfo = "sampleTypeInfo";

// False when the key is missing or is no integer within uint32.
bool ReadUnsigned(const nlohmann::json& object, const char* key, uint32_t* out)
{
    const auto found = object.find(key);
    if (found == object.end())
    {
        return false;
    }
    if (found->is_number_unsigned())
    {
        const uint64_t value = found->get<uint64_t>();
        if (value > std::numeric_limits<uint32_t>::max())
        {
            return false;
        }
        *out = static_cast<uint32_t>(value);
        return true;
    }
    if (found->is_number_integer())
    {
        const int64_t value = found->get<int64_t>();
        if (value < 0 || value > std::numeric_limits<uint32_t>::max())
        {
            return false;
        }
        *out = static_cast<uint32_t>(value);
        return true;
    }
    return false;
}
}  // namespace

std::string DRAVAudioFormatConfiguration::ToJSON() const
{
    nlohmann::json object;
    object[kKeySampleRate] = GetSampleRate();
    object[kKeyNumChannels] = GetNumChannels();
    object[kKeySampleType] = static_cast<int32_t>(GetSampleType());
    object[kKeyChannelMask] = GetChannelMask();
    object[kKeySampleTypeInfo] = "1-short,2-float";
    return object.dump(4);
}

DRAVResult DRAVAudioFormatConfiguration::FromJSON(const std::string& text)
{
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false);
    if (object.is_discarded() || !object.is_object())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "audio format: text is no JSON object");
    }
    uint32_t value = 0;
    if (!ReadUnsigned(object, kKeySampleRate, &value))
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "audio format: bad or missing \"%s\"",
                          kKeySampleRate);
    }
    SetSampleRate(value);
    if (!ReadUnsigned(object, kKeyNumChannels, &value))
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "audio format: bad or missing \"%s\"",
                          kKeyNumChannels);
    }
    SetNumChannels(value);
    if (!ReadUnsigned(object, kKeyChannelMask, &value))
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "audio format: bad or missing \"%s\"",
                          kKeyChannelMask);
    }
    SetChannelMask(value);
    if (!ReadUnsigned(object, kKeySampleType, &value))
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "audio format: bad or missing \"%s\"",
                          kKeySampleType);
    }
    const bool known = value == kDRAVAudioSampleTypeInt16 || value == kDRAVAudioSampleTypeFloat;
    SetSampleType(known ? static_cast<DRAVAudioSampleType>(value) : kDRAVAudioSampleTypeUnknown);
    return DRAVResult(kDRAVResultOk);
}
