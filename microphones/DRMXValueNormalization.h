#pragma once

// The one include for value normalization: the cut to 0.0..1.0 and the two
// scales that map hardware values to the faders' range and back.
#include "microphones/DRMXBucketNormalizationService.h"
#include "microphones/DRMXLogarithmicNormalizationService.h"
#include "microphones/DRMXNormalizedValue.h"
