#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "microphones/DRMXMicrophoneInterface.h"
#include "observers/DRMXDeviceObserverBase.h"

// Keeps the connected microphones as control objects, in run-time and in DFU
// mode, and says so whenever one comes or goes. It is the only way to reach a
// control object. Every plug event rebuilds the whole list on the platform's
// main queue; readers on any thread take a snapshot that a rebuild never
// changes under them, and hold it only while they work.
class DRMXDeviceObserverUSB : public DRMXDeviceObserverBase
{
public:
    using MicrophoneList = std::vector<std::shared_ptr<DRMXMicrophoneInterface>>;

    DRMXDeviceObserverUSB();
    ~DRMXDeviceObserverUSB() override;

    // Arms the plug notifications, which also builds the list; "Ok".
    DRAVResult Init() override;
    // Nothing: the observer lives as long as the process (or its platform).
    DRAVResult Deinit() override;
    bool IsInitialized() override;

    // Listens for plug events of the platform's USB bus and builds the list.
    DRAVResult ArmDeviceNotifications();
    // Replaces the list by control objects for the microphones present now.
    void rebuildDeviceList();

    bool IsAnyMicrophoneConnected() const;
    bool IsAnyAudioMicrophoneConnected() const;
    bool IsAnyDFUMicrophoneConnected() const;
    std::weak_ptr<DRMXMicrophoneInterface> GetFirstDFUMicrophoneInterface() const;
    // The first control object whose serial number is empty or occurs in id.
    std::weak_ptr<DRMXMicrophoneInterface> GetMicrophoneInterfaceWithHardwareID(const std::string& id) const;
    // The list as it stands; a rebuild publishes a new one.
    std::shared_ptr<const MicrophoneList> GetMicrophones() const;
    // How many rebuilds have run, for those who wait for one.
    uint64_t RebuildCount() const;

    // The process-wide observer (null until made).
    static std::shared_ptr<DRMXDeviceObserverUSB> Shared();
    // Makes the process-wide observer unless there is one for the platform in
    // use; true when it made one.
    static bool MakeShared();

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;  // plug events hold it weakly
};
