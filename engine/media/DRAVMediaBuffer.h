#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>

#include "engine/media/DRAVBuffer.h"
#include "engine/media/DRAVMediaFormat.h"
#include "engine/media/DRAVSharedName.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"

// A frame: a format, a time span and its storage, guarded by a reader-writer
// lock on the content. Frames travel by shared_ptr and are never copied.
class DRAVMediaBuffer : public std::enable_shared_from_this<DRAVMediaBuffer>
{
public:
    DRAVMediaBuffer(const std::string& friendlyName, std::shared_ptr<DRAVMediaFormat> format);
    virtual ~DRAVMediaBuffer();
    DRAVMediaBuffer(const DRAVMediaBuffer&) = delete;
    DRAVMediaBuffer& operator=(const DRAVMediaBuffer&) = delete;

    virtual DRAVMediaType GetMediaType() const = 0;
    // False without a format.
    virtual bool HasMediaFormat(std::shared_ptr<DRAVMediaFormat> format) const;
    virtual std::shared_ptr<DRAVMediaFormat> GetMediaFormat() const;
    // A fresh copy the caller may change. ErrNullPointer for a null `out` or
    // without a format; ErrNotImplemented for a kind that cannot be copied.
    virtual DRAVResult GetMediaFormatCopy(std::shared_ptr<DRAVMediaFormat>* out) const;
    virtual DRAVResult SetMediaFormat(std::shared_ptr<DRAVMediaFormat> format);
    virtual DRAVResult UnlockRead();
    // Shared lock on the content. ErrNullPointer for a null `out`,
    // ErrNotInitialized without storage.
    virtual DRAVResult LockRead(std::shared_ptr<DRAVBuffer>* out);

    // Exclusive lock on the content; same results as LockRead.
    DRAVResult LockWrite(std::shared_ptr<DRAVBuffer>* out);
    DRAVResult UnlockWrite();

    // Lock, then hand out the storage as `T`: ErrInvalidCast (and unlocked
    // again) when the storage is of another class.
    template <class T>
    DRAVResult LockRead(std::shared_ptr<T>* out);
    template <class T>
    DRAVResult LockWrite(std::shared_ptr<T>* out);

    // Makes RAM storage of `size` bytes, filled with `data` when given.
    // ErrInsufficientMemory when no storage could be had, ErrInvalidParameter
    // for more data than size.
    DRAVResult InitMediaBuffer_RAM(int64_t size, const void* data, int64_t dataSize);

    int64_t GetUsedBufferSize() const;
    // 0 without storage.
    int64_t GetAllocatedBufferSize() const;
    const std::string& getFriendlyName() const { return friendlyName_.Get(); }

    DRAVTimestamp GetTimestamp() const { return timestamp_; }
    void SetTimestamp(DRAVTimestamp timestamp) { timestamp_ = timestamp; }
    DRAVDuration GetDuration() const { return duration_; }
    void SetDuration(DRAVDuration duration) { duration_ = duration; }
    bool GetIsStale() const { return stale_; }
    void SetIsStale(bool stale) { stale_ = stale; }

    // The storage without a lock, for diagnostics and for the frame's maker
    // before it is published.
    std::shared_ptr<DRAVBuffer> GetStorage() const { return storage_; }
    int32_t GetNumReaders() const { return readers_.load(std::memory_order_relaxed); }

    // "<storage address>: <time stamp> Size: <used>/<allocated> bytes".
    std::string ToString() const;

protected:
    std::shared_ptr<DRAVMediaFormat> format_;

private:
    DRAVTimestamp timestamp_{-1};
    DRAVDuration duration_{0};
    DRAVSharedName friendlyName_;
    bool stale_ = false;
    std::shared_ptr<DRAVBuffer> storage_;
    std::atomic<int32_t> readers_{0};
    std::atomic<bool> writeLocked_{false};
    std::shared_timed_mutex contentLock_;
};

template <class T>
DRAVResult DRAVMediaBuffer::LockRead(std::shared_ptr<T>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVBuffer> storage;
    DRAVResult result = LockRead(&storage);
    if (!result.Succeeded())
    {
        return result;
    }
    auto typed = std::dynamic_pointer_cast<T>(storage);
    if (!typed)
    {
        UnlockRead();
        return DRAVResult(kDRAVResultErrInvalidCast);
    }
    *out = std::move(typed);
    return result;
}

template <class T>
DRAVResult DRAVMediaBuffer::LockWrite(std::shared_ptr<T>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVBuffer> storage;
    DRAVResult result = LockWrite(&storage);
    if (!result.Succeeded())
    {
        return result;
    }
    auto typed = std::dynamic_pointer_cast<T>(storage);
    if (!typed)
    {
        UnlockWrite();
        return DRAVResult(kDRAVResultErrInvalidCast);
    }
    *out = std::move(typed);
    return result;
}
