#include "portable-core/DplThreadName.h"

#include <pthread.h>

#include <cstring>

void DplSetCurrentThreadName(const char* name)
{
    if (name == nullptr)
    {
        return;
    }
    constexpr size_t kMaxBytes = 15;
    char cut[kMaxBytes + 1] = {};
    size_t length = strnlen(name, kMaxBytes + 1);
    if (length > kMaxBytes)
    {
        length = kMaxBytes;
        // Don't leave half a UTF-8 character at the end.
        while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80)
        {
            --length;
        }
    }
    memcpy(cut, name, length);
    pthread_setname_np(pthread_self(), cut);
}
