#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

// The growing text buffer behind one serialisation or parse. The text is
// always NUL-terminated, so it can be handed to C APIs at any point.
class CEJSONParseBuffer
{
public:
    static constexpr size_t kInitialCapacity = 1024;

    CEJSONParseBuffer();
    virtual ~CEJSONParseBuffer();
    CEJSONParseBuffer(const CEJSONParseBuffer&) = delete;
    CEJSONParseBuffer& operator=(const CEJSONParseBuffer&) = delete;

    // Appends n bytes of text; n below 1 means strlen(text). A null text adds nothing.
    // Inline and not virtual: the writer adds every token through it.
    void AddToBuffer(const char* text, int64_t n = 0)
    {
        if (text == nullptr)
        {
            return;
        }
        Append(text, n < 1 ? std::strlen(text) : static_cast<size_t>(n));
        lastWasFormatting_ = false;
    }
    // The same, but marks the addition as layout (line breaks, tabs).
    virtual void AddFormattingToBuffer(const char* text, int64_t n = 0);
    // Appends one byte that is content, not layout.
    void AddCharacter(char c)
    {
        if (capacity_ <= length_ + 1)
        {
            Reserve(1);
        }
        text_[length_++] = c;
        text_[length_] = '\0';
        lastWasFormatting_ = false;
    }

    const char* GetText() const { return text_.get(); }
    size_t GetLength() const { return length_; }
    size_t GetCapacity() const { return capacity_; }
    int32_t GetReadOffset() const { return readOffset_; }
    void SetReadOffset(int32_t offset) { readOffset_ = offset; }
    bool LastAdditionWasFormatting() const { return lastWasFormatting_; }

    // Empties the text but keeps the allocation.
    void Clear();
    std::string TakeString() const { return std::string(text_.get(), length_); }

protected:
    void Append(const char* text, size_t n)
    {
        if (capacity_ <= length_ + n)
        {
            Reserve(n);
        }
        CopyShort(text_.get() + length_, text, n);
        length_ += n;
        text_[length_] = '\0';
    }

private:
    void Reserve(size_t n);

    // Most tokens are a few bytes: fixed-size copies (two that may overlap)
    // stay inline where a memcpy of a variable size calls the library.
    static void CopyShort(char* to, const char* from, size_t n)
    {
        if (n >= 8 && n <= 16)
        {
            std::memcpy(to, from, 8);
            std::memcpy(to + n - 8, from + n - 8, 8);
        }
        else if (n >= 4 && n < 8)
        {
            std::memcpy(to, from, 4);
            std::memcpy(to + n - 4, from + n - 4, 4);
        }
        else if (n < 4)
        {
            for (size_t i = 0; i < n; ++i)
            {
                to[i] = from[i];
            }
        }
        else
        {
            std::memcpy(to, from, n);
        }
    }

    std::unique_ptr<char[]> text_;
    size_t capacity_ = 0;
    size_t length_ = 0;
    int32_t readOffset_ = 0;
    bool lastWasFormatting_ = false;
};

// Prints every finished line to the debug channel instead of keeping it:
// a single line feed added as layout flushes the line.
class CEJSONParseBufferDebugOutput : public CEJSONParseBuffer
{
public:
    explicit CEJSONParseBufferDebugOutput(const char* label = nullptr);
    ~CEJSONParseBufferDebugOutput() override;

    void AddFormattingToBuffer(const char* text, int64_t n = 0) override;

private:
    void FlushLine();
    std::string label_;
};
