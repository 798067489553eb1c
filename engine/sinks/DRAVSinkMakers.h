#pragma once

// Installs the makers of this folder's sinks into the engine's
// DRAVPlatformUnitMakers, keeping the other makers installed: the preview
// sink (type 1) as the engine's default sink, and the audio renderer (type 5)
// as the platform's. Called once at start-up, before the engine makes any sink.
void DRAVInstallSinkMakers();
