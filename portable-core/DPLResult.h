#pragma once

#include <cstdint>

// Results of the socket library and the platform helpers: a signed 32-bit int,
// 0 for success. A failure has bit 31 set and bits 29 and 30 clear; bits 16 to
// 28 carry a facility and the low 16 bits the code.
constexpr bool DPLIsFailureForm(int32_t result)
{
    return (static_cast<uint32_t>(result) & 0xE0000000u) == 0x80000000u;
}
constexpr int DPLResultFacility(int32_t result)
{
    return static_cast<int>((static_cast<uint32_t>(result) >> 16) & 0x1FFFu);
}

// Throws the result as an int unless it is 0, so that any lower call's result
// can be handed over without a test.
void DPLThrow(int result);

// "Success" for 0; the providers' text for a known failure; "UnknownError" otherwise.
const char* DPLGetResultName(int result);

// A table of result names for a range of facilities. Instances are static
// objects: the constructor links them into a process-wide list that only grows.
class DPLResultNameProvider
{
public:
    // Covers the facilities `first` to `last`, both included. A negative `first`
    // means facility 0; a negative `last` means every facility when `first` was
    // negative too, else `first` alone.
    DPLResultNameProvider(int first, int last);
    virtual ~DPLResultNameProvider() = default;
    DPLResultNameProvider(const DPLResultNameProvider&) = delete;
    DPLResultNameProvider& operator=(const DPLResultNameProvider&) = delete;

    // The name of `result`, or null when this table doesn't know it.
    virtual const char* GetResultName(int result) = 0;

    bool CoversFacility(int facility) const { return facility >= firstFacility_ && facility < endFacility_; }
    DPLResultNameProvider* Next() const { return next_; }
    static DPLResultNameProvider* First();

private:
    DPLResultNameProvider* next_ = nullptr;
    int firstFacility_ = 0;
    int endFacility_ = 0;
};

// Generic failures of facility 0.
class DplBaseErrors115 : public DPLResultNameProvider
{
public:
    DplBaseErrors115() : DPLResultNameProvider(0, -1) {}
    const char* GetResultName(int result) override;
};

// System failures of facility 7.
class DplWin32Errors128 : public DPLResultNameProvider
{
public:
    DplWin32Errors128() : DPLResultNameProvider(7, -1) {}
    const char* GetResultName(int result) override;
};
