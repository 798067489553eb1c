#include "microphones/DRMXMicrophoneInterface.h"

DRMXMicrophoneType GetTypeById(uint32_t productId)
{
    switch (productId)
    {
    case kProductIdReed1: return kMicrophoneTypeReed1;
    case kProductIdReed1DFU: return kMicrophoneTypeReed1DFU;
    case kProductIdReed3: return kMicrophoneTypeReed3;
    case kProductIdReed3DFU: return kMicrophoneTypeReed3DFU;
    case kProductIdReedPro: return kMicrophoneTypeReedPro;
    case kProductIdReedProDFU: return kMicrophoneTypeReedProDFU;
    default: return kMicrophoneTypeUnknown;
    }
}
