#include "observers/DRMXDeviceObserverCoreAudio.h"

#include <mutex>

namespace
{
std::mutex gMainMicrophoneMutex;
DRMXDeviceObserverCoreAudio::MainMicrophoneDeviceID gMainMicrophoneDeviceID;
}  // namespace

DRMXDeviceObserverCoreAudio::DRMXDeviceObserverCoreAudio() : DRMXDeviceObserverBase("Device Observer Core Audio") {}

DRMXDeviceObserverCoreAudio::~DRMXDeviceObserverCoreAudio() = default;

DRAVResult DRMXDeviceObserverCoreAudio::Init()
{
    initialized_.store(true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverCoreAudio::Deinit()
{
    initialized_.store(false);
    return DRAVResult(kDRAVResultOk);
}

void DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID()
{
    std::lock_guard lock(gMainMicrophoneMutex);
    gMainMicrophoneDeviceID = MainMicrophoneDeviceID();
}

DRMXDeviceObserverCoreAudio::MainMicrophoneDeviceID DRMXDeviceObserverCoreAudio::GetMainMicrophoneID()
{
    std::lock_guard lock(gMainMicrophoneMutex);
    return gMainMicrophoneDeviceID;
}

void DRMXDeviceObserverCoreAudio::SetMainMicrophoneID(const MainMicrophoneDeviceID& id)
{
    std::lock_guard lock(gMainMicrophoneMutex);
    gMainMicrophoneDeviceID = id;
}
