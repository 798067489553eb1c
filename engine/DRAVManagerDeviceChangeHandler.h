#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/DRAVSourceRegistryInterface.h"
#include "engine/units/DRAVDeviceObserverSubjectInterface.h"
#include "engine/units/DRAVSourceDescriptor.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"
#include "portable-core/KVObserverDelegate.h"

// The engine manager's link to the platform's device observer subjects: it
// hears of device changes first (as an internal observer), deinitialises the
// sources whose devices went away, and then lets the subjects tell everyone
// else. It can also wait on a thread of its own for a lost source to come
// back.
class DRAVManagerDeviceChangeHandler
{
public:
    static constexpr int32_t kPollIntervalMsec = 500;
    // Time a returning device is given before its source is made again.
    static constexpr int64_t kReappearanceSettleUsec = 500000;

    // The registry outlives the handler (the manager owns both).
    explicit DRAVManagerDeviceChangeHandler(DRAVSourceRegistryInterface& registry);
    ~DRAVManagerDeviceChangeHandler();
    DRAVManagerDeviceChangeHandler(const DRAVManagerDeviceChangeHandler&) = delete;
    DRAVManagerDeviceChangeHandler& operator=(const DRAVManagerDeviceChangeHandler&) = delete;

    // Takes the platform's subjects and listens to each of them.
    DRAVResult Init();
    // Stops listening, lets the subjects go and ends a wait for a source.
    void DeInit();
    bool IsInitialized() const { return initialized_.load(); }

    DRAVResult AttachObserver(KVObserver* observer, bool internal);
    DRAVResult DetachObserver(KVObserver* observer, bool internal);
    DRAVResult NotifyChanges(bool internal);
    // The sources of every subject that offers some.
    std::vector<DRAVSourceDescriptor> EnumDevices();

    // Compares the known sources with a fresh enumeration; the registered
    // sources whose devices are gone are deinitialised and the subjects tell
    // their other observers. OkNoDataChanged when nothing changed.
    DRAVResult HandleDeviceChange(const std::string& objectId, const DRAVPropertyKVPair& pair,
                                  KVCProperty* property);

    // Waits up to `duration` on a thread of its own for the device of
    // `source` (a descriptor of a registered source) to come back, and then
    // initialises its unit again. Without a preview pipeline to follow, the
    // unit stays paused. When the device doesn't come back, the subjects tell
    // their observers. A later call ends the former wait and replaces it.
    void WaitForReappearanceAsync(const DRAVSourceDescriptor& source, DRAVDuration duration);
    // True while a wait runs.
    bool IsWaiting() const { return waiting_.load(); }

private:
    std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>> CopySubjects();
    void WaitForReappearance(uint64_t generation);

    DRAVSourceRegistryInterface& registry_;
    int32_t pollIntervalMsec_ = kPollIntervalMsec;
    CDplThreadMutex mutex_;
    std::atomic<bool> initialized_{false};
    std::list<std::shared_ptr<DRAVDeviceObserverSubjectInterface>> subjects_;
    KVObserverDelegate delegate_;

    // The wait for a source: one at a time, ended by DeInit or a new wait,
    // which join its thread under startMutex_.
    CDplThreadMutex startMutex_;
    std::thread waitThread_;
    CDplThreadMutex waitMutex_;
    DRAVSourceDescriptor waitedSource_;
    DRAVDuration timeLimit_{0};
    std::atomic<uint64_t> waitGeneration_{0};
    std::atomic<bool> waiting_{false};
};
