#pragma once

#include <memory>

#include "engine/media/DRAVMediaBuffer.h"
#include "portable-core/DRAVResult.h"

class DRAVObject;

// Told when the format of a stream changes; `buffer` is the first frame of
// the new format.
class DRAVMediaFormatChangeDelegate
{
public:
    virtual ~DRAVMediaFormatChangeDelegate() = default;
    virtual DRAVResult MediaFormatChanged(std::shared_ptr<DRAVObject> sender,
                                          std::shared_ptr<DRAVMediaBuffer> buffer) = 0;
};
