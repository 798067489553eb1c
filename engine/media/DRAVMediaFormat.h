#pragma once

#include <cstdint>
#include <memory>

// What a frame carries. Only audio is produced by this engine.
enum DRAVMediaType : int32_t
{
    kDRAVMediaTypeVideo = 0,
    kDRAVMediaTypeAudio = 1,
    kDRAVMediaTypeData = 2,
};

// "Video", "Audio", "Data"; "[INVALID]" for anything else.
const char* DRAVMediaTypeString(int32_t mediaType);

// Base of every format description a frame can hold.
class DRAVMediaFormat
{
public:
    constexpr DRAVMediaFormat() = default;
    constexpr virtual ~DRAVMediaFormat() = default;
    DRAVMediaFormat(const DRAVMediaFormat&) = default;
    DRAVMediaFormat& operator=(const DRAVMediaFormat&) = default;

    // True when `other` describes the same kind of data. The base knows no kind.
    virtual bool IsMediaFormat(std::shared_ptr<DRAVMediaFormat> other) const
    {
        (void)other;
        return false;
    }
};
