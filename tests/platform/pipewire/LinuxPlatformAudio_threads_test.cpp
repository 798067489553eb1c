#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Platform.h"
#include "platform/pipewire/PipeWireAudioSystem.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform
{
namespace
{
// Sets an environment variable for a scope and puts the former value back.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name)
    {
        if (const char* former = getenv(name))
        {
            former_ = former;
        }
        setenv(name, value, 1);
    }
    ~ScopedEnvironment()
    {
        if (former_)
        {
            setenv(name_, former_->c_str(), 1);
        }
        else
        {
            unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::optional<std::string> former_;
};

class LogLines
{
public:
    LogLines()
    {
        former_ = DRAVSetLogHandler(
            [this](eDbgPrintLevel, const std::string& line)
            {
                std::lock_guard lock(mutex_);
                lines_.push_back(line);
            });
    }
    ~LogLines() { DRAVSetLogHandler(former_); }
    bool Contains(const std::string& text)
    {
        std::lock_guard lock(mutex_);
        return std::any_of(lines_.begin(), lines_.end(),
                           [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }

private:
    DRAVLogHandler former_;
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

TEST(LinuxPlatformAudio, WithoutADaemonAudioIsEmptyAndTheLogSaysWhy)
{
    ScopedEnvironment remote("PIPEWIRE_REMOTE", "tidemix-no-such-daemon");
    LogLines log;
    std::shared_ptr<Platform> platform = Platform::Create("linux");
    ASSERT_TRUE(platform);
    EXPECT_EQ(platform->Name(), "linux");
    EXPECT_TRUE(platform->Audio().Devices().empty());
    EXPECT_FALSE(platform->Audio().DefaultOutput());
    EXPECT_FALSE(platform->Audio().OpenPlayback(0, [](const PlaybackRequest&) {}));
    EXPECT_TRUE(log.Contains("linux platform: no audio devices"));
    if (pipewire::PipeWireAudioSystem::Available())
    {
        EXPECT_TRUE(log.Contains("tidemix-no-such-daemon"));
    }
}

TEST(LinuxPlatformAudio, WithADaemonTheDevicesComeFromPipeWire)
{
    std::string whyNot;
    if (!pipewire::PipeWireAudioSystem::Available())
    {
        GTEST_SKIP() << "this build has no PipeWire backend (libpipewire-0.3 was not found)";
    }
    if (!pipewire::PipeWireAudioSystem::Connect(std::string(), &whyNot))
    {
        ASSERT_EQ(getenv("TIDEMIX_PIPEWIRE_PRIVATE"), nullptr)
            << "scripts/with-pipewire.sh started PipeWire, yet: " << whyNot;
        GTEST_SKIP() << "no PipeWire daemon reachable: " << whyNot
                     << "; run the suite under scripts/with-pipewire.sh";
    }
    std::shared_ptr<Platform> platform = Platform::Create("linux");
    ASSERT_TRUE(platform);
    std::vector<AudioDeviceInfo> devices = platform->Audio().Devices();
    EXPECT_TRUE(std::any_of(devices.begin(), devices.end(),
                            [](const AudioDeviceInfo& device) { return device.name == "Tidemix Stream"; }))
        << "\"Tidemix Stream\" is missing: is tidemix-virtual-devices.conf in pipewire.conf.d?";
    EXPECT_TRUE(platform->Audio().DefaultOutput());
}

}  // namespace
}  // namespace tidemix::platform
