#pragma once

#include <string>

// The demo's session mode: the whole life of an application session on the
// simulated platform, with configDir as the application data folder. A first
// run builds its layout from the available devices; a later run restores the
// one the settings file keeps. Returns the process's exit code.
int RunSession(double seconds, const std::string& configDir);
