#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Platform.h"
#include "platform/pipewire/PipeWireAudioSystem.h"
#include "portable-core/DRAVLog.h"
#include "support/LogCapture.h"

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

TEST(LinuxPlatformAudio, WithoutADaemonAudioIsEmptyAndTheLogSaysWhy)
{
    ScopedEnvironment remote("PIPEWIRE_REMOTE", "tidemix-no-such-daemon");
    test::LogCapture log;
    std::shared_ptr<Platform> platform = Platform::Create("linux");
    ASSERT_TRUE(platform);
    EXPECT_EQ(platform->Name(), "linux");
    EXPECT_TRUE(platform->Audio().Devices().empty());
    EXPECT_FALSE(platform->Audio().DefaultOutput());
    EXPECT_FALSE(platform->Audio().OpenPlayback(0, [](const PlaybackRequest&) {}));
    EXPECT_TRUE(log.Count("linux platform: no audio devices") > 0);
    if (pipewire::PipeWireAudioSystem::Available())
    {
        EXPECT_TRUE(log.Count("tidemix-no-such-daemon") > 0);
    }
}

// A daemon behind the linux platform is PipeWireMixRoad_threads_test's case.
// An application that chooses nothing gets the real services; the simulation
// only ever on request; an unknown name is the real services too, with a warning.
TEST(LinuxPlatformAudio, TheEnvironmentChoosesTheBackendAndNothingMeansLinux)
{
    ScopedEnvironment remote("PIPEWIRE_REMOTE", "tidemix-no-such-daemon");
    struct Case
    {
        const char* chosen;
        const char* expected;
        bool warns;
    };
    for (const Case& c : {Case{nullptr, "linux", false}, Case{"", "linux", false}, Case{"sim", "sim", false},
                          Case{"linux", "linux", false}, Case{"cocoa", "linux", true}})
    {
        SCOPED_TRACE(c.chosen != nullptr ? c.chosen : "(unset)");
        std::optional<std::string> former;
        if (const char* value = getenv("TIDEMIX_PLATFORM"))
        {
            former = value;
        }
        c.chosen != nullptr ? setenv("TIDEMIX_PLATFORM", c.chosen, 1) : unsetenv("TIDEMIX_PLATFORM");
        test::LogCapture log;
        Platform::Use(nullptr);
        std::shared_ptr<Platform> current = Platform::Current();
        ASSERT_TRUE(current);
        EXPECT_EQ(current->Name(), c.expected);
        EXPECT_EQ(Platform::Current(), current) << "made once, then kept";
        EXPECT_EQ(log.Count("Unknown platform") > 0, c.warns);
        Platform::Use(nullptr);
        former ? setenv("TIDEMIX_PLATFORM", former->c_str(), 1) : unsetenv("TIDEMIX_PLATFORM");
    }
}

}  // namespace
}  // namespace tidemix::platform
