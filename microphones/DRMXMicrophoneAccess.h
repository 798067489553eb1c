#pragma once

#include <mutex>

// Every use of a control object's block: a read or write of the device and
// the getters and setters around it. Control objects are shared by the main
// microphone, the enumeration of inputs (which reads a Reed's block size)
// and the firmware update; one process-wide lock keeps their blocks whole.
// Control traffic is rare and short, so one lock for all microphones costs
// nothing that matters.
std::recursive_mutex& DRMXMicrophoneAccessMutex();
