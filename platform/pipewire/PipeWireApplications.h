#pragma once

#include <memory>
#include <string>

#include "platform/Applications.h"

namespace tidemix::platform::pipewire
{

class PipeWireContext;

// The applications of a PipeWire daemon: the clients that play audio (a
// client becomes an application with its first playback stream and stays one
// until it disconnects), known by their "application.id", else their
// program's name, with their "application.name". Their start and end follow
// the registry. An application's capture device is a duplex null sink that
// this client creates, named after the application; the application's
// playback streams are moved onto it (the "target.node" of the "default"
// metadata, which the session manager follows) while it exists, and back to
// the default output before it is destroyed.
//
// Installed applications are the desktop's business: this service knows none.
class PipeWireApplications : public Applications
{
public:
    // Null without a connection (or in a build without PipeWire).
    static std::unique_ptr<PipeWireApplications> Create(std::shared_ptr<PipeWireContext> context);
    ~PipeWireApplications() override;

    std::vector<RunningApplication> Running() override;
    std::string OwnIdentifier() override;
    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t token) override;
    std::string CreateCaptureDevice(const std::string& identifier, std::string* whyNot) override;
    void DeleteCaptureDevice(const std::string& deviceUid) override;
    std::optional<InstalledApplication> FindInstalled(const std::string&) override { return std::nullopt; }
    std::optional<InstalledApplication> ApplicationForUrl(const std::string&) override
    {
        return std::nullopt;
    }
    std::shared_ptr<ApplicationIcon> LoadIcon(const std::string&, std::string* whyNot) override;
    bool Launch(const std::string&) override { return false; }

    struct Impl;

private:
    explicit PipeWireApplications(std::shared_ptr<Impl> impl);
    std::shared_ptr<Impl> impl_;
};

}  // namespace tidemix::platform::pipewire
