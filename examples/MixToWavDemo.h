#pragma once

#include <string>

// The demo's road mode: a simulated microphone and a simulated music channel
// played through one mixer unit to a simulated output, whose sound is written
// to a WAV file. Prints the bus and output levels while it runs. Returns the
// process's exit code.
int RunMixToWav(const std::string& wavPath, double seconds);
