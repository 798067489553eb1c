#pragma once

#include <string>

// UUIDs of 16 bytes over libuuid; texts are 36 characters, lower case.
void DplUuid_Create(unsigned char uuid[16]);
// False when the text isn't a UUID; `uuid` is then left as it was.
bool DplUuid_Parse(const char* text, unsigned char uuid[16]);
// Writes 36 characters and a NUL into `text` (37 bytes) and returns it.
char* DplUuid_ToCString(const unsigned char uuid[16], char text[37]);
std::string DplUuid_ToString(const unsigned char* uuid);
// A fresh UUID as upper-case text.
std::string DplUuid_GenerateUUIDString();
