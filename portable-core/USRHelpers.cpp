#include "portable-core/USRHelpers.h"

#include <pthread.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace
{
const char* const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr int kIndentBlanks = 256;
const char kBlanks[kIndentBlanks + 1] =
    "                                                                                                    "
    "                                                                                                    "
    "                                                        ";
static_assert(sizeof(kBlanks) == kIndentBlanks + 1);

// Whole-field decimal parse, independent of the process locale.
bool ParseDigits(const char* begin, const char* end, int& value)
{
    if (begin == end)
    {
        return false;
    }
    for (const char* p = begin; p != end; ++p)
    {
        if (*p < '0' || *p > '9')
        {
            return false;
        }
    }
    return std::from_chars(begin, end, value).ec == std::errc();
}

bool ParseDigitsOrBlank(const char* begin, const char* end, int& value)
{
    while (begin != end && *begin == ' ')
    {
        ++begin;
    }
    return ParseDigits(begin, end, value);
}

bool StartsWith(const char* text, const char* prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}
}  // namespace

int USRIsAddressOnStack(const void* address)
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0)
    {
        void* lowest = nullptr;
        size_t size = 0;
        const int got = pthread_attr_getstack(&attributes, &lowest, &size);
        pthread_attr_destroy(&attributes);
        if (got == 0 && lowest != nullptr && size > 0)
        {
            const auto low = reinterpret_cast<uintptr_t>(lowest);
            const auto a = reinterpret_cast<uintptr_t>(address);
            return (a >= low && a - low < size) ? 1 : 0;
        }
    }
    // Bounds unknown: only an address a little above the caller's frame counts.
    const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const auto a = reinterpret_cast<uintptr_t>(address);
    return (a >= frame && a - frame < 4096) ? 1 : -1;
}

int USRStrcmp(const char* a, const char* b)
{
    return strcmp(a, b);
}
size_t USRStrlen(const char* text)
{
    return strlen(text);
}
char* USRStrdup(const char* text)
{
    return strdup(text);
}
void* USRMalloc(size_t bytes)
{
    return malloc(bytes);
}
void USRFree(void* block)
{
    free(block);
}
void* USRMemmove(void* dest, const void* src, size_t bytes)
{
    return memmove(dest, src, bytes);
}

int USRTimeZoneStringToSecondsOffset(const char* text)
{
    if (text == nullptr)
    {
        return 0;
    }
    int sign = 1;
    if (*text == '+' || *text == '-')
    {
        sign = *text == '-' ? -1 : 1;
        ++text;
    }
    if (strlen(text) != 4)
    {
        return 0;
    }
    int hhmm = 0;
    if (!ParseDigits(text, text + 4, hhmm) || hhmm >= 2359)
    {
        return 0;
    }
    const int hours = hhmm / 100;
    const int minutes = hhmm % 100;
    if (minutes > 59)
    {
        return 0;
    }
    return sign * (hours * 60 + minutes) * 60;
}

bool USRMacroDateAndTimeToUnixSeconds(const char* date, const char* time, int64_t* seconds)
{
    if (date == nullptr || time == nullptr || seconds == nullptr || strlen(date) != 11 || date[3] != ' ' ||
        date[6] != ' ' || strlen(time) != 8 || time[2] != ':' || time[5] != ':')
    {
        return false;
    }
    int month = -1;
    for (int m = 0; m < 12; ++m)
    {
        if (strncmp(date, kMonths[m], 3) == 0)
        {
            month = m;
        }
    }
    int day = 0;
    int year = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (month < 0 || !ParseDigitsOrBlank(date + 4, date + 6, day) ||
        !ParseDigits(date + 7, date + 11, year) || !ParseDigits(time, time + 2, hour) ||
        !ParseDigits(time + 3, time + 5, minute) || !ParseDigits(time + 6, time + 8, second))
    {
        return false;
    }
    if (day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
    {
        return false;
    }
    tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    *seconds = timegm(&parts);
    return true;
}

bool USRUnixSecondsToMacroDateAndTime(int64_t seconds, char date[12], char time[9])
{
    const time_t t = static_cast<time_t>(seconds);
    tm parts{};
    if (gmtime_r(&t, &parts) == nullptr || date == nullptr || time == nullptr ||
        parts.tm_year + 1900 > 9999 || parts.tm_year + 1900 < 0)
    {
        return false;
    }
    char dateText[32];
    char timeText[32];
    snprintf(dateText, sizeof(dateText), "%s %2d %04d", kMonths[parts.tm_mon], parts.tm_mday,
             parts.tm_year + 1900);
    snprintf(timeText, sizeof(timeText), "%02d:%02d:%02d", parts.tm_hour, parts.tm_min, parts.tm_sec);
    memcpy(date, dateText, 11);
    date[11] = '\0';
    memcpy(time, timeText, 8);
    time[8] = '\0';
    return true;
}

int USRUnixSecondsToYear(int64_t seconds)
{
    const time_t t = static_cast<time_t>(seconds);
    tm parts{};
    return gmtime_r(&t, &parts) == nullptr ? 0 : parts.tm_year + 1900;
}

int64_t USRGetCompilationUnixSeconds()
{
    int64_t seconds = 0;
    return USRMacroDateAndTimeToUnixSeconds(__DATE__, __TIME__, &seconds) ? seconds : 0;
}

const char* USRIndent(int level)
{
    if (level <= 0)
    {
        return kBlanks + kIndentBlanks;
    }
    const int blanks = level > kIndentBlanks / 4 ? kIndentBlanks : level * 4;
    return kBlanks + (kIndentBlanks - blanks);
}

const char* USRFixTypeIDName(const char* name)
{
    if (name == nullptr)
    {
        return nullptr;
    }
    while (*name >= '0' && *name <= '9')
    {
        ++name;
    }
    if (StartsWith(name, "class "))
    {
        name += 6;
    }
    else if (StartsWith(name, "struct "))
    {
        name += 7;
    }
    return name;
}

const char* USRFixTypeIDNameWithLength(const char* name, int* length)
{
    const char* fixed = USRFixTypeIDName(name);
    if (length != nullptr)
    {
        *length = fixed == nullptr ? 0 : static_cast<int>(strlen(fixed));
    }
    return fixed;
}

std::string USRRemovePrefix(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0 && text.size() >= prefix.size()
               ? text.substr(prefix.size())
               : text;
}

std::string USRRemoveSuffix(const std::string& text, const std::string& suffix)
{
    if (text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0)
    {
        return text.substr(0, text.size() - suffix.size());
    }
    return text;
}
