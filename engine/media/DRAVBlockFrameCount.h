#pragma once

#include <cstdint>

#include "portable-core/DRAVResult.h"

// Every unit on the mix's road takes blocks of 1 to kMaxBlockFrameCount frames
// (one second at the mix's rate): a block of 0 frames has no meaning and would
// divide by zero in the limits counted in blocks.
inline constexpr int64_t kMaxBlockFrameCount = 48000;

// "Ok", or "ErrInvalidParameter" naming the refused count.
inline DRAVResult DRAVCheckBlockFrameCount(int64_t frames)
{
    if (frames < 1 || frames > kMaxBlockFrameCount)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "%lld frames per block outside 1..%lld",
                          static_cast<long long>(frames), static_cast<long long>(kMaxBlockFrameCount));
    }
    return DRAVResult(kDRAVResultOk);
}
