#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "control/DRMXManager.h"
#include "microphones/DRMXNotificationCenter.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/KVObserverDelegate.h"

namespace tidemix::test
{

// A microphone as the machine sees it: a USB device for its control and an
// audio device at the same location whose hardware id carries the serial.
struct SimMicrophone
{
    uint32_t location = 0;
    uint32_t audioId = 0;
};
SimMicrophone PlugSimMicrophone(platform::sim::SimPlatform& platform, uint16_t productId,
                                const std::string& serial, uint32_t location = 0);
void UnplugSimMicrophone(platform::sim::SimPlatform& platform, const SimMicrophone& microphone);

// The simulated "tone" input in both mixes, the local mix to "phones" and the
// stream mix to "stream" (speakers the caller has added), the nodes made;
// false (with the failure reported) if a step failed.
bool LayOutToneMixes(DRMXManager& manager);
// Stops mixing and empties both mixes, for the end of a test.
void EmptyMixes(DRMXManager& manager);

// Waits until every plug and device event so far has been heard and the work
// the observers posted for it has run on the main queue.
void SettleObservers(platform::sim::SimPlatform& platform);

// Records, in order, the four device notifications (with the hardware ids
// they carried) and the values an observed property took.
class ObserverRecorder
{
public:
    ObserverRecorder();
    ~ObserverRecorder();
    ObserverRecorder(const ObserverRecorder&) = delete;
    ObserverRecorder& operator=(const ObserverRecorder&) = delete;

    KVObserver* Property() { return &delegate_; }
    std::vector<std::string> Events() const;
    void Clear();

private:
    void Add(std::string event);

    mutable std::mutex mutex_;
    std::vector<std::string> events_;
    KVObserverDelegate delegate_;
    std::vector<std::pair<std::string, DRMXNotificationCenter::ObserverHandle>> handles_;
};

}  // namespace tidemix::test
