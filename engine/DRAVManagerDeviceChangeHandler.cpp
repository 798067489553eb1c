#include "engine/DRAVManagerDeviceChangeHandler.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <utility>

#include "engine/DRAVPlatformSpecific.h"
#include "portable-core/DplThreadName.h"

namespace
{
// File players are not devices: they never come and go.
constexpr DRAVSourceType kFilePlayerSourceType = 12;
// A wait sleeps in slices this long, so that it ends soon when told.
constexpr int64_t kWaitSliceUsec = 20000;

std::map<size_t, DRAVSourceDescriptor> KeyedDevices(const std::vector<DRAVSourceDescriptor>& sources)
{
    std::map<size_t, DRAVSourceDescriptor> keyed;
    for (const DRAVSourceDescriptor& source : sources)
    {
        if (source.type != kFilePlayerSourceType)
        {
            keyed.emplace(source.hashString(true), source);
        }
    }
    return keyed;
}
}  // namespace

DRAVManagerDeviceChangeHandler::DRAVManagerDeviceChangeHandler(DRAVSourceRegistryInterface& registry)
    : registry_(registry)
{
    delegate_.SetCallback([this](void*, const std::string& objectId, DRAVPropertyKVPair pair,
                                 KVCProperty* property) { HandleDeviceChange(objectId, pair, property); },
                          nullptr);
}

DRAVManagerDeviceChangeHandler::~DRAVManagerDeviceChangeHandler()
{
    DeInit();
}

DRAVResult DRAVManagerDeviceChangeHandler::Init()
{
    std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>> subjects =
        RegisterDeviceObserverSubjectsPlatformSpecific();
    for (const auto& subject : subjects)
    {
        if (subject)
        {
            subject->AttachObserver(&delegate_, true).LogError("Device change handler");
        }
    }
    CDplScopedLock lock(mutex_);
    for (auto& subject : subjects)
    {
        if (subject)
        {
            subjects_.push_back(std::move(subject));
        }
    }
    initialized_.store(true);
    return DRAVResult(kDRAVResultOk);
}

void DRAVManagerDeviceChangeHandler::DeInit()
{
    {
        CDplScopedLock start(startMutex_);
        waitGeneration_.fetch_add(1);
        if (waitThread_.joinable())
        {
            waitThread_.join();
        }
    }
    std::list<std::shared_ptr<DRAVDeviceObserverSubjectInterface>> subjects;
    {
        CDplScopedLock lock(mutex_);
        initialized_.store(false);
        subjects.swap(subjects_);
    }
    for (const auto& subject : subjects)
    {
        subject->DetachObserver(&delegate_, true);
    }
}

std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>
DRAVManagerDeviceChangeHandler::CopySubjects()
{
    CDplScopedLock lock(mutex_);
    return {subjects_.begin(), subjects_.end()};
}

DRAVResult DRAVManagerDeviceChangeHandler::AttachObserver(KVObserver* observer, bool internal)
{
    DRAVResult result(kDRAVResultOk);
    for (const auto& subject : CopySubjects())
    {
        DRAVResult attached = subject->AttachObserver(observer, internal);
        if (!attached.Succeeded())
        {
            result = attached;
        }
    }
    return result;
}

DRAVResult DRAVManagerDeviceChangeHandler::DetachObserver(KVObserver* observer, bool internal)
{
    DRAVResult result(kDRAVResultOk);
    for (const auto& subject : CopySubjects())
    {
        DRAVResult detached = subject->DetachObserver(observer, internal);
        if (!detached.Succeeded())
        {
            result = detached;
        }
    }
    return result;
}

DRAVResult DRAVManagerDeviceChangeHandler::NotifyChanges(bool internal)
{
    for (const auto& subject : CopySubjects())
    {
        subject->NotifyChanges(internal);
    }
    return DRAVResult(kDRAVResultOk);
}

std::vector<DRAVSourceDescriptor> DRAVManagerDeviceChangeHandler::EnumDevices()
{
    std::vector<DRAVSourceDescriptor> devices;
    for (const auto& subject : CopySubjects())
    {
        if (subject->ProvidesSources())
        {
            std::vector<DRAVSourceDescriptor> more = subject->EnumDevices();
            devices.insert(devices.end(), more.begin(), more.end());
        }
    }
    return devices;
}

DRAVResult DRAVManagerDeviceChangeHandler::HandleDeviceChange(const std::string&, const DRAVPropertyKVPair&,
                                                              KVCProperty*)
{
    const auto known = KeyedDevices(registry_.GetAvailableSources(0, 0, false));
    const auto fresh = KeyedDevices(registry_.GetAvailableSources(0, 0, true));
    const bool removed = std::any_of(known.begin(), known.end(),
                                     [&](const auto& entry) { return fresh.count(entry.first) == 0; });
    const bool added = std::any_of(fresh.begin(), fresh.end(),
                                   [&](const auto& entry) { return known.count(entry.first) == 0; });
    if (!removed && !added)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    for (const DRAVSourceDescriptor& active : registry_.GetActiveSources(true, nullptr))
    {
        if (active.type == kFilePlayerSourceType || fresh.count(active.hashString(true)) != 0)
        {
            continue;
        }
        if (std::shared_ptr<DRAVUnit> unit = registry_.GetUnit(active.objectId))
        {
            DRAVLogPrintf(kDbgPrintLevelInfo, "Device of source <%s> is gone", active.toString().c_str());
            unit->Deinit();
        }
    }
    NotifyChanges(false);
    return DRAVResult(kDRAVResultOk);
}

void DRAVManagerDeviceChangeHandler::WaitForReappearanceAsync(const DRAVSourceDescriptor& source,
                                                              DRAVDuration duration)
{
    CDplScopedLock start(startMutex_);
    const uint64_t generation = waitGeneration_.fetch_add(1) + 1;
    if (waitThread_.joinable())
    {
        waitThread_.join();
    }
    {
        CDplScopedLock lock(waitMutex_);
        waitedSource_ = source;
        timeLimit_ = duration;
    }
    waiting_.store(true);
    waitThread_ = std::thread([this, generation] { WaitForReappearance(generation); });
}

void DRAVManagerDeviceChangeHandler::WaitForReappearance(uint64_t generation)
{
    DplSetCurrentThreadName("DRAV source wait");
    DRAVSourceDescriptor wanted;
    DRAVDuration limit;
    {
        CDplScopedLock lock(waitMutex_);
        wanted = waitedSource_;
        limit = timeLimit_;
    }
    const auto cancelled = [&] { return waitGeneration_.load() != generation; };
    // Sleeps `usec` in slices; false when the wait was ended meanwhile.
    const auto sleepFor = [&](int64_t usec)
    {
        for (int64_t slept = 0; slept < usec && !cancelled(); slept += kWaitSliceUsec)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(std::min(kWaitSliceUsec, usec - slept)));
        }
        return !cancelled();
    };

    const DRAVTimestamp deadline = DRAVGetHostTime() + limit;
    bool found = false;
    while (!found && DRAVGetHostTime() < deadline && sleepFor(int64_t{pollIntervalMsec_} * 1000))
    {
        const std::string comparable = wanted.ComparableDevicePath();
        for (const DRAVSourceDescriptor& entry : registry_.GetAvailableSources(wanted.type, 0, true))
        {
            if (entry.ComparableDevicePath() != comparable)
            {
                continue;
            }
            std::shared_ptr<DRAVUnit> unit = registry_.GetUnit(wanted.objectId);
            if (!unit)
            {
                break;
            }
            if (entry.devicePath != wanted.devicePath)
            {
                unit->SetStringProperty(kPropertyCaptureDevicePath, entry.devicePath, false);
            }
            if (!sleepFor(kReappearanceSettleUsec))
            {
                break;
            }
            if (unit->Init().Succeeded())
            {
                if (std::shared_ptr<DRAVUnit> preview = registry_.GetPreviewPipeline())
                {
                    unit->SetUnitState(preview->GetUnitState());
                }
                found = true;
            }
            break;
        }
    }
    if (!found && !cancelled())
    {
        NotifyChanges(false);
    }
    // A following wait starts only after this thread has ended.
    {
        CDplScopedLock lock(waitMutex_);
        waitedSource_ = DRAVSourceDescriptor();
    }
    waiting_.store(false);
}
