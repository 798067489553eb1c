#include "microphones/DRMXAudioInputAccess.h"

bool __RequestAccessToAudioInputDevices()
{
    return true;
}
