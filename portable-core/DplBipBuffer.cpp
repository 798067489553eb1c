#include "portable-core/DplBipBuffer.h"

#include <algorithm>
#include <cstring>

#include "portable-core/DplAlignedMemory.h"

DplBipBuffer::DplBipBuffer(const DplBipBuffer& other)
{
    CopyFrom(other);
}

DplBipBuffer& DplBipBuffer::operator=(const DplBipBuffer& other)
{
    if (this != &other)
    {
        deallocate();
        CopyFrom(other);
    }
    return *this;
}

DplBipBuffer::~DplBipBuffer()
{
    // The owner normally deallocates; freeing here as well keeps a forgotten
    // block from leaking.
    deallocate();
}

void DplBipBuffer::CopyFrom(const DplBipBuffer& other)
{
    if (other.storage_ == nullptr || !allocate(other.bufferLength_))
    {
        return;
    }
    memcpy(storage_, other.storage_, other.bufferLength_);
    ixa_ = other.ixa_;
    sza_ = other.sza_;
    ixb_ = other.ixb_;
    szb_ = other.szb_;
    ixResrv_ = other.ixResrv_;
    szResrv_ = other.szResrv_;
}

void DplBipBuffer::ForgetRegions()
{
    ixa_ = sza_ = ixb_ = szb_ = ixResrv_ = szResrv_ = 0;
}

bool DplBipBuffer::allocate(size_t bytes)
{
    if (bytes == 0)
    {
        return false;
    }
    deallocate();
    storage_ = static_cast<unsigned char*>(DplAlignedAlloc(bytes));
    if (storage_ == nullptr)
    {
        return false;
    }
    bufferLength_ = bytes;
    return true;
}

void DplBipBuffer::deallocate()
{
    ForgetRegions();
    bufferLength_ = 0;
    DplAlignedFree(storage_);
    storage_ = nullptr;
}

void DplBipBuffer::clear()
{
    ForgetRegions();
}

void* DplBipBuffer::reserve(size_t wanted, size_t& reserved)
{
    reserved = 0;
    ixResrv_ = 0;
    szResrv_ = 0;
    if (storage_ == nullptr || wanted == 0)
    {
        return nullptr;
    }
    if (szb_ != 0)
    {
        const size_t free = getBFreeSpace();
        if (free == 0)
        {
            return nullptr;
        }
        szResrv_ = std::min(wanted, free);
        ixResrv_ = ixb_ + szb_;
    }
    else
    {
        const size_t free = getSpaceAfterA();
        if (free >= ixa_)
        {
            if (free == 0)
            {
                return nullptr;
            }
            szResrv_ = std::min(wanted, free);
            ixResrv_ = ixa_ + sza_;
        }
        else
        {
            // The room before A is the larger one: start region B there.
            szResrv_ = std::min(wanted, ixa_);
            ixResrv_ = 0;
        }
    }
    reserved = szResrv_;
    return storage_ + ixResrv_;
}

void DplBipBuffer::commit(size_t bytes)
{
    bytes = std::min(bytes, szResrv_);
    if (bytes == 0)
    {
        ixResrv_ = 0;
        szResrv_ = 0;
        return;
    }
    if (sza_ == 0 && szb_ == 0)
    {
        ixa_ = ixResrv_;
        sza_ = bytes;
    }
    else if (ixResrv_ == ixa_ + sza_)
    {
        sza_ += bytes;
    }
    else
    {
        szb_ += bytes;
    }
    ixResrv_ = 0;
    szResrv_ = 0;
}

void* DplBipBuffer::getContiguousBlock(size_t& size)
{
    if (sza_ == 0 || storage_ == nullptr)
    {
        size = 0;
        return nullptr;
    }
    size = sza_;
    return storage_ + ixa_;
}

void DplBipBuffer::decommitBlock(size_t bytes)
{
    if (bytes >= sza_)
    {
        ixa_ = ixb_;
        sza_ = szb_;
        ixb_ = 0;
        szb_ = 0;
    }
    else
    {
        ixa_ += bytes;
        sza_ -= bytes;
    }
}
