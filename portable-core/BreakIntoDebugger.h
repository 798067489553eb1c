#pragma once

#include <cstdint>

// Marks a state that should never happen. The caller goes on with a result
// afterwards, so this never stops the program: in a release build it only
// counts the call; a debug build also traps when a debugger is attached.
// Safe on any thread, audio threads included (no lock, no allocation).
void BreakIntoDebugger();

// How many times BreakIntoDebugger has been called in this process, so tests
// can see that a "can't happen" path was taken.
uint64_t BreakIntoDebugger_GetCallCount();
