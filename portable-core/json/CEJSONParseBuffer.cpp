#include "portable-core/json/CEJSONParseBuffer.h"

#include <cstring>

#include "portable-core/DRAVLog.h"

CEJSONParseBuffer::CEJSONParseBuffer() : text_(new char[kInitialCapacity]), capacity_(kInitialCapacity)
{
    text_[0] = '\0';
}

CEJSONParseBuffer::~CEJSONParseBuffer() = default;

void CEJSONParseBuffer::Reserve(size_t n)
{
    if (capacity_ > length_ + n)
    {
        return;
    }
    // Roughly doubles, so a whole document costs a logarithmic number of copies.
    size_t newCapacity = static_cast<size_t>(readOffset_) + 2 * (length_ + n) + 2;
    std::unique_ptr<char[]> grown(new char[newCapacity]);
    memcpy(grown.get(), text_.get(), length_ + 1);
    text_ = std::move(grown);
    capacity_ = newCapacity;
}

void CEJSONParseBuffer::AddFormattingToBuffer(const char* text, int64_t n)
{
    if (text == nullptr)
    {
        return;
    }
    size_t count = n < 1 ? strlen(text) : static_cast<size_t>(n);
    Append(text, count);
    lastWasFormatting_ = true;
}

void CEJSONParseBuffer::Clear()
{
    length_ = 0;
    text_[0] = '\0';
}

CEJSONParseBufferDebugOutput::CEJSONParseBufferDebugOutput(const char* label) : label_(label ? label : "") {}

CEJSONParseBufferDebugOutput::~CEJSONParseBufferDebugOutput()
{
    // The last line of a document has no line feed behind it.
    if (GetLength() > 0)
    {
        FlushLine();
    }
}

void CEJSONParseBufferDebugOutput::FlushLine()
{
    DRAVLogLine(kDbgPrintLevelInfo, label_.empty() ? std::string(GetText()) : label_ + ": " + GetText());
    Clear();
}

void CEJSONParseBufferDebugOutput::AddFormattingToBuffer(const char* text, int64_t n)
{
    if (text != nullptr && text[0] == '\n' && (n == 1 || (n < 1 && text[1] == '\0')))
    {
        FlushLine();
        // The line break still counts as layout for the indentation logic.
        CEJSONParseBuffer::AddFormattingToBuffer("", 0);
        return;
    }
    CEJSONParseBuffer::AddFormattingToBuffer(text, n);
}
