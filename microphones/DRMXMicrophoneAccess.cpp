#include "microphones/DRMXMicrophoneAccess.h"

std::recursive_mutex& DRMXMicrophoneAccessMutex()
{
    // Never destroyed: a microphone may be used while the process ends.
    static auto* const sMutex = new std::recursive_mutex();
    return *sMutex;
}
