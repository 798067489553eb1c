// Feeds arbitrary text to the settings file's reader. A refused text leaves
// an object that can't be saved; an accepted one must save, and what was
// saved must load again to the same file: nothing read is lost on the way.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "portable-core/DRAVLog.h"
#include "settings/DRMXSettings.h"

namespace
{
std::string ReadText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The reader logs every refusal; at fuzzing speed that is only noise.
    static const bool quiet = (DRAVSetLogHandler([](eDbgPrintLevel, const std::string&) {}), true);
    (void)quiet;
    static const std::string path = "/tmp/tidemix-settings-fuzz-" + std::to_string(getpid()) + ".json";
    const std::string text(reinterpret_cast<const char*>(data), size);
    DRMX_Settings::DRMXSettings settings;
    const DRAVResult result = settings.LoadSettingsFromText(text);
    if (!result.Succeeded())
    {
        const bool refusal = result == kDRAVResultErrInvalidFormat ||
                             result == kDRAVResultErrInvalidParameter || result == kDRAVResultErrInvalidState;
        if (!refusal || settings.isLoadedCorrectly())
        {
            abort();
        }
        return 0;
    }
    unlink(path.c_str());
    if (settings.SaveSettings(path) != kDRAVResultOk)
    {
        abort();
    }
    DRMX_Settings::DRMXSettings again;
    if (!again.LoadSettings(path).Succeeded())
    {
        abort();
    }
    // Reading narrows a few values once (gains become 32-bit floats), so the
    // second save must be a fixed point of the first.
    unlink(path.c_str());
    DRMX_Settings::DRMXSettings third;
    if (again.SaveSettings(path) != kDRAVResultOk || !third.LoadSettings(path).Succeeded() ||
        third.SaveSettings(path) != kDRAVResultOk)
    {
        abort();
    }
    const std::string settled = ReadText(path);
    unlink(path.c_str());
    DRMX_Settings::DRMXSettings fourth;
    if (fourth.LoadSettingsFromText(settled) != kDRAVResultOk || fourth.SaveSettings(path) != kDRAVResultOk ||
        ReadText(path) != settled)
    {
        abort();
    }
    unlink(path.c_str());
    return 0;
}
