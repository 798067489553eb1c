#pragma once

#include <cstddef>
#include <string>

class CEJSONParseBuffer;

// Text helpers shared by the JSON writer and parser.

// Length (2 to 4) of the well-formed UTF-8 sequence whose lead byte is at
// text, or 0 when it is not one: a bad lead byte, a missing or wrong
// continuation byte, an overlong form, a surrogate, a code point above
// U+10FFFF, or one more continuation byte right behind the sequence.
size_t CEJSONText_SoundSequenceLength(const unsigned char* text, const unsigned char* end);

// Appends text escaped for the inside of a JSON string.
void CEJSONText_Escape(const char* text, size_t length, CEJSONParseBuffer& buffer);

// Appends the UTF-8 form of a code point (up to U+10FFFF, no surrogates).
void CEJSONText_AppendUtf8(unsigned codePoint, std::string& out);

// strtod in the C locale, whatever the process locale is.
double CEJSONText_StringToDouble(const char* text);

// Reads a number token (sign, digits, point, exponent) as a double, in the C
// locale; out-of-range values behave as with strtod.
double CEJSONText_TokenToDouble(const char* begin, const char* end);
