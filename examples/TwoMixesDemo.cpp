#include "TwoMixesDemo.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXMixer.h"
#include "control/DRMXOutput.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimSignal;

// The microphone is a simulated USB microphone: its control device on the
// simulated bus and its audio device, with the same serial number.
constexpr char kMicrophoneSerial[] = "DEMO0001";
constexpr char kMicrophoneUid[] = "usb-Drovane_Reed_DEMO0001-00";

struct Device
{
    uint32_t id = 0;
    std::string uid;
};

DRMXInputSelector InputSelector(const std::string& uid, const std::string& name, int nodeId)
{
    DRMXInputSelector selector;
    selector.SetType(kInputTypeHardware);
    selector.SetHardwareId(uid);
    selector.SetName(name);
    selector.SetMixerNodeID(nodeId);
    return selector;
}

std::shared_ptr<DRMXOutput> MakeOutput(DRMXManager& manager, const std::string& uid)
{
    DRMXOutputSelector selector;
    selector.SetType(kOutputTypeHardware);
    selector.SetHardwareId(uid);
    auto output = std::make_shared<DRMXOutput>(selector);
    output->SetIntProperty(kPropertyAudioBufferSizeFrameCount, manager.GetAudioBufferFrameCount());
    output->SetDoubleProperty(kPropertyOutputLevel, 1.0);
    return output;
}

// The microphone and the music as inputs of one mix, at the given node gains.
void LayOutMix(DRMXManager& manager, DRMXMixerBase& mix, const std::shared_ptr<DRMXOutput>& output,
               double microphoneGain, double musicGain, bool fourInputs)
{
    std::vector<DRMXInputSelector> selectors = {InputSelector(kMicrophoneUid, "Drovane Reed 1", 1),
                                                InputSelector("demo-music", "Demo Music", 2)};
    if (fourInputs)
    {
        selectors.push_back(InputSelector("demo-aux-1", "Demo Aux 1", 3));
        selectors.push_back(InputSelector("demo-aux-2", "Demo Aux 2", 4));
    }
    for (const auto& selector : selectors)
    {
        std::shared_ptr<DRMXInputInterface> input;
        if (manager.CreateInput(selector, &input).Succeeded())
        {
            mix.AddInput(input);
        }
    }
    mix.SetOutput(output);
    mix.ConfigureMixerNodes();
    for (const auto& node : mix.GetMixerNodes())
    {
        const bool microphone = node->GetInputSelector().GetHardwareId() == kMicrophoneUid;
        node->SetDoubleProperty(kPropertyNodeGain, microphone ? microphoneGain : musicGain);
    }
}

void PrintLevels(double at, DRMXManager& manager)
{
    printf("%6.1f s", at);
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        const auto mix = manager.GetMixerForType(type);
        printf("  | %s:", type == kMixerLocal ? "local" : "stream");
        for (const auto& node : mix->GetMixerNodes())
        {
            printf(" %s %.3f/%.3f",
                   node->GetInputSelector().GetHardwareId() == kMicrophoneUid ? "mic" : "music",
                   node->GetDoubleProperty(kPropertyNodeVULevelChannel1),
                   node->GetDoubleProperty(kPropertyNodeVULevelChannel2));
        }
        if (const auto output = std::dynamic_pointer_cast<DRAVObject>(mix->GetOutput()))
        {
            printf(" out %.3f/%.3f", output->GetDoubleProperty(kPropertyOutputVULevelChannel1),
                   output->GetDoubleProperty(kPropertyOutputVULevelChannel2));
        }
    }
    printf("\n");
}

// CPU seconds of each of the process's threads, by thread id, with its name.
std::map<std::string, std::pair<std::string, double>> ThreadCpuSeconds()
{
    std::map<std::string, std::pair<std::string, double>> threads;
    const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", error))
    {
        std::ifstream statFile(entry.path() / "stat");
        std::ifstream commFile(entry.path() / "comm");
        std::string stat;
        std::string comm;
        std::getline(statFile, stat);
        std::getline(commFile, comm);
        // Fields after the name in parentheses; utime and stime are the 12th and 13th.
        std::istringstream rest(stat.substr(stat.rfind(')') + 2));
        std::string field;
        double seconds = 0.0;
        for (int i = 1; i <= 13 && rest >> field; ++i)
        {
            seconds += i >= 12 ? std::stod(field) / ticks : 0.0;
        }
        threads[entry.path().filename().string()] = {comm, seconds};
    }
    return threads;
}

long long Counts(const std::shared_ptr<DRMXOutputInterface>& output, bool underruns)
{
    auto sink =
        output ? std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(output->GetSink()) : nullptr;
    if (!sink)
    {
        return -1;
    }
    return static_cast<long long>(underruns ? sink->GetUnderrunCount() : sink->GetDroppedBlockCount());
}
}  // namespace

int RunTwoMixes(const std::string& localWav, const std::string& streamWav, double seconds, bool measureCpu)
{
    auto platform = std::make_shared<tidemix::platform::sim::SimPlatform>();
    tidemix::platform::Platform::Use(platform);
    auto& world = platform->World();

    const uint32_t microphoneLocation = platform->UsbDevices().Plug(
        tidemix::platform::sim::SimUsbDeviceSpec::Microphone(0x0B21, kMicrophoneSerial));
    SimDeviceSpec microphone = SimDeviceSpec::Microphone(kMicrophoneUid, "Drovane Reed 1",
                                                         {44100, 1, SampleEncoding::Float32, true});
    microphone.transport = tidemix::platform::AudioTransport::Usb;
    microphone.usb = tidemix::platform::UsbIdentity{0x7E11, 0x0B21, microphoneLocation};
    microphone.packetFrames = 512;
    microphone.signal = SimSignal::Sine(1000.0, 0.5);
    SimDeviceSpec music =
        SimDeviceSpec::Microphone("demo-music", "Demo Music", {48000, 2, SampleEncoding::Int16, true});
    music.signal = SimSignal::Sine(440.0, 0.5);
    SimDeviceSpec phones =
        SimDeviceSpec::Speaker("demo-phones", "Demo Headphones", {48000, 2, SampleEncoding::Float32, true});
    world.AddDevice(microphone);
    world.AddDevice(music);
    if (measureCpu)
    {
        SimDeviceSpec aux1 =
            SimDeviceSpec::Microphone("demo-aux-1", "Demo Aux 1", {48000, 1, SampleEncoding::Float32, true});
        aux1.signal = SimSignal::Sine(300.0, 0.2);
        SimDeviceSpec aux2 =
            SimDeviceSpec::Microphone("demo-aux-2", "Demo Aux 2", {44100, 2, SampleEncoding::Int16, true});
        aux2.signal = SimSignal::Sine(2000.0, 0.2);
        world.AddDevice(aux1);
        world.AddDevice(aux2);
    }
    const uint32_t phonesId = world.AddDevice(phones);
    std::optional<tidemix::platform::AudioDeviceInfo> streamInfo;
    for (const uint32_t id : world.PublishVirtualDevices())
    {
        const auto info = world.Device(id);
        streamInfo = info && info->name == "Tidemix Stream" ? info : streamInfo;
    }
    if (!streamInfo)
    {
        fprintf(stderr, "the virtual stream output is missing\n");
        return 1;
    }

    DRMXManager* manager = DRMXManager::GetDRMXManager();
    const DRAVResult init = manager->Init("");
    const auto local = manager->GetMixerForType(kMixerLocal);
    const auto stream = manager->GetMixerForType(kMixerStream);
    if (!init.Succeeded() || !local || !stream)
    {
        fprintf(stderr, "the manager did not start: %s\n", init.toString().c_str());
        return 1;
    }
    manager->UpdateMainMicrophoneCache();

    // The headphones carry the local mix and the stream mix's monitoring
    // output; the monitor selection mutes one of the two.
    LayOutMix(*manager, *local, MakeOutput(*manager, "demo-phones"), 1.0, 0.25, measureCpu);
    LayOutMix(*manager, *stream, MakeOutput(*manager, streamInfo->uid), 0.5, 1.0, measureCpu);
    stream->SetMonitoringOutput(MakeOutput(*manager, "demo-phones"));
    manager->SetMonitorMixerType(kMixerLocal);

    world.StartRecording(phonesId, seconds + 2.0);
    world.StartRecording(streamInfo->id, seconds + 2.0);
    const DRAVResult started = manager->StartMixing();
    printf(
        "two mixes: %s; local: microphone 1.0, music 0.25 -> %s; stream: microphone 0.5, music 1.0 -> %s\n",
        started.Succeeded() ? "mixing" : started.toString().c_str(), "Demo Headphones",
        streamInfo->name.c_str());
    printf("monitor: local mix for the first half, stream mix for the second\n");

    // CPU is counted from one second in, once every thread runs.
    std::this_thread::sleep_for(std::chrono::seconds(measureCpu ? 1 : 0));
    const auto cpuBefore = ThreadCpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                 std::chrono::duration<double>(seconds));
    auto next = start;
    bool switched = false;
    while (started.Succeeded() && std::chrono::steady_clock::now() < end)
    {
        next += std::chrono::milliseconds(500);
        std::this_thread::sleep_until(std::min(next, end));
        const double at = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!switched && at >= seconds / 2.0)
        {
            manager->SetMonitorMixerType(kMixerStream);
            switched = true;
            printf("%6.1f s  monitor: stream mix\n", at);
        }
        if (!measureCpu)
        {
            PrintLevels(at, *manager);
        }
    }
    if (measureCpu)
    {
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        double total = 0.0;
        double mixes = 0.0;
        for (const auto& [tid, thread] : ThreadCpuSeconds())
        {
            const auto before = cpuBefore.find(tid);
            const double used = thread.second - (before == cpuBefore.end() ? 0.0 : before->second.second);
            total += used;
            if (thread.first.rfind("coreaudio.mixer", 0) == 0)
            {
                mixes += used;
                printf("mix audio thread %s (%s): %.2f %% of one core\n", tid.c_str(), thread.first.c_str(),
                       100.0 * used / wall);
            }
        }
        printf(
            "two mixes of four inputs over %.1f s: process %.2f %% of one core, the mixes' audio threads "
            "%.2f %%\n",
            wall, 100.0 * total / wall, 100.0 * mixes / wall);
    }

    // Counts before the stop, while the sinks exist.
    printf("headphones (local mix): %lld underruns, %lld blocks dropped\n", Counts(local->GetOutput(), true),
           Counts(local->GetOutput(), false));
    printf("headphones (stream monitor): %lld underruns, %lld blocks dropped\n",
           Counts(stream->GetMonitoringOutput(), true), Counts(stream->GetMonitoringOutput(), false));
    printf("stream output: %lld underruns, %lld blocks dropped\n", Counts(stream->GetOutput(), true),
           Counts(stream->GetOutput(), false));
    manager->StopMixing();
    world.StopRecording(phonesId);
    world.StopRecording(streamInfo->id);
    int code = started.Succeeded() ? 0 : 1;
    for (const auto& [id, path] : {std::pair{phonesId, localWav}, std::pair{streamInfo->id, streamWav}})
    {
        const auto recording = world.Recording(id);
        const DRAVResult saved = world.SaveRecording(id, path, SampleEncoding::Int16);
        printf("%s: %.2f s at 48000 Hz stereo, 16-bit: %s\n", path.c_str(),
               recording ? static_cast<double>(recording->Frames()) / 48000.0 : 0.0,
               saved.Succeeded() ? "written" : saved.toString().c_str());
        code = saved.Succeeded() ? code : 1;
    }

    local->EraseAllChannels();
    stream->EraseAllChannels();
    manager->Deinit();
    tidemix::platform::Platform::Use(nullptr);
    return code;
}
