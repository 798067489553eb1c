#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// 1 when the address lies in the running thread's stack, 0 when not, -1 when
// the stack's bounds are unknown and the address isn't just above the caller.
int USRIsAddressOnStack(const void* address);

int USRStrcmp(const char* a, const char* b);
size_t USRStrlen(const char* text);
char* USRStrdup(const char* text);
void* USRMalloc(size_t bytes);
void USRFree(void* block);
void* USRMemmove(void* dest, const void* src, size_t bytes);

// "+hhmm" / "-hhmm" / "hhmm" to seconds east of UTC; anything else gives 0.
int USRTimeZoneStringToSecondsOffset(const char* text);

// The compiler's date ("Mmm dd yyyy") and time ("hh:mm:ss") as UTC seconds since 1970.
bool USRMacroDateAndTimeToUnixSeconds(const char* date, const char* time, int64_t* seconds);
// The other way: `date` gets 12 bytes, `time` 9.
bool USRUnixSecondsToMacroDateAndTime(int64_t seconds, char date[12], char time[9]);
int USRUnixSecondsToYear(int64_t seconds);
// When this library was compiled, by its date macros.
int64_t USRGetCompilationUnixSeconds();

// `level` × 4 blanks, from one static string; a level beyond it gives all of it.
const char* USRIndent(int level);

// The readable name in a run-time type name: leading length digits and
// "class " or "struct " are cut.
const char* USRFixTypeIDName(const char* name);
const char* USRFixTypeIDNameWithLength(const char* name, int* length);
std::string USRRemovePrefix(const std::string& text, const std::string& prefix);
std::string USRRemoveSuffix(const std::string& text, const std::string& suffix);
