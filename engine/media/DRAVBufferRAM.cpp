#include "engine/media/DRAVBufferRAM.h"

#include <cstring>

#include "engine/media/DRAVMemoryPoolRAM.h"

DRAVBufferRAM::DRAVBufferRAM(const std::string& name, int64_t size)
    : DRAVBufferRAM(name, size, DRAVMemoryPoolRAM::Shared())
{
}

DRAVBufferRAM::DRAVBufferRAM(const std::string& name, int64_t size, std::shared_ptr<DRAVMemoryPoolRAM> pool)
    : DRAVBuffer(name), pool_(std::move(pool))
{
    if (size < 0)
    {
        return;
    }
    data_ = pool_ ? pool_->GetBuffer(name, size, true) : DRAVMemoryPoolRAM::AllocateAligned(size);
    if (data_ != nullptr)
    {
        sizeMax_ = size;
        sizeCurrent_ = size;
    }
}

DRAVBufferRAM::~DRAVBufferRAM()
{
    if (pool_)
    {
        pool_->FreeBuffer(data_);
    }
    else
    {
        DRAVMemoryPoolRAM::FreeAligned(data_);
    }
}

DRAVResult DRAVBufferRAM::SetSizeCurrent(int64_t size)
{
    if (size < 0 || size > sizeMax_)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "size %lld outside 0..%lld",
                          static_cast<long long>(size), static_cast<long long>(sizeMax_));
    }
    sizeCurrent_ = size;
    return DRAVResult(kDRAVResultOk);
}

void DRAVBufferRAM::ResetBuffer()
{
    if (data_ != nullptr && sizeMax_ > 0)
    {
        memset(data_, 0, static_cast<size_t>(sizeMax_));
    }
}

DRAVResult DRAVBufferRAM::FillBuffer(const void* data, int64_t size)
{
    if (size < 0 || size > sizeMax_ || data_ == nullptr)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    if (size > 0)
    {
        if (data == nullptr)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        memmove(data_, data, static_cast<size_t>(size));
    }
    sizeCurrent_ = size;
    return DRAVResult(kDRAVResultOk);
}
