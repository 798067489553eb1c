#include "portable-core/DPLResult.h"

#include <atomic>

namespace
{
constinit std::atomic<DPLResultNameProvider*> gFirstProvider{nullptr};

struct ResultText
{
    uint32_t code;
    const char* text;
};

const char* Lookup(const ResultText* table, int count, int result)
{
    for (int i = 0; i < count; ++i)
    {
        if (table[i].code == static_cast<uint32_t>(result))
        {
            return table[i].text;
        }
    }
    return nullptr;
}

// Defined here so that any user of the name lookup links the tables too.
DplBaseErrors115 gBaseErrors;
DplWin32Errors128 gSystemErrors;
}  // namespace

DPLResultNameProvider::DPLResultNameProvider(int first, int last)
{
    firstFacility_ = first < 0 ? 0 : first;
    if (last < 0)
    {
        endFacility_ = first < 0 ? 8192 : first + 1;
    }
    else
    {
        endFacility_ = last + 1;
    }
    DPLResultNameProvider* head = gFirstProvider.load(std::memory_order_acquire);
    do
    {
        next_ = head;
    } while (!gFirstProvider.compare_exchange_weak(head, this, std::memory_order_acq_rel,
                                                   std::memory_order_acquire));
}

DPLResultNameProvider* DPLResultNameProvider::First()
{
    return gFirstProvider.load(std::memory_order_acquire);
}

const char* DplBaseErrors115::GetResultName(int result)
{
    static const ResultText kTexts[] = {
        {0x80004001u, "Functionality or interface not implemented"},
        {0x80004003u, "Invalid pointer"},
        {0x80004004u, "Call aborted"},
        {0x80004005u, "Generic failure"},
        {0x8000FFFFu, "Unexpected parameter or condition"},
    };
    return Lookup(kTexts, static_cast<int>(std::size(kTexts)), result);
}

const char* DplWin32Errors128::GetResultName(int result)
{
    static const ResultText kTexts[] = {
        {0x80070002u, "File not found"},
        {0x80070006u, "Invalid handle"},
        {0x8007000Eu, "Out of memory"},
        {0x80070057u, "Invalid argument"},
        {0x80070078u, "Function not implemented"},
        {0x8007023Eu, "Exception not handled"},
    };
    return Lookup(kTexts, static_cast<int>(std::size(kTexts)), result);
}

void DPLThrow(int result)
{
    if (result != 0)
    {
        throw result;
    }
}

const char* DPLGetResultName(int result)
{
    if (result == 0)
    {
        return "Success";
    }
    if (!DPLIsFailureForm(result))
    {
        return "UnknownError";
    }
    const int facility = DPLResultFacility(result);
    for (DPLResultNameProvider* p = DPLResultNameProvider::First(); p != nullptr; p = p->Next())
    {
        if (p->CoversFacility(facility))
        {
            if (const char* name = p->GetResultName(result))
            {
                return name;
            }
        }
    }
    return "UnknownError";
}
