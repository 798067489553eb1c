#include "portable-core/CRelayBuffer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

CRelayBuffer::CRelayBuffer() : text_(inline_)
{
    inline_[0] = '\0';
}

CRelayBuffer::CRelayBuffer(const CRelayBuffer& other) : CRelayBuffer()
{
    CopyFrom(other);
}

CRelayBuffer::CRelayBuffer(CRelayBuffer&& other) noexcept : CRelayBuffer()
{
    TakeFrom(other);
}

CRelayBuffer& CRelayBuffer::operator=(const CRelayBuffer& other)
{
    if (this != &other)
    {
        Truncate(0);
        CopyFrom(other);
    }
    return *this;
}

CRelayBuffer& CRelayBuffer::operator=(CRelayBuffer&& other) noexcept
{
    if (this != &other)
    {
        Release();
        TakeFrom(other);
    }
    return *this;
}

CRelayBuffer::~CRelayBuffer()
{
    Release();
}

void CRelayBuffer::Release()
{
    if (text_ != inline_)
    {
        free(text_);
    }
    text_ = inline_;
    capacity_ = kInlineBytes - 1;
    length_ = 0;
    inline_[0] = '\0';
}

void CRelayBuffer::CopyFrom(const CRelayBuffer& other)
{
    AddString(other.text_, other.length_);
}

void CRelayBuffer::TakeFrom(CRelayBuffer& other)
{
    if (other.text_ == other.inline_)
    {
        memcpy(inline_, other.inline_, static_cast<size_t>(other.length_) + 1);
        text_ = inline_;
        capacity_ = kInlineBytes - 1;
    }
    else
    {
        text_ = other.text_;
        capacity_ = other.capacity_;
    }
    length_ = other.length_;
    other.text_ = other.inline_;
    other.capacity_ = kInlineBytes - 1;
    other.length_ = 0;
    other.inline_[0] = '\0';
}

bool CRelayBuffer::EnsureMinSize(int size)
{
    if (size <= capacity_)
    {
        return true;
    }
    const int capacity = std::max(capacity_ * 2, size);
    auto* grown = static_cast<char*>(malloc(static_cast<size_t>(capacity) + 1));
    if (grown == nullptr)
    {
        return false;
    }
    memcpy(grown, text_, static_cast<size_t>(length_) + 1);
    if (text_ != inline_)
    {
        free(text_);
    }
    text_ = grown;
    capacity_ = capacity;
    return true;
}

CRelayBuffer& CRelayBuffer::AddString(const char* text, int length)
{
    if (length < 0)
    {
        length = text == nullptr ? 0 : static_cast<int>(strlen(text));
    }
    if (length == 0 || !EnsureMinSize(length_ + length))
    {
        return *this;
    }
    if (text == nullptr)
    {
        memset(text_ + length_, ' ', static_cast<size_t>(length));
    }
    else
    {
        memmove(text_ + length_, text, static_cast<size_t>(length));
    }
    length_ += length;
    text_[length_] = '\0';
    return *this;
}

CRelayBuffer& CRelayBuffer::VAdd(const char* format, va_list args)
{
    if (format == nullptr)
    {
        return *this;
    }
    va_list measure;
    va_copy(measure, args);
    const int room = capacity_ - length_ + 1;
    const int needed = vsnprintf(text_ + length_, static_cast<size_t>(room), format, measure);
    va_end(measure);
    if (needed < 0)
    {
        text_[length_] = '\0';
        return *this;
    }
    if (needed >= room)
    {
        if (!EnsureMinSize(length_ + needed))
        {
            text_[length_] = '\0';
            return *this;
        }
        vsnprintf(text_ + length_, static_cast<size_t>(needed) + 1, format, args);
    }
    length_ += needed;
    return *this;
}

CRelayBuffer& CRelayBuffer::Add(int reserve, const char* format, ...)
{
    if (reserve > 0)
    {
        EnsureMinSize(length_ + reserve);
    }
    va_list args;
    va_start(args, format);
    VAdd(format, args);
    va_end(args);
    return *this;
}

CRelayBuffer& CRelayBuffer::Add(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    VAdd(format, args);
    va_end(args);
    return *this;
}

CRelayBuffer& CRelayBuffer::Set(const char* format, ...)
{
    Truncate(0);
    va_list args;
    va_start(args, format);
    VAdd(format, args);
    va_end(args);
    return *this;
}

void CRelayBuffer::Truncate(int length)
{
    if (length >= 0 && length < length_)
    {
        length_ = length;
        text_[length_] = '\0';
    }
}

bool CRelayBuffer::operator==(const CRelayBuffer& other) const
{
    return length_ == other.length_ && memcmp(text_, other.text_, static_cast<size_t>(length_)) == 0;
}
