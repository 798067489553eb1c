#pragma once

#include <string>

#include "engine/media/DRAVAudioFormat.h"
#include "portable-core/DRAVResult.h"
#include "settings/DRAVJSONSerializationInterface.h"

// An audio format with a JSON text form:
// {"sampleRateHz", "numChannels", "sampleType", "channelMask", "sampleTypeInfo"}.
class DRAVAudioFormatConfiguration : public DRAVAudioFormat, public DRAVJSONSerializationInterface
{
public:
    DRAVAudioFormatConfiguration() = default;
    explicit DRAVAudioFormatConfiguration(const DRAVAudioFormat& format) : DRAVAudioFormat(format) {}

    std::string ToJSON() const override;
    // A text that is no JSON object, lacks a key or holds a value that is no
    // non-negative integer gives ErrInvalidParameter; keys read before the
    // failing one keep their new values. A sample type other than 1 or 2 is
    // stored as 0.
    DRAVResult FromJSON(const std::string& text) override;
};
