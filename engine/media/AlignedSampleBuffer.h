#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "portable-core/DplAlignedMemory.h"

namespace tidemix::engine
{

// A zeroed, fixed-size run of samples that starts on a 64-byte boundary, so
// vector loads never straddle cache lines and block copies between two such
// buffers never hit the slow path of misaligned memcpy.
template <typename Sample>
class AlignedSampleBuffer
{
public:
    static constexpr std::size_t kAlignment = kDplStoreAlignment;

    AlignedSampleBuffer() = default;
    explicit AlignedSampleBuffer(std::size_t count) { Reset(count); }

    // Allocates; never call on an audio thread.
    void Reset(std::size_t count)
    {
        // Round up to whole cache lines so the tail of a vector loop stays inside.
        const std::size_t perLine = kAlignment / sizeof(Sample);
        const std::size_t rounded = (count + perLine - 1) / perLine * perLine;
        samples_.reset(rounded == 0 ? nullptr
                                    : static_cast<Sample*>(DplAlignedAlloc(rounded * sizeof(Sample))));
        if (!samples_ && rounded != 0)
            throw std::bad_alloc();
        size_ = count;
        if (samples_)
            std::memset(samples_.get(), 0, rounded * sizeof(Sample));
    }

    Sample* Data() { return samples_.get(); }
    const Sample* Data() const { return samples_.get(); }
    std::size_t Size() const { return size_; }

private:
    struct AlignedDelete
    {
        void operator()(Sample* p) const { DplAlignedFree(p); }
    };
    std::unique_ptr<Sample[], AlignedDelete> samples_;
    std::size_t size_ = 0;
};

}  // namespace tidemix::engine
