#pragma once

#include <memory>

#include "platform/Applications.h"

namespace tidemix::platform::linuxos
{

// The applications of a Linux desktop: the running ones and their capture
// devices from the audio service (PipeWire), the installed ones, their icons
// and their launch from the desktop entries.
class LinuxApplications : public Applications
{
public:
    // Without a running-applications service none run and no device is made;
    // installed applications are still found.
    explicit LinuxApplications(std::unique_ptr<Applications> running);
    ~LinuxApplications() override;

    std::vector<RunningApplication> Running() override { return running_->Running(); }
    std::string OwnIdentifier() override { return running_->OwnIdentifier(); }
    uint64_t AddListener(Listener listener) override { return running_->AddListener(std::move(listener)); }
    void RemoveListener(uint64_t token) override { running_->RemoveListener(token); }
    std::string CreateCaptureDevice(const std::string& identifier, std::string* whyNot) override
    {
        return running_->CreateCaptureDevice(identifier, whyNot);
    }
    void DeleteCaptureDevice(const std::string& deviceUid) override
    {
        running_->DeleteCaptureDevice(deviceUid);
    }
    std::optional<InstalledApplication> FindInstalled(const std::string& identifier) override;
    std::optional<InstalledApplication> ApplicationForUrl(const std::string& url) override;
    std::shared_ptr<ApplicationIcon> LoadIcon(const std::string& path, std::string* whyNot) override;
    bool Launch(const std::string& identifier) override;

private:
    std::unique_ptr<Applications> running_;
};

}  // namespace tidemix::platform::linuxos
