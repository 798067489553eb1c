#include "engine/media/DRAVMediaBuffer.h"

#include <cinttypes>
#include <cstdio>

#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVFrameObjectPool.h"

DRAVMediaBuffer::DRAVMediaBuffer(const std::string& friendlyName, std::shared_ptr<DRAVMediaFormat> format)
    : format_(std::move(format)), friendlyName_(friendlyName)
{
}

DRAVMediaBuffer::~DRAVMediaBuffer() = default;

bool DRAVMediaBuffer::HasMediaFormat(std::shared_ptr<DRAVMediaFormat> format) const
{
    return format_ != nullptr && format_->IsMediaFormat(std::move(format));
}

std::shared_ptr<DRAVMediaFormat> DRAVMediaBuffer::GetMediaFormat() const
{
    return format_;
}

DRAVResult DRAVMediaBuffer::GetMediaFormatCopy(std::shared_ptr<DRAVMediaFormat>* out) const
{
    if (out == nullptr || format_ == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVMediaBuffer::SetMediaFormat(std::shared_ptr<DRAVMediaFormat> format)
{
    format_ = std::move(format);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMediaBuffer::LockRead(std::shared_ptr<DRAVBuffer>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (storage_ == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    contentLock_.lock_shared();
    readers_.fetch_add(1, std::memory_order_relaxed);
    *out = storage_;
    return DRAVResult(kDRAVResultOk);
}

// An unlock without a matching lock is refused rather than corrupting the lock.
DRAVResult DRAVMediaBuffer::UnlockRead()
{
    int32_t readers = readers_.load(std::memory_order_relaxed);
    do
    {
        if (readers <= 0)
        {
            return DRAVResult(kDRAVResultErrInvalidState);
        }
    } while (!readers_.compare_exchange_weak(readers, readers - 1, std::memory_order_relaxed));
    contentLock_.unlock_shared();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMediaBuffer::LockWrite(std::shared_ptr<DRAVBuffer>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (storage_ == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    contentLock_.lock();
    writeLocked_.store(true, std::memory_order_relaxed);
    *out = storage_;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMediaBuffer::UnlockWrite()
{
    bool locked = true;
    if (!writeLocked_.compare_exchange_strong(locked, false, std::memory_order_relaxed))
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    contentLock_.unlock();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMediaBuffer::InitMediaBuffer_RAM(int64_t size, const void* data, int64_t dataSize)
{
    auto storage =
        std::allocate_shared<DRAVBufferRAM>(DRAVFrameAllocator<DRAVBufferRAM>(), friendlyName_.Get(), size);
    if (!storage->IsValid())
    {
        return DRAVResult(kDRAVResultErrInsufficientMemory, "no storage of %" PRId64 " bytes for <%s>", size,
                          friendlyName_.Get().c_str());
    }
    if (data != nullptr && dataSize >= 1)
    {
        DRAVResult filled = storage->FillBuffer(data, dataSize);
        if (!filled.Succeeded())
        {
            return filled;
        }
    }
    storage_ = std::move(storage);
    return DRAVResult(kDRAVResultOk);
}

int64_t DRAVMediaBuffer::GetUsedBufferSize() const
{
    return storage_ ? storage_->GetSizeCurrent() : 0;
}

int64_t DRAVMediaBuffer::GetAllocatedBufferSize() const
{
    return storage_ ? storage_->GetSizeMax() : 0;
}

std::string DRAVMediaBuffer::ToString() const
{
    char text[160];
    snprintf(text, sizeof(text), "%p: %s Size: %" PRId64 "/%" PRId64 " bytes",
             storage_ ? static_cast<void*>(storage_->GetData()) : nullptr, timestamp_.ToString().c_str(),
             GetUsedBufferSize(), GetAllocatedBufferSize());
    return text;
}
