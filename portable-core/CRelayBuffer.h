#pragma once

#include <cstdarg>
#include <cstdint>

// A growing text that keeps short texts in the object itself (127 bytes and
// the terminating zero), so that most log lines never touch the heap. The
// text always ends with a zero byte.
class CRelayBuffer
{
public:
    CRelayBuffer();
    CRelayBuffer(const CRelayBuffer& other);
    CRelayBuffer(CRelayBuffer&& other) noexcept;
    CRelayBuffer& operator=(const CRelayBuffer& other);
    CRelayBuffer& operator=(CRelayBuffer&& other) noexcept;
    ~CRelayBuffer();

    // Appends `length` bytes of `text` (a negative length: up to its zero
    // byte); a null text appends `length` blanks.
    CRelayBuffer& AddString(const char* text, int length = -1);
    // Appends formatted text, first making room for `reserve` more bytes.
    CRelayBuffer& Add(int reserve, const char* format, ...) __attribute__((format(printf, 3, 4)));
    CRelayBuffer& Add(const char* format, ...) __attribute__((format(printf, 2, 3)));
    CRelayBuffer& VAdd(const char* format, va_list args);
    CRelayBuffer& Set(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Cuts the text to `length` bytes; a longer length changes nothing.
    void Truncate(int length);
    // Makes room for a text of `size` bytes without growing again.
    bool EnsureMinSize(int size);

    bool operator==(const CRelayBuffer& other) const;
    bool operator!=(const CRelayBuffer& other) const { return !(*this == other); }

    const char* c_str() const { return text_; }
    int Length() const { return length_; }
    int Capacity() const { return capacity_; }
    bool IsInline() const { return text_ == inline_; }

private:
    static constexpr int kInlineBytes = 128;

    void Release();
    void CopyFrom(const CRelayBuffer& other);
    void TakeFrom(CRelayBuffer& other);

    char* text_;
    void* reserved_[2] = {nullptr, nullptr};
    int32_t length_ = 0;
    int32_t capacity_ = kInlineBytes - 1;
    char inline_[kInlineBytes];
};
