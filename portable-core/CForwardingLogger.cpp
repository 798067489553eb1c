#include "portable-core/CForwardingLogger.h"

#include <cstring>

#include "portable-core/DplAlignedMemory.h"

CForwardingLogger::CForwardingLogger(CCountedPtr<CRelayLogger> target, CRelayLogLevel lowest, int ringBytes,
                                     bool doubled)
    : index_(ringBytes), target_(std::move(target)), lowest_(lowest), doubled_(doubled)
{
    const size_t bytes = static_cast<size_t>(ringBytes) * (doubled ? 2 : 1);
    ring_ = static_cast<unsigned char*>(DplAlignedAlloc(bytes));
    if (ring_ == nullptr)
    {
        throw -1;
    }
}

CForwardingLogger::~CForwardingLogger()
{
    DplAlignedFree(ring_);
}

int CForwardingLogger::WriteLogBytes(const char*, CRelayLogLevel level, const char* bytes, int length)
{
    if (length <= 0 || level < lowest_ || bytes == nullptr)
    {
        return length;
    }
    const int start = index_.BeginPut(length);
    if (start < 0)
    {
        return 0;
    }
    const int size = index_.Size();
    const int atEnd = length < size - start ? length : size - start;
    memcpy(ring_ + start, bytes, static_cast<size_t>(atEnd));
    if (length > atEnd)
    {
        memcpy(ring_, bytes + atEnd, static_cast<size_t>(length - atEnd));
    }
    index_.EndPut(length);
    SignalForward();
    return length;
}

int CForwardingLogger::ForwardSome()
{
    if (forwarding_.test_and_set(std::memory_order_acquire))
    {
        return 0;
    }
    int moved = 0;
    const int length = index_.MinLength();
    const int start = length > 0 ? index_.BeginGet(length) : -1;
    if (start >= 0)
    {
        const int size = index_.Size();
        const char* first = reinterpret_cast<const char*>(ring_ + start);
        CRelayLogger* target = target_.get();
        if (start + length <= size)
        {
            if (target != nullptr)
            {
                target->WriteLogBytes("", kRelayLogLevelInformation, first, length);
            }
        }
        else if (doubled_)
        {
            // The second half mirrors the start, so the wrapped span reads as one.
            memcpy(ring_ + size, ring_, static_cast<size_t>(start + length - size));
            if (target != nullptr)
            {
                target->WriteLogBytes("", kRelayLogLevelInformation, first, length);
            }
        }
        else if (target != nullptr)
        {
            target->WriteLogBytes("", kRelayLogLevelInformation, first, size - start);
            target->WriteLogBytes("", kRelayLogLevelInformation, reinterpret_cast<const char*>(ring_),
                                  start + length - size);
        }
        index_.EndGet(length);
        moved = length;
    }
    forwarding_.clear(std::memory_order_release);
    return moved;
}
