#include "portable-core/UPProcessor.h"

#include <unistd.h>

#include <charconv>
#include <fstream>
#include <sstream>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace
{
uint32_t DetectFeatureBits()
{
    uint32_t bits = 0;
#if defined(__x86_64__) || defined(__i386__)
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    const unsigned maxLeaf = __get_cpuid_max(0, nullptr);
    if (maxLeaf >= 1 && __get_cpuid(1, &eax, &ebx, &ecx, &edx))
    {
        bits |= (edx & (1u << 26)) ? kUPFeatureSSE2 : 0;
        bits |= (ecx & (1u << 0)) ? kUPFeatureSSE3 : 0;
        bits |= (ecx & (1u << 9)) ? kUPFeatureSSSE3 : 0;
        bits |= (ecx & (1u << 19)) ? kUPFeatureSSE41 : 0;
        bits |= (ecx & (1u << 20)) ? kUPFeatureSSE42 : 0;
        bits |= (edx & (1u << 28)) ? kUPFeatureHyperThreading : 0;
        bits |= (edx & (1u << 8)) ? kUPFeatureCMPXCHG8B : 0;
        bits |= (ecx & (1u << 13)) ? kUPFeatureCMPXCHG16B : 0;
        // AVX counts only when the system saves the wide registers.
        const bool osSavesAvx = (ecx & (1u << 27)) && (ecx & (1u << 28));
        bool avxStateEnabled = false;
        if (osSavesAvx)
        {
            unsigned lo = 0;
            unsigned hi = 0;
            __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
            avxStateEnabled = (lo & 0x6) == 0x6;
        }
        bits |= avxStateEnabled ? kUPFeatureAVX : 0;
        if (avxStateEnabled && maxLeaf >= 7 && __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
        {
            bits |= (ebx & (1u << 5)) ? kUPFeatureAVX2 : 0;
        }
    }
    if (__get_cpuid_max(0x80000000u, nullptr) >= 0x80000001u &&
        __get_cpuid(0x80000001u, &eax, &ebx, &ecx, &edx))
    {
        bits |= (ecx & (1u << 6)) ? kUPFeatureSSE4a : 0;
        bits |= (edx & (1u << 29)) ? kUPFeature64Bit : 0;
    }
#endif
#if defined(__x86_64__) || defined(__aarch64__)
    bits |= kUPFeature64Bit;
#endif
    return bits;
}

int DetectCpuCount()
{
    long count = sysconf(_SC_NPROCESSORS_CONF);
    if (count < 1)
    {
        count = sysconf(_SC_NPROCESSORS_ONLN);
    }
    return count < 1 ? 1 : static_cast<int>(count);
}

std::string ReadWholeFile(const char* path)
{
    std::ifstream in(path);
    if (!in)
    {
        return {};
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

int DetectSpeedMHz()
{
    // The frequency driver tells the maximum in kHz; without it the kernel's table may.
    const std::string khz = ReadWholeFile("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
    long value = 0;
    if (!khz.empty() && std::from_chars(khz.data(), khz.data() + khz.size(), value).ec == std::errc() &&
        value > 0)
    {
        return static_cast<int>(value / 1000);
    }
    return static_cast<int>(UP_ParseCpuInfoMHz(ReadWholeFile("/proc/cpuinfo")));
}

__UP_StaticVars& Vars()
{
    static __UP_StaticVars vars = _UP_ForceDetectCPU();
    return vars;
}

// Detect at load, so that later calls from any thread only read.
[[maybe_unused]] const bool gDetectedAtLoad = (Vars(), true);
}  // namespace

double UP_ParseCpuInfoMHz(const std::string& cpuinfo)
{
    std::istringstream lines(cpuinfo);
    std::string line;
    while (std::getline(lines, line))
    {
        if (line.rfind("cpu MHz", 0) != 0)
        {
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
        {
            continue;
        }
        const char* p = line.data() + colon + 1;
        const char* end = line.data() + line.size();
        while (p != end && (*p == ' ' || *p == '\t'))
        {
            ++p;
        }
        double mhz = 0;
        if (std::from_chars(p, end, mhz).ec == std::errc() && mhz > 0)
        {
            return mhz;
        }
    }
    return 0;
}

__UP_StaticVars _UP_ForceDetectCPU()
{
    __UP_StaticVars vars;
    vars.cpuCount = DetectCpuCount();
    vars.features = DetectFeatureBits();
    vars.features |= vars.cpuCount >= 2 ? kUPFeatureTwoOrMoreCPUs : 0;
    vars.features |= vars.cpuCount >= 4 ? kUPFeatureFourOrMoreCPUs : 0;
    vars.speedMHz = DetectSpeedMHz();
    return vars;
}

bool UPHaveFeature_C(uint32_t mask)
{
    return (Vars().features & mask) == mask;
}

int UPGetCPUCount_C()
{
    return Vars().cpuCount;
}

int UPGetCPUSpeed_C()
{
    return Vars().speedMHz;
}
