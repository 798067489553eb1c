// The demo host: a small program that drives libTidemixApi as an application
// would. It runs on the simulated platform unless told otherwise.

#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "FirmwareUpdateDemo.h"
#include "MixToWavDemo.h"
#include "SessionDemo.h"
#include "TwoMixesDemo.h"
#include "control/DRMXManager.h"
#include "platform/Platform.h"
#include "portable-core/DRAVLog.h"

namespace
{
struct Options
{
    double durationSeconds = 2.0;
    std::string platform = "sim";
    std::string configDir;
    std::string mixToWav;
    bool twoMixes = false;
    bool measureCpu = false;
    std::string localWav;
    std::string streamWav;
    std::string firmwareUpdate;
    bool session = false;
};

void PrintHelp(const char* program)
{
    printf(
        "Usage: %s [options]\n"
        "\n"
        "Drives libTidemixApi as an application would: initialises the manager,\n"
        "starts mixing, lets it run, stops and shuts down, printing each step.\n"
        "\n"
        "Options:\n"
        "  --duration SECONDS   how long to mix once mixing has started (default 2)\n"
        "  --platform NAME      sim (the simulated world, default) or linux (PipeWire, USB, logind)\n"
        "  --config-dir DIR     where the settings file lives (default: a fresh folder under /tmp,\n"
        "                       so the demo never touches your own settings)\n"
        "  --mix-to-wav FILE    instead: play a simulated microphone and a simulated music channel\n"
        "                       through one mixer unit to a simulated output for --duration seconds,\n"
        "                       print the bus and output levels, and write the output to FILE (WAV)\n"
        "  --two-mixes          instead: run the local and the stream mix through the manager on the\n"
        "                       simulated platform (a 1000 Hz microphone and a 440 Hz music channel\n"
        "                       in both), switch the monitor from the local to the stream mix at half\n"
        "                       time, print the meters twice a second; needs both of:\n"
        "  --local-wav FILE     with --two-mixes: what the headphones played (16-bit WAV)\n"
        "  --stream-wav FILE    with --two-mixes: what the stream output received (16-bit WAV)\n"
        "  --measure-cpu        with --two-mixes: four inputs in each mix, and the CPU share of the\n"
        "                       process and of the mixes' audio threads printed instead of the meters\n"
        "  --firmware-update FILE  instead: plug a simulated microphone of the model FILE's DFU suffix\n"
        "                       names (a Reed 1 for any product), run the mixes, update its firmware\n"
        "                       from FILE through the manager, printing state and percentage as\n"
        "                       they are polled and the version before and after; exits 0 only\n"
        "                       when the update ends in state 5 with FILE's version on the device\n"
        "  --session            instead: the whole life of an application session on the simulated\n"
        "                       platform: Init with --config-dir DIR as the application data folder,\n"
        "                       a layout from the available devices (or the one DIR/Settings.json\n"
        "                       keeps), the music channel unplugged at a third of --duration and\n"
        "                       brought back at two thirds, a simulated music player that starts,\n"
        "                       joins the stream mix by a layout change and quits, a sleep and\n"
        "                       wake, and Deinit writing\n"
        "                       DIR/Settings.json; every step and notification is printed\n"
        "  --help               this text\n",
        program);
}

bool ParseOptions(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h")
        {
            PrintHelp(argv[0]);
            exit(0);
        }
        else if (arg == "--duration" && hasValue)
        {
            char* end = nullptr;
            options.durationSeconds = strtod(argv[++i], &end);
            if (end == nullptr || *end != '\0' || !(options.durationSeconds >= 0.0) ||
                options.durationSeconds > 24 * 3600.0)
            {
                fprintf(stderr, "--duration wants a number of seconds, 0 to 86400\n");
                return false;
            }
        }
        else if (arg == "--platform" && hasValue)
        {
            options.platform = argv[++i];
            if (options.platform != "sim" && options.platform != "linux")
            {
                fprintf(stderr, "--platform is sim or linux\n");
                return false;
            }
        }
        else if (arg == "--mix-to-wav" && hasValue)
        {
            options.mixToWav = argv[++i];
        }
        else if (arg == "--two-mixes")
        {
            options.twoMixes = true;
        }
        else if (arg == "--measure-cpu")
        {
            options.measureCpu = true;
        }
        else if (arg == "--local-wav" && hasValue)
        {
            options.localWav = argv[++i];
        }
        else if (arg == "--stream-wav" && hasValue)
        {
            options.streamWav = argv[++i];
        }
        else if (arg == "--firmware-update" && hasValue)
        {
            options.firmwareUpdate = argv[++i];
        }
        else if (arg == "--session")
        {
            options.session = true;
        }
        else if (arg == "--config-dir" && hasValue)
        {
            options.configDir = argv[++i];
        }
        else
        {
            fprintf(stderr, "unknown option %s (try --help)\n", arg.c_str());
            return false;
        }
    }
    if (options.twoMixes && (options.localWav.empty() || options.streamWav.empty()))
    {
        fprintf(stderr, "--two-mixes wants --local-wav FILE and --stream-wav FILE\n");
        return false;
    }
    if (options.session && options.configDir.empty())
    {
        fprintf(stderr, "--session wants --config-dir DIR\n");
        return false;
    }
    return true;
}

const char* Verdict(const DRAVResult& result)
{
    return result.Succeeded() ? "ok" : "failed";
}
}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!ParseOptions(argc, argv, options))
    {
        return 2;
    }

    // Without --config-dir the demo works in a scratch folder and removes it at the end.
    const bool scratchFolder = options.configDir.empty();
    if (scratchFolder)
    {
        options.configDir = "/tmp/tidemix-demo-" + std::to_string(getpid());
    }
    std::filesystem::create_directories(options.configDir);
    setenv("XDG_CONFIG_HOME", options.configDir.c_str(), 1);

    // Every diagnostic line of the library appears in the demo's output.
    DRAVSetLogHandler(
        [](eDbgPrintLevel level, const std::string& line)
        {
            const char* tag = level == kDbgPrintLevelError     ? "error"
                              : level == kDbgPrintLevelWarning ? "warning"
                                                               : "info";
            printf("    [library %s] %s\n", tag, line.c_str());
        });

    if (!options.mixToWav.empty() || options.twoMixes || !options.firmwareUpdate.empty() || options.session)
    {
        const int code = options.session ? RunSession(options.durationSeconds, options.configDir)
                         : !options.firmwareUpdate.empty() ? RunFirmwareUpdate(options.firmwareUpdate)
                         : options.twoMixes                ? RunTwoMixes(options.localWav, options.streamWav,
                                                                         options.durationSeconds, options.measureCpu)
                                            : RunMixToWav(options.mixToWav, options.durationSeconds);
        DRAVSetLogHandler(nullptr);
        std::error_code error;
        if (scratchFolder)
        {
            std::filesystem::remove_all(options.configDir, error);
        }
        return code;
    }

    auto platform = tidemix::platform::Platform::Create(options.platform);
    tidemix::platform::Platform::Use(platform);
    printf("platform: %s\n", platform->Name().c_str());
    printf("settings folder: %s\n", options.configDir.c_str());

    DRMXManager* manager = DRMXManager::GetDRMXManager();
    printf("Init ...\n");
    const DRAVResult init = manager->Init("");
    printf("Init: %s (%s)\n", Verdict(init), init.GetMessage().c_str());
    printf("settings file: %s%s\n", manager->GetSettingsPath().c_str(),
           manager->GetNoSettingsFileAvailable() ? " (none yet)" : "");

    for (const auto type : {DRMX_Settings::kMixerLocal, DRMX_Settings::kMixerStream})
    {
        const auto mixer = manager->GetMixerForType(type);
        printf("mix %s: %s, %zu inputs, %s\n", type == DRMX_Settings::kMixerLocal ? "local" : "stream",
               mixer ? mixer->GetFriendlyName().c_str() : "(none)", mixer ? mixer->GetInputs().size() : 0,
               mixer && mixer->GetOutput() ? "an output" : "no output");
    }

    printf("StartMixing ...\n");
    const DRAVResult started = manager->StartMixing();
    printf("StartMixing: %s (%s), mixing=%s\n", Verdict(started), started.GetMessage().c_str(),
           manager->IsMixing() ? "yes" : "no");

    if (manager->IsMixing())
    {
        printf("mixing for %.1f s ...\n", options.durationSeconds);
        std::this_thread::sleep_for(std::chrono::duration<double>(options.durationSeconds));
    }

    printf("StopMixing ...\n");
    manager->StopMixing();
    printf("StopMixing: mixing=%s\n", manager->IsMixing() ? "yes" : "no");

    printf("Deinit ...\n");
    manager->Deinit();
    std::error_code error;
    const bool saved = std::filesystem::exists(manager->GetSettingsPath(), error);
    printf("Deinit: done; settings file %s\n", saved ? "written" : "not written (nothing valid to keep yet)");

    DRAVSetLogHandler(nullptr);
    tidemix::platform::Platform::Use(nullptr);
    if (scratchFolder)
    {
        std::filesystem::remove_all(options.configDir, error);
    }
    return 0;
}
