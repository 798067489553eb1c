#pragma once

// Whether the process may record from audio input devices, asking the user
// first where the platform asks. For the application; nothing in the
// library calls it. On Linux there is no per-application grant to ask for:
// access follows the devices' permissions, so the answer is true.
bool __RequestAccessToAudioInputDevices();
