#pragma once

#include <cstdint>
#include <string>

// Result codes of the control layer and the engine. A positive code is a
// success with a nuance; callers test Succeeded(), never == kDRAVResultOk.
enum DRAVResultCode : int32_t
{
    kDRAVResultOkButIncomplete = 4,
    kDRAVResultOkFileNotFound = 3,
    kDRAVResultOkNoDataChanged = 2,
    kDRAVResultOk = 1,
    kDRAVResultErrCustom = 0,
    kDRAVResultErrUnknown = -1,
    kDRAVResultErrNullPointer = -2,
    kDRAVResultErrNotImplemented = -3,
    kDRAVResultErrInvalidCast = -4,
    kDRAVResultErrNotInitialized = -5,
    kDRAVResultErrInsufficientMemory = -6,
    kDRAVResultErrInvalidState = -7,
    kDRAVResultErrInvalidParameter = -8,
    kDRAVResultErrInvalidFormat = -9,
    kDRAVResultErrEncoder = -10,
    kDRAVResultErrVideoScaler = -11,
    kDRAVResultErrNoData = -12,
    kDRAVResultErrNotFound = -13,
    kDRAVResultErrConversionFailed = -14,
    kDRAVResultErrTimeOut = -15,
    // Not in the text table: an index past a list's end, and a firmware
    // interface that could not be opened.
    kDRAVResultErrIndexOutOfRange = -17,
    kDRAVResultErrFirmwareInterface = -18,
    kDRAVResultErrCouldNotOpenFile = -100,
    kDRAVResultErrInvalidPath = -101,
    kDRAVResultErrUnknownUnit = -200,
    kDRAVResultErrInvalidOperation = -300,
};

// Families of outside status values carried in the custom fields; in types 3
// and 4 a custom value of 0 means success.
enum DRAVResultCustomType : int32_t
{
    kDRAVResultCustomTypeNone = 0,
    kDRAVResultCustomTypeVideo = 3,
    kDRAVResultCustomTypeIOKit = 4,
};

class DRAVResult
{
public:
    DRAVResult(int code = kDRAVResultOk);
    DRAVResult(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    DRAVResult(DRAVResultCustomType type, int64_t value);
    DRAVResult(DRAVResultCustomType type, int64_t value, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    bool Succeeded() const;

    DRAVResult& operator=(int code);
    DRAVResult& operator=(const DRAVResult&) = default;
    DRAVResult(const DRAVResult&) = default;

    // Compare code, custom type and custom value; the message does not count.
    bool operator==(const DRAVResult& other) const;
    bool operator!=(const DRAVResult& other) const { return !(*this == other); }
    // Compare the code only.
    bool operator==(int code) const { return code_ == code; }
    bool operator!=(int code) const { return code_ != code; }

    static std::string GetResultCodeString(int code);
    std::string GetResultCodeString() const { return GetResultCodeString(code_); }

    std::string toString() const;
    std::string GetMessage() const;
    void SetMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Log always; LogError only when the result failed. The line is the
    // formatted text followed by " (" + GetMessage() + ")".
    void Log(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void LogError(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    int32_t GetCode() const { return code_; }
    DRAVResultCustomType GetCustomType() const { return customType_; }
    int64_t GetCustomValue() const { return customValue_; }

private:
    int32_t code_ = kDRAVResultOk;
    DRAVResultCustomType customType_ = kDRAVResultCustomTypeNone;
    int64_t customValue_ = 0;
    std::string message_;
};
