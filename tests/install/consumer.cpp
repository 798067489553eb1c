// A program outside the tree, built against the installed package: the calls
// an application makes first. With "sim" it chooses the simulated platform;
// with nothing it must come up on the real one.
#include <cstdio>
#include <cstring>
#include <string>

#include "control/DRMXManager.h"
#include "platform/Platform.h"

int main(int argc, char** argv)
{
    using tidemix::platform::Platform;
    const std::string chosen = argc > 1 ? argv[1] : "";
    if (!chosen.empty())
    {
        Platform::Use(Platform::Create(chosen));
    }
    const std::string expected = chosen.empty() ? "linux" : chosen;

    DRMXManager* manager = DRMXManager::GetDRMXManager();
    DRAVResult init = manager->Init("");
    if (!init.Succeeded())
    {
        fprintf(stderr, "Init failed: %s\n", init.toString().c_str());
        return 1;
    }
    const std::string platform = Platform::Current()->Name();
    // Nothing is laid out, so there is nothing to mix.
    DRAVResult start = manager->StartMixing();
    manager->Deinit();
    printf("platform %s, StartMixing: %s\n", platform.c_str(), start.GetResultCodeString().c_str());
    if (platform != expected)
    {
        fprintf(stderr, "expected the platform \"%s\"\n", expected.c_str());
        return 1;
    }
    if (start.Succeeded() || start.GetResultCodeString() != "ErrInvalidState")
    {
        fprintf(stderr, "StartMixing on empty mixes must give ErrInvalidState\n");
        return 1;
    }
    return 0;
}
