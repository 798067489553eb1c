#pragma once

#include <cstdint>
#include <string>

#include "engine/media/DRAVSharedName.h"
#include "portable-core/DRAVResult.h"

// The storage behind a frame: a block of bytes with a maximum and a current size.
class DRAVBuffer
{
public:
    explicit DRAVBuffer(const std::string& name) : name_(name) {}
    virtual ~DRAVBuffer() = default;
    DRAVBuffer(const DRAVBuffer&) = delete;
    DRAVBuffer& operator=(const DRAVBuffer&) = delete;

    virtual uint8_t* GetData() = 0;
    virtual int64_t GetSizeMax() const = 0;
    virtual int64_t GetSizeCurrent() const = 0;
    // ErrInvalidParameter for a size below 0 or above the maximum.
    virtual DRAVResult SetSizeCurrent(int64_t size) = 0;
    // Zeroes the whole maximum size.
    virtual void ResetBuffer() = 0;
    // Copies `size` bytes and makes that the current size; a size above the
    // maximum leaves the buffer as it is and gives ErrInvalidParameter.
    virtual DRAVResult FillBuffer(const void* data, int64_t size) = 0;

    const std::string& GetName() const { return name_.Get(); }

private:
    DRAVSharedName name_;
};
