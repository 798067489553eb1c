#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Appends `src` to the text in `dest`, never writing past `size` bytes; the
// result stays NUL-terminated.
char* safe_strcat(char* dest, int size, const char* src);

// Converts `length` bytes of `src` (a negative length means up to the NUL)
// from `fromCode` to `toCode` with iconv, through a 4096-byte scratch buffer.
// On success the output goes to `dest` (at most destSize bytes) and the rest
// of `dest` is zeroed. On failure `dest` receives `src` as text and the
// result is false, so that it always holds something readable.
bool DplString_ConvertString_Iconv(const char* src, int length, const char* fromCode, void* dest,
                                   int destSize, const char* toCode);
bool DplString_ConvertString2(const char* src, int length, const char* fromCode, void* dest, int destSize,
                              const char* toCode);
// As above into a string; `dest` is empty on failure.
bool DplString_ConvertString(const char* src, int length, const char* fromCode, std::string& dest,
                             const char* toCode);

// Strict UTF-8: no stray continuation bytes, no overlong forms, no
// surrogates, nothing above U+10FFFF. An empty text is valid.
bool DplString_IsValidUtf8(const char* text, size_t length);

// A malloc'ed copy; null for null. The caller frees it.
char* DplString_Duplicate(const char* text);

// Percent-encodes every byte but letters, digits and "-._~".
std::string DplString_GetRFC3986URLEncodedString(const std::string& text);

std::vector<std::string> DplString_Split(const std::string& text, const std::string& delimiter);
std::string DplString_Merge(const std::vector<std::string>& pieces, const std::string& delimiter);
std::string DplString_ReplaceFirstOccurrence(const std::string& text, const std::string& what,
                                             const std::string& with);
std::string DplString_ReplaceAllOccurrences(const std::string& text, const std::string& what,
                                            const std::string& with);
bool DplString_HasPrefix(const std::string& text, const std::string& prefix);
bool DplString_HasSuffix(const std::string& text, const std::string& suffix);
bool DplString_Contains(const std::string& text, const std::string& part);
