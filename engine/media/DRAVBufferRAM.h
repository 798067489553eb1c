#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVBuffer.h"

class DRAVMemoryPoolRAM;

// Storage in RAM, taken from the process-wide memory pool (or, before a pool
// is installed, from the heap), 64-byte aligned. The storage holds its pool,
// so its block goes back to the pool it came from even after the pool's owner
// has let go of it. Its content is not cleared: ResetBuffer() does that.
class DRAVBufferRAM : public DRAVBuffer
{
public:
    // Takes `size` bytes from the shared pool.
    DRAVBufferRAM(const std::string& name, int64_t size);
    // Takes `size` bytes from `pool`; a null pool means the heap.
    DRAVBufferRAM(const std::string& name, int64_t size, std::shared_ptr<DRAVMemoryPoolRAM> pool);
    ~DRAVBufferRAM() override;

    // False when no memory could be had.
    bool IsValid() const { return data_ != nullptr; }

    uint8_t* GetData() override { return data_; }
    int64_t GetSizeMax() const override { return sizeMax_; }
    int64_t GetSizeCurrent() const override { return sizeCurrent_; }
    DRAVResult SetSizeCurrent(int64_t size) override;
    void ResetBuffer() override;
    DRAVResult FillBuffer(const void* data, int64_t size) override;

private:
    std::shared_ptr<DRAVMemoryPoolRAM> pool_;
    uint8_t* data_ = nullptr;
    int64_t sizeMax_ = 0;
    int64_t sizeCurrent_ = 0;
};
