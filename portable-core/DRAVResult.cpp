#include "portable-core/DRAVResult.h"

#include <cstdarg>
#include <cstdio>

#include "portable-core/DRAVLog.h"

namespace
{
constexpr int kMessageBufferSize = 512;
constexpr int kToStringBufferSize = 256;

std::string FormatMessage(const char* format, va_list args)
{
    char buffer[kMessageBufferSize] = {};
    vsnprintf(buffer, sizeof(buffer), format, args);
    return buffer;
}
}  // namespace

DRAVResult::DRAVResult(int code) : code_(code) {}

DRAVResult::DRAVResult(int code, const char* format, ...) : code_(code)
{
    if (format != nullptr)
    {
        va_list args;
        va_start(args, format);
        message_ = FormatMessage(format, args);
        va_end(args);
    }
}

DRAVResult::DRAVResult(DRAVResultCustomType type, int64_t value)
    : code_(kDRAVResultErrCustom), customType_(type), customValue_(value)
{
}

DRAVResult::DRAVResult(DRAVResultCustomType type, int64_t value, const char* format, ...)
    : code_(kDRAVResultErrCustom), customType_(type), customValue_(value)
{
    if (format != nullptr)
    {
        va_list args;
        va_start(args, format);
        message_ = FormatMessage(format, args);
        va_end(args);
    }
}

bool DRAVResult::Succeeded() const
{
    if (code_ > 0)
    {
        return true;
    }
    if (code_ < 0)
    {
        return false;
    }
    return (customType_ == kDRAVResultCustomTypeVideo || customType_ == kDRAVResultCustomTypeIOKit) &&
           customValue_ == 0;
}

DRAVResult& DRAVResult::operator=(int code)
{
    code_ = code;
    customType_ = kDRAVResultCustomTypeNone;
    return *this;
}

bool DRAVResult::operator==(const DRAVResult& other) const
{
    return code_ == other.code_ && customType_ == other.customType_ && customValue_ == other.customValue_;
}

std::string DRAVResult::GetResultCodeString(int code)
{
    switch (code)
    {
    case kDRAVResultOkButIncomplete: return "OkButIncomplete";
    case kDRAVResultOkFileNotFound: return "OkFileNotFound";
    case kDRAVResultOkNoDataChanged: return "OkNoDataChanged";
    case kDRAVResultOk: return "Ok";
    case kDRAVResultErrCustom: return "ErrCustom";
    case kDRAVResultErrUnknown: return "ErrUnknown";
    case kDRAVResultErrNullPointer: return "ErrNullPointer";
    case kDRAVResultErrNotImplemented: return "ErrNotImplemented";
    case kDRAVResultErrInvalidCast: return "ErrInvalidCast";
    case kDRAVResultErrNotInitialized: return "ErrNotInitialized";
    case kDRAVResultErrInsufficientMemory: return "ErrInsufficientMemory";
    case kDRAVResultErrInvalidState: return "ErrInvalidState";
    case kDRAVResultErrInvalidParameter: return "ErrInvalidParameter";
    case kDRAVResultErrInvalidFormat: return "ErrInvalidFormat";
    case kDRAVResultErrEncoder: return "ErrEncoder";
    case kDRAVResultErrVideoScaler: return "ErrVideoScaler";
    case kDRAVResultErrNoData: return "ErrNoData";
    case kDRAVResultErrNotFound: return "ErrNotFound";
    case kDRAVResultErrConversionFailed: return "ErrConversionFailed";
    case kDRAVResultErrTimeOut: return "ErrTimeOut";
    case kDRAVResultErrCouldNotOpenFile: return "ErrCouldNotOpenFile";
    case kDRAVResultErrInvalidPath: return "ErrInvalidPath";
    case kDRAVResultErrUnknownUnit: return "ErrUnknownUnit";
    case kDRAVResultErrInvalidOperation: return "ErrInvalidOperation";
    default: return "UNKNOWN";
    }
}

std::string DRAVResult::toString() const
{
    if (customType_ != kDRAVResultCustomTypeNone)
    {
        return {};
    }
    char buffer[kToStringBufferSize] = {};
    snprintf(buffer, sizeof(buffer), "DRAVResult %d: %s", code_, GetResultCodeString(code_).c_str());
    return buffer;
}

std::string DRAVResult::GetMessage() const
{
    return message_.empty() ? toString() : message_;
}

void DRAVResult::SetMessage(const char* format, ...)
{
    if (format == nullptr)
    {
        return;
    }
    va_list args;
    va_start(args, format);
    message_ = FormatMessage(format, args);
    va_end(args);
}

void DRAVResult::Log(const char* format, ...) const
{
    va_list args;
    va_start(args, format);
    const std::string text = FormatMessage(format != nullptr ? format : "", args);
    va_end(args);
    DRAVLogLine(Succeeded() ? kDbgPrintLevelInfo : kDbgPrintLevelError, text + " (" + GetMessage() + ")");
}

void DRAVResult::LogError(const char* format, ...) const
{
    if (Succeeded())
    {
        return;
    }
    va_list args;
    va_start(args, format);
    const std::string text = FormatMessage(format != nullptr ? format : "", args);
    va_end(args);
    DRAVLogLine(kDbgPrintLevelError, text + " (" + GetMessage() + ")");
}
