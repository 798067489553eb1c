#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tidemix::platform
{

// How an application presents itself; only regular applications and the
// one allowed accessory may become inputs.
enum class ApplicationPolicy : uint8_t
{
    Regular = 0,
    Accessory = 1,
    Background = 2,
};

struct RunningApplication
{
    std::string identifier;  // stable: the same application gets the same one after a restart
    std::string name;        // display name
    ApplicationPolicy policy = ApplicationPolicy::Regular;
};

enum class ApplicationEvent : uint8_t
{
    Launched,
    Terminated,
};

// An installed application, as its desktop entry tells.
struct InstalledApplication
{
    std::string identifier;
    std::string name;
    std::string entryPath;  // the desktop entry
    std::string iconPath;   // empty when no icon file was found
};

// A decoded picture, RGBA 8 bits a sample.
class ApplicationIcon
{
public:
    virtual ~ApplicationIcon() = default;
    virtual int Width() const = 0;
    virtual int Height() const = 0;
    // PNG of the picture; with resize, scaled to exactly width x height
    // unless it has that size already. Empty on failure.
    virtual std::vector<uint8_t> EncodePng(int width, int height, bool resize) const = 0;
};

// The running applications, their start and end, the capture device that
// carries one application's sound, and the installed applications with their
// icons. Listeners run on a backend thread and must only post work elsewhere.
class Applications
{
public:
    using Listener = std::function<void(ApplicationEvent, const RunningApplication&)>;

    virtual ~Applications() = default;

    // In the system's order.
    virtual std::vector<RunningApplication> Running() = 0;
    // The program itself, which is never an input of its own mixes.
    virtual std::string OwnIdentifier() = 0;
    // 0 when the service has no source of events.
    virtual uint64_t AddListener(Listener listener) = 0;
    // After it returns the listener isn't running and won't be called again.
    virtual void RemoveListener(uint64_t token) = 0;

    // Makes a capture device (it shows in the audio device list) that carries
    // the sound of the running application, which then reaches no other
    // device. The device's unique id, or empty with *whyNot.
    virtual std::string CreateCaptureDevice(const std::string& identifier, std::string* whyNot) = 0;
    // The application's sound goes back where it went before.
    virtual void DeleteCaptureDevice(const std::string& deviceUid) = 0;

    virtual std::optional<InstalledApplication> FindInstalled(const std::string& identifier) = 0;
    // The application that opens a URL (by its scheme).
    virtual std::optional<InstalledApplication> ApplicationForUrl(const std::string& url) = 0;
    // Null when the file is missing or is no picture; *whyNot says which.
    virtual std::shared_ptr<ApplicationIcon> LoadIcon(const std::string& path, std::string* whyNot) = 0;
    // Starts an installed application; false if it couldn't be started.
    virtual bool Launch(const std::string& identifier) = 0;
};

// A backend without an applications service: nothing runs, nothing is
// installed, no device can be made.
class EmptyApplications : public Applications
{
public:
    std::vector<RunningApplication> Running() override { return {}; }
    std::string OwnIdentifier() override { return {}; }
    uint64_t AddListener(Listener) override { return 0; }
    void RemoveListener(uint64_t) override {}
    std::string CreateCaptureDevice(const std::string&, std::string* whyNot) override
    {
        if (whyNot != nullptr)
        {
            *whyNot = "this platform has no per-application audio";
        }
        return {};
    }
    void DeleteCaptureDevice(const std::string&) override {}
    std::optional<InstalledApplication> FindInstalled(const std::string&) override { return std::nullopt; }
    std::optional<InstalledApplication> ApplicationForUrl(const std::string&) override
    {
        return std::nullopt;
    }
    std::shared_ptr<ApplicationIcon> LoadIcon(const std::string&, std::string* whyNot) override
    {
        if (whyNot != nullptr)
        {
            *whyNot = "this platform decodes no icons";
        }
        return nullptr;
    }
    bool Launch(const std::string&) override { return false; }
};

}  // namespace tidemix::platform
