#pragma once

#include <string>

// The demo's two-mixes mode: the manager runs the local and the stream mix on
// the simulated platform with a microphone and a music channel as inputs of
// both; what the headphones and the stream output play is written to WAV
// files. Prints the meters twice a second. Returns the process's exit code.
// With measureCpu each mix gets four inputs and, instead of the meters, the
// CPU time of the process and of the mixes' audio threads is printed.
int RunTwoMixes(const std::string& localWav, const std::string& streamWav, double seconds, bool measureCpu);
