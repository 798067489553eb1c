#include "portable-core/DplUuid.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <cctype>
#include <cstring>

void DplUuid_Create(unsigned char uuid[16])
{
    uuid_generate(uuid);
}

bool DplUuid_Parse(const char* text, unsigned char uuid[16])
{
    if (text == nullptr || uuid == nullptr)
    {
        return false;
    }
    uuid_t parsed;
    if (uuid_parse(text, parsed) != 0)
    {
        return false;
    }
    memcpy(uuid, parsed, sizeof(parsed));
    return true;
}

char* DplUuid_ToCString(const unsigned char uuid[16], char text[37])
{
    uuid_unparse_lower(uuid, text);
    return text;
}

std::string DplUuid_ToString(const unsigned char* uuid)
{
    if (uuid == nullptr)
    {
        return {};
    }
    char text[37];
    return DplUuid_ToCString(uuid, text);
}

std::string DplUuid_GenerateUUIDString()
{
    unsigned char uuid[16];
    DplUuid_Create(uuid);
    std::string text = DplUuid_ToString(uuid);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}
