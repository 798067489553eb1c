#pragma once

#include <string>

// The demo's firmware-update mode: one simulated microphone of the model the
// file names (a Reed 1 for a file for any device) is plugged in and mixing
// runs; the file is put on the microphone through the manager's firmware
// update while the state and progress are polled and printed, with the
// version before and after. Returns 0 only for an update that ends in state 5
// with the file's version on the microphone.
int RunFirmwareUpdate(const std::string& file);
