#pragma once

// The shared vocabulary of property names. The text of each constant is both
// the key under which a class registers the property and the name shown in
// diagnostics, so it never changes once released.

// DRAVObject and the observer hook shared by every class.
inline constexpr char kPropertyUnitObjectID[] = "Object ID";
inline constexpr char kPropertyFriendlyName[] = "Friendly Name";
inline constexpr char kPropertyCommonObserver[] = "Common Observer";

// Units.
inline constexpr char kPropertyUnitDumpPinStatistics[] = "(Cmd) Dump Pin Statistics";
inline constexpr char kPropertyUnitResetPinStatistics[] = "(Cmd) Reset Pin Statistics";
inline constexpr char kPropertyUnitPause[] = "Unit Pause State";
inline constexpr char kPropertyVerboseLogging[] = "Unit Verbose Logging";
inline constexpr char kPropertyPreserveBuffer[] = "Unit Preserve Buffer";
inline constexpr char kPropertyPinIn0FramerateFps[] = "Pin Input 0 Framerate (fps)";
inline constexpr char kPropertyPinOut0ConnectedTo[] = "Pin Output 0 Connected to";
inline constexpr char kPropertyPinOut1ConnectedTo[] = "Pin Output 1 Connected to";
inline constexpr char kPropertyPinOut2ConnectedTo[] = "Pin Output 2 Connected to";

// Audio buffers, shared by mixes, inputs, outputs, sources and sinks.
inline constexpr char kPropertyAudioBufferSizeFrameCount[] = "Audio Buffer Size (frames)";
inline constexpr char kPropertyAudioBufferSizeMs[] = "Audio Buffer Size (ms)";

// Mixer nodes.
inline constexpr char kPropertyNodeGain[] = "Mixer Node Gain";
inline constexpr char kPropertyNodeMute[] = "Mixer Node Mute";
inline constexpr char kPropertyNodeVULevelChannel1[] = "Mixer Node Audio VU Level Channel 1";
inline constexpr char kPropertyNodeVULevelChannel2[] = "Mixer Node Audio VU Level Channel 2";

// Outputs.
inline constexpr char kPropertyOutputLevel[] = "Output Level";
inline constexpr char kPropertyOutputMute[] = "Output Mute";
inline constexpr char kPropertyOutputVULevelChannel1[] = "Output VU Level Channel 1";
inline constexpr char kPropertyOutputVULevelChannel2[] = "Output VU Level Channel 2";

// Capture devices and renderers.
inline constexpr char kPropertyCaptureDevicePath[] = "Device Path";
inline constexpr char kPropertyCaptureDeviceIndex[] = "Device Index";
inline constexpr char kPropertyCaptureDeviceHardwareId[] = "Device Hardware Id";
inline constexpr char kPropertyCaptureDeviceDescription[] = "Device Description";
inline constexpr char kPropertyAudioRendererMute[] = "Audio Mute";
inline constexpr char kPropertyAudioRendererVolume[] = "Audio Volume";

// Microphones.
inline constexpr char kPropertyMicrophoneMute[] = "Microphone Mute";
inline constexpr char kPropertyMicrophoneGain[] = "Microphone Gain";
inline constexpr char kPropertyMicrophoneOutputVolume[] = "Microphone Output Volume";
inline constexpr char kPropertyMicrophoneOutputMute[] = "Microphone Output Mute";
inline constexpr char kPropertyMicrophoneDirectMonitorVolume[] = "Microphone DirectMonitor Volume";
inline constexpr char kPropertyMicrophoneClipGuard[] = "Microphone ClipGuard";
inline constexpr char kPropertyMicrophoneLowCut[] = "Microphone LowCut";
inline constexpr char kPropertyMicrophoneGainLocked[] = "Microphone GainLock";
inline constexpr char kPropertyMicrophoneLedFlipped[] = "Microphone Led Flipped";
inline constexpr char kPropertyMicrophonePolarization[] = "Microphone Polarization";
inline constexpr char kPropertyMicrophoneDialFunction[] = "Microphone Dial Function";
inline constexpr char kPropertyMicrophoneVULevelChannel1[] = "Microphone VU Level Channel 1";
inline constexpr char kPropertyMicrophoneVULevelChannel2[] = "Microphone VU Level Channel 2";
inline constexpr char kPropertyMicrophoneDefaultName[] = "Microphone Default Name";
inline constexpr char kPropertyMicrophoneCustomName[] = "Microphone Custom Name";

// Device observers.
inline constexpr char kPropertyDeviceObserverNotification[] = "Device ObserverNotification";
inline constexpr char kPropertPowerStateNotification[] = "PowerState ObserverNotification";
inline constexpr char kPropertyDeviceObserverChange[] = "Device Observer Change";
inline constexpr char kPropertyDeviceObserverChangeInternal[] = "Device Observer Change (internal)";

// Sources.
inline constexpr char kPropertySourceMuteAudio[] = "Source Mute Audio";
inline constexpr char kPropertySourceAudioGain[] = "Source Audio Gain";
inline constexpr char kPropertySourceAudioDelay[] = "Source Audio Delay (ms)";
inline constexpr char kPropertySourceStartTimeUsec[] = "Source Start Time (usec)";
inline constexpr char kPropertySourceTimestampWatchdog[] = "Timestamp Watchdog";
inline constexpr char kPropertySourceEnableSourceCopy[] = "Source Enable Source Copy";
inline constexpr char kPropertySourceMuteVideo[] = "Source Mute Video";
inline constexpr char kPropertyVideoFramerateFps[] = "Video Framerate (fps)";
inline constexpr char kPropertyVideoSize[] = "Video Size";

// Test generators.
inline constexpr char kPropertyTestSignalFrequencyHz[] = "Test Signal Frequency (Hz)";
inline constexpr char kPropertyTestAudioRingbuffer[] = "Test Ringbuffer for Audio";

// Pipelines and the processor.
inline constexpr char kPropertyHasWorkingSource[] = "Has Working Source";
inline constexpr char kPropertyLibraryIsDirty[] = "Is Library Dirty";
inline constexpr char kPropertyPreviewIsLive[] = "Preview Is Live";
inline constexpr char kPropertyCommandResetTimeBase[] = "(Cmd) Reset Time Base";

// Audio processing units.
inline constexpr char kPropertyAudioMixerChannelConfig[] = "Audio Mixer Channel Config";
inline constexpr char kPropertyAudioFormatConfiguration[] = "Audio Format Configuration";
inline constexpr char kPropertyAudioConverterMonoMix[] = "Audio Converter Mono Mix";
inline constexpr char kPropertyAudioVULevelDecreaseValue[] = "Audio VU Level Decrease Value";
inline constexpr char kPropertyAudioVULevelChannel1[] = "Audio VU Level Channel 1";
inline constexpr char kPropertyAudioVULevelChannel2[] = "Audio VU Level Channel 2";
