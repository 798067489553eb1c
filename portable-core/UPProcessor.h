#pragma once

#include <cstdint>
#include <string>

// Feature bits of the processor word.
constexpr uint32_t kUPFeatureSSE2 = 1u << 2;
constexpr uint32_t kUPFeatureSSE3 = 1u << 3;
constexpr uint32_t kUPFeatureSSSE3 = 1u << 4;
constexpr uint32_t kUPFeatureSSE41 = 1u << 5;
constexpr uint32_t kUPFeatureSSE42 = 1u << 6;
constexpr uint32_t kUPFeatureSSE4a = 1u << 7;
constexpr uint32_t kUPFeature64Bit = 1u << 9;
constexpr uint32_t kUPFeatureTwoOrMoreCPUs = 1u << 10;
constexpr uint32_t kUPFeatureFourOrMoreCPUs = 1u << 11;
constexpr uint32_t kUPFeatureHyperThreading = 1u << 14;
constexpr uint32_t kUPFeatureAVX = 1u << 15;
constexpr uint32_t kUPFeatureAVX2 = 1u << 16;
constexpr uint32_t kUPFeatureCMPXCHG8B = 1u << 17;
constexpr uint32_t kUPFeatureCMPXCHG16B = 1u << 18;

// What the processor detection found, once, at load.
struct __UP_StaticVars
{
    uint32_t features = 0;
    int cpuCount = 1;
    int speedMHz = 0;
};

// True when every bit of `mask` is set.
bool UPHaveFeature_C(uint32_t mask);
int UPGetCPUCount_C();
// The processor's speed in MHz; 0 where the system doesn't tell.
int UPGetCPUSpeed_C();

// Runs the detection again and returns what it found.
__UP_StaticVars _UP_ForceDetectCPU();
// The first "cpu MHz" value of a /proc/cpuinfo text, whatever the process
// locale; 0 when there is none.
double UP_ParseCpuInfoMHz(const std::string& cpuinfo);
