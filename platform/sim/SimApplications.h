#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Applications.h"
#include "platform/sim/SimSignal.h"
#include "portable-core/DplDispatchQueue.h"

namespace tidemix::platform::sim
{

class SimAudioWorld;

// One simulated application: who it is and what it plays.
struct SimApplicationSpec
{
    std::string identifier;
    std::string name;
    ApplicationPolicy policy = ApplicationPolicy::Regular;
    // Played to the default output while the application runs and has no
    // capture device; to its capture device alone while it has one.
    SimSignal signal;
};

// Applications that start and quit on demand, each playing its signal into
// the simulated world, and the capture devices made for them: a duplex
// virtual device named after the application whose input hears what the
// application plays. Launch and terminate events reach the listeners on the
// service's own thread ("sim.apps"), in order.
class SimApplications : public Applications
{
public:
    explicit SimApplications(SimAudioWorld& world);
    ~SimApplications() override;
    SimApplications(const SimApplications&) = delete;
    SimApplications& operator=(const SimApplications&) = delete;

    // False when an application with that identifier runs already, or the
    // identifier is empty.
    bool Start(SimApplicationSpec spec);
    // False when no such application runs. Its capture device stays until it
    // is deleted.
    bool Quit(const std::string& identifier);
    // The program itself ("tidemix-host" unless set).
    void SetOwnIdentifier(std::string identifier);
    // An installed application (found by FindInstalled, started by Launch),
    // and the application that opens URLs of a scheme.
    void Install(InstalledApplication application);
    void SetUrlHandler(const std::string& scheme, const std::string& identifier);
    // The identifiers Launch was asked for, in order.
    std::vector<std::string> LaunchRequests() const;
    // Where a running application's sound goes: its capture device's id, 0
    // for the default output; null when it doesn't run.
    std::optional<uint32_t> SoundDevice(const std::string& identifier) const;
    // The number of capture devices made so far.
    int CaptureDevicesCreated() const;
    // Waits until every event posted so far has reached the listeners.
    void FlushNotifications();

    // Applications
    std::vector<RunningApplication> Running() override;
    std::string OwnIdentifier() override;
    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t token) override;
    std::string CreateCaptureDevice(const std::string& identifier, std::string* whyNot) override;
    void DeleteCaptureDevice(const std::string& deviceUid) override;
    std::optional<InstalledApplication> FindInstalled(const std::string& identifier) override;
    std::optional<InstalledApplication> ApplicationForUrl(const std::string& url) override;
    std::shared_ptr<ApplicationIcon> LoadIcon(const std::string& path, std::string* whyNot) override;
    bool Launch(const std::string& identifier) override;

    struct Voice;

private:
    struct App
    {
        SimApplicationSpec spec;
        uint32_t captureDevice = 0;  // 0: none
        std::unique_ptr<Voice> voice;
    };

    // Plays the application's signal on the device (0: the default output).
    std::unique_ptr<Voice> OpenVoice(const SimSignal& signal, uint32_t deviceId);
    void Post(ApplicationEvent event, RunningApplication application);

    SimAudioWorld& world_;
    mutable std::mutex lock_;
    std::vector<App> running_;                       // in start order
    std::map<std::string, uint32_t> orphanDevices_;  // uid -> device of a quit application
    std::map<std::string, InstalledApplication> installed_;
    std::map<std::string, std::string> urlHandlers_;
    std::vector<std::string> launchRequests_;
    std::string ownIdentifier_ = "tidemix-host";
    int devicesCreated_ = 0;

    // Held while listeners run, so RemoveListener waits for a running call;
    // recursive so a listener may remove itself.
    std::recursive_mutex listenerLock_;
    std::map<uint64_t, Listener> listeners_;
    uint64_t nextListener_ = 1;
    std::unique_ptr<DplDispatchQueue> events_;
};

}  // namespace tidemix::platform::sim
