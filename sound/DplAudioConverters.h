#pragma once

#include <memory>

#include "sound/CSampleFilterFunnel.h"
#include "sound/CSampleFunnel.h"

// A converter from `from` to `to`, null when either lies outside 1 to 26.
// Float to 16-bit (native or swapped) gets the clamping quantizer, which
// takes no filter; every other pair converts through the normalised scale.
std::unique_ptr<CSampleFunnel> DplAudio_CreateSampleTypeConverter(
    const CSampleType& from, const CSampleType& to, int channels,
    const CCountedPtr<CSampleFunnel::Filter>& filter);

// An in-place filter over samples of `type`: 8-, 16-, 32-bit integer, float
// or double (types 1, 2, 5, 6, 7). Null for any other type.
std::unique_ptr<CSampleFilterFunnel> DplAudio_CreateAudioProcessingFilter(
    const CSampleType& type, const CCountedPtr<CSampleFunnel::Filter>& filter);
