#pragma once

#include <memory>

#include "engine/media/DRAVMediaBuffer.h"
#include "portable-core/DRAVResult.h"

// Scope guards for a frame's content: lock on construction, unlock on
// destruction. `out` receives the storage as `T`; `result`, when given, the
// outcome. A null frame is refused with ErrNullPointer and leaves `out` empty.
template <class T>
class DRAVMediaBufferReadLock
{
public:
    DRAVMediaBufferReadLock(std::shared_ptr<DRAVMediaBuffer> buffer, std::shared_ptr<T>* out,
                            DRAVResult* result = nullptr)
        : buffer_(std::move(buffer))
    {
        result_ = buffer_ ? buffer_->template LockRead<T>(out) : DRAVResult(kDRAVResultErrNullPointer);
        locked_ = result_.Succeeded();
        if (result != nullptr)
        {
            *result = result_;
        }
    }
    ~DRAVMediaBufferReadLock()
    {
        if (locked_)
        {
            buffer_->UnlockRead();
        }
    }
    DRAVMediaBufferReadLock(const DRAVMediaBufferReadLock&) = delete;
    DRAVMediaBufferReadLock& operator=(const DRAVMediaBufferReadLock&) = delete;

    bool IsLocked() const { return locked_; }
    const DRAVResult& GetResult() const { return result_; }

private:
    std::shared_ptr<DRAVMediaBuffer> buffer_;
    DRAVResult result_;
    bool locked_ = false;
};

template <class T>
class DRAVMediaBufferWriteLock
{
public:
    DRAVMediaBufferWriteLock(std::shared_ptr<DRAVMediaBuffer> buffer, std::shared_ptr<T>* out,
                             DRAVResult* result = nullptr)
        : buffer_(std::move(buffer))
    {
        result_ = buffer_ ? buffer_->template LockWrite<T>(out) : DRAVResult(kDRAVResultErrNullPointer);
        locked_ = result_.Succeeded();
        if (result != nullptr)
        {
            *result = result_;
        }
    }
    ~DRAVMediaBufferWriteLock()
    {
        if (locked_)
        {
            buffer_->UnlockWrite();
        }
    }
    DRAVMediaBufferWriteLock(const DRAVMediaBufferWriteLock&) = delete;
    DRAVMediaBufferWriteLock& operator=(const DRAVMediaBufferWriteLock&) = delete;

    bool IsLocked() const { return locked_; }
    const DRAVResult& GetResult() const { return result_; }

private:
    std::shared_ptr<DRAVMediaBuffer> buffer_;
    DRAVResult result_;
    bool locked_ = false;
};
