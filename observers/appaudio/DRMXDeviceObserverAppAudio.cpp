#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <mutex>

#include "microphones/DRMXNotificationCenter.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "platform/Platform.h"
#include "portable-core/DRAVLog.h"
#include "settings/DRMXApplicationBundle.h"
#include "settings/DRMXDefaultAppAudioInputs.h"

using namespace DRMX_Settings;
using tidemix::platform::ApplicationEvent;
using tidemix::platform::ApplicationPolicy;
using tidemix::platform::InstalledApplication;
using tidemix::platform::RunningApplication;

const std::string DRMXDeviceObserverAppAudio::OtherAppLaunchedNotification = "OtherAppLaunchedNotification";
const std::string DRMXDeviceObserverAppAudio::OtherAppTerminatedNotification =
    "OtherAppTerminatedNotification";
const std::string DRMXDeviceObserverAppAudio::AppBundleIDKey = "AppBundleID";
const std::string DRMXDeviceObserverAppAudio::NotifyObserversNotification = "NotifyObserversNotification";
const std::string DRMXDeviceObserverAppAudio::kWhitelistedAccessoryAppBundleID = "org.drovane.TidemixControl";

namespace
{
using AppList = std::vector<std::shared_ptr<DRMXAppAudio>>;

// kGetAudioInfos. Never destroyed: an input may let go of its application
// at the process's exit.
AppList& AudioInfos()
{
    static auto* const sList = new AppList();
    return *sList;
}

tidemix::platform::Applications* Apps()
{
    const auto platform = tidemix::platform::Platform::Current();
    return platform ? &platform->Apps() : nullptr;
}

bool IsInputPolicy(ApplicationPolicy policy)
{
    return policy == ApplicationPolicy::Regular || policy == ApplicationPolicy::Accessory;
}

// Under AudioInfoLock.
std::shared_ptr<DRMXAppAudio> FindLocked(const std::string& identifier)
{
    const AppList& list = AudioInfos();
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const auto& app) { return app->GetIdentifier() == identifier; });
    return found == list.end() ? nullptr : *found;
}

std::shared_ptr<DRMXAppAudio> Find(const std::string& identifier)
{
    CDplScopedLock lock(DRMXDeviceObserverAppAudio::AudioInfoLock());
    return FindLocked(identifier);
}

// An identifier that isn't given is the installed application's own.
bool CreateAppAudioForApp(std::string identifier, const std::optional<InstalledApplication>& installed,
                          AppList& list)
{
    if (!installed)
    {
        return false;
    }
    if (identifier.empty())
    {
        identifier = installed->identifier;
    }
    if (identifier.empty() || installed->name.empty())
    {
        return false;
    }
    auto app = std::make_shared<DRMXAppAudio>(identifier, installed->name);
    {
        CDplScopedLock lock(DRMXDeviceObserverAppAudio::AudioInfoLock());
        AudioInfos().push_back(app);
    }
    list.push_back(std::move(app));
    return true;
}

std::vector<DRMXInputSelector> SelectorsFrom(const std::vector<DRAVDeviceDescriptor>& descriptors)
{
    std::vector<DRMXInputSelector> selectors;
    for (const DRAVDeviceDescriptor& descriptor : descriptors)
    {
        DRMXInputSelector selector;
        selector.SetName(descriptor.name);
        selector.SetDevicePath(descriptor.devicePath);
        selector.SetHardwareId(descriptor.hardwareId);
        if (const auto* caps =
                dynamic_cast<const DRAVDeviceCapabilitiesAudioCapture*>(descriptor.capabilities.get()))
        {
            selector.SetVendorId(caps->vendorId);
            selector.SetProductId(caps->productId);
            selector.SetType(kInputTypeAppAudio);
        }
        selectors.push_back(std::move(selector));
    }
    return selectors;
}

bool ReadResource(std::vector<DRMXDefaultAppAudioInputs::Entry>& entries)
{
    const std::string path = DRMXApplicationBundle::PathForBundleResource("DefaultAppAudioInputs", "json");
    if (path.empty())
    {
        DRAVLogLine(kDbgPrintLevelError, "Need the file DefaultAppAudioInputs.json in main bundle");
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.good() && !file.eof())
    {
        DRAVLogLine(kDbgPrintLevelError, "Could not load data from file DefaultAppAudioInputs.json");
        return false;
    }
    if (text.empty())
    {
        DRAVLogLine(kDbgPrintLevelError, "Could not load data from file DefaultAppAudioInputs.json");
        return false;
    }
    const DRAVResult parsed = DRMXDefaultAppAudioInputs::Parse(text, entries);
    if (!parsed.Succeeded())
    {
        DRAVLogPrintf(kDbgPrintLevelError, "Could not deserial JSON from file DefaultAppAudioInputs.json: %s",
                      parsed.GetMessage().c_str());
        return false;
    }
    return true;
}

void PostWithBundleId(const std::string& name, std::string bundleId)
{
    // The address is good for the post only: observers copy what they keep.
    DRMXNotificationCenter::defaultNotificationCenter()->postNotification(
        name, {{DRMXDeviceObserverAppAudio::AppBundleIDKey, &bundleId}});
}
}  // namespace

struct DRMXDeviceObserverAppAudio::Impl
{
    explicit Impl(DRMXDeviceObserverAppAudio* owner) : owner(owner) {}

    void SetLastChanged(const std::string& identifier)
    {
        std::lock_guard lock(idLock);
        lastChangedBundleId = identifier;
    }

    // appLaunched, on the main queue.
    void AppLaunched(const RunningApplication& application)
    {
        std::lock_guard ownerLock(ownerMutex);
        if (owner == nullptr || application.identifier.empty() ||
            (platform && application.identifier == platform->Apps().OwnIdentifier()))
        {
            return;
        }
        DRAVLogPrintf(kDbgPrintLevelInfo, "launched: %s", application.identifier.c_str());
        SetLastChanged(application.identifier);
        owner->NotifyChanges();
        PostWithBundleId(OtherAppLaunchedNotification, application.identifier);
    }

    // appTerminated, on the main queue. The list's lock is let go before the
    // observers hear of it: they take the property's lock and, through the
    // manager, the mixer lock, under which inputs take the list's lock.
    void AppTerminated(const RunningApplication& application)
    {
        std::lock_guard ownerLock(ownerMutex);
        if (owner == nullptr || application.identifier.empty())
        {
            return;
        }
        DRAVLogPrintf(kDbgPrintLevelInfo, "terminated: %s", application.identifier.c_str());
        {
            // An application with a device stays until its inputs let it go.
            CDplScopedLock lock(AudioInfoLock());
            std::erase_if(
                AudioInfos(), [&](const auto& app)
                { return app->GetIdentifier() == application.identifier && app->GetDeviceUID().empty(); });
        }
        SetLastChanged(application.identifier);
        owner->NotifyChanges();
        PostWithBundleId(OtherAppTerminatedNotification, application.identifier);
    }

    void NotifyOwner()
    {
        std::lock_guard ownerLock(ownerMutex);
        if (owner != nullptr)
        {
            owner->NotifyChanges();
        }
    }

    std::mutex ownerMutex;
    DRMXDeviceObserverAppAudio* owner;
    std::atomic<bool> initialized{false};
    mutable std::mutex idLock;
    std::string lastChangedBundleId;
    std::shared_ptr<tidemix::platform::Platform> platform;
    uint64_t listener = 0;
    DRMXNotificationCenter::ObserverHandle notifyObservers;
};

DRMXDeviceObserverAppAudio::DRMXDeviceObserverAppAudio()
    : DRMXDeviceObserverBase("Device Observer App Audio"), impl_(std::make_shared<Impl>(this))
{
}

DRMXDeviceObserverAppAudio::~DRMXDeviceObserverAppAudio()
{
    Deinit();
    std::lock_guard ownerLock(impl_->ownerMutex);
    impl_->owner = nullptr;
}

CDplThreadMutex& DRMXDeviceObserverAppAudio::AudioInfoLock()
{
    static auto* const sLock = new CDplThreadMutex();
    return *sLock;
}

DRAVResult DRMXDeviceObserverAppAudio::Init()
{
    if (impl_->initialized.load())
    {
        return DRAVResult(kDRAVResultOk);
    }
    impl_->platform = tidemix::platform::Platform::Current();
    if (!impl_->platform)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::weak_ptr<Impl> weak = impl_;
    std::weak_ptr<DplDispatchQueue> mainQueue = impl_->platform->MainQueue();
    // On a backend thread: only the post to the main queue happens here.
    impl_->listener = impl_->platform->Apps().AddListener(
        [weak, mainQueue](ApplicationEvent event, const RunningApplication& application)
        {
            if (auto queue = mainQueue.lock())
            {
                queue->dispatch(
                    [weak, event, application]
                    {
                        if (auto impl = weak.lock())
                        {
                            if (event == ApplicationEvent::Launched)
                            {
                                impl->AppLaunched(application);
                            }
                            else
                            {
                                impl->AppTerminated(application);
                            }
                        }
                    });
            }
        });
    impl_->notifyObservers =
        DRMXNotificationCenter::defaultNotificationCenter()->addObserver(NotifyObserversNotification,
                                                                         [weak](DRMXNotificationParameters)
                                                                         {
                                                                             if (auto impl = weak.lock())
                                                                             {
                                                                                 impl->NotifyOwner();
                                                                             }
                                                                         });
    // Whether an application's input is available is whether it is installed.
    DRMXInputSelector::SetAppAudioAvailabilityCheck([](const DRMXInputSelector& selector)
                                                    { return UpdateIsInstalledFlag(selector); });
    impl_->initialized.store(true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverAppAudio::Deinit()
{
    if (impl_->initialized.exchange(false))
    {
        if (impl_->platform && impl_->listener != 0)
        {
            impl_->platform->Apps().RemoveListener(impl_->listener);
        }
        impl_->listener = 0;
        DRMXNotificationCenter::defaultNotificationCenter()->removeObserver(NotifyObserversNotification,
                                                                            impl_->notifyObservers);
        impl_->notifyObservers = {};
    }
    return DRAVResult(kDRAVResultOk);
}

bool DRMXDeviceObserverAppAudio::IsInitialized()
{
    return impl_->initialized.load();
}

std::string DRMXDeviceObserverAppAudio::GetLastChangedBundleId() const
{
    std::lock_guard lock(impl_->idLock);
    return impl_->lastChangedBundleId;
}

std::vector<std::shared_ptr<DRMXAppAudio>> DRMXDeviceObserverAppAudio::GetAudioInfos()
{
    auto* apps = Apps();
    CDplScopedLock lock(AudioInfoLock());
    AppList& list = AudioInfos();
    if (apps != nullptr)
    {
        const std::string own = apps->OwnIdentifier();
        for (const RunningApplication& application : apps->Running())
        {
            if (application.identifier.empty() || application.name.empty() ||
                !IsInputPolicy(application.policy) || application.identifier == own ||
                (application.policy == ApplicationPolicy::Accessory &&
                 application.identifier != kWhitelistedAccessoryAppBundleID) ||
                FindLocked(application.identifier))
            {
                continue;
            }
            list.push_back(std::make_shared<DRMXAppAudio>(application.identifier, application.name));
        }
    }
    return list;
}

bool DRMXDeviceObserverAppAudio::AppIsRunning(const std::string& bundleId)
{
    auto* apps = Apps();
    if (apps == nullptr || bundleId.empty() || bundleId == apps->OwnIdentifier())
    {
        return false;
    }
    const auto running = apps->Running();
    return std::any_of(running.begin(), running.end(),
                       [&](const RunningApplication& application)
                       { return application.identifier == bundleId && IsInputPolicy(application.policy); });
}

DRAVDeviceDescriptor DRMXDeviceObserverAppAudio::DeviceDescriptorForAppAudio(const DRMXAppAudio& appAudio,
                                                                             DRAVDeviceType type,
                                                                             int32_t& index)
{
    DRAVDeviceDescriptor descriptor(appAudio.GetName(), std::string(), appAudio.GetIdentifier(), type);
    descriptor.index = index++;
    auto caps = std::make_shared<DRAVDeviceCapabilitiesAudioCapture>();
    caps->outputType = kOutputTypeVirtual;
    caps->terminal = kDRAVDeviceTerminalApplicationAudio;
    descriptor.capabilities = std::move(caps);
    return descriptor;
}

std::vector<DRAVDeviceDescriptor> DRMXDeviceObserverAppAudio::EnumDeviceDescriptors(
    const DRAVDeviceType& type)
{
    std::vector<DRAVDeviceDescriptor> descriptors;
    if (type != kDRAVDeviceTypeAudioCapture && type != kDRAVDeviceTypeAudioOutput)
    {
        return descriptors;
    }
    int32_t index = 0;
    for (const auto& app : GetAudioInfos())
    {
        const bool known = std::any_of(descriptors.begin(), descriptors.end(),
                                       [&](const auto& d) { return d.hardwareId == app->GetIdentifier(); });
        if (!known)
        {
            descriptors.push_back(DeviceDescriptorForAppAudio(*app, type, index));
        }
    }
    return descriptors;
}

std::vector<DRMXInputSelector> DRMXDeviceObserverAppAudio::EnumInputs()
{
    return SelectorsFrom(EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture));
}

std::vector<DRMXInputSelector> DRMXDeviceObserverAppAudio::GetDefaultAppAudioInputs()
{
    std::vector<DRMXDefaultAppAudioInputs::Entry> entries;
    auto* apps = Apps();
    if (apps == nullptr || !ReadResource(entries))
    {
        return {};
    }
    AppList found;
    for (const auto& entry : entries)
    {
        if (!entry.urlToOpenDefaultApp.empty() &&
            CreateAppAudioForApp(std::string(), apps->ApplicationForUrl(entry.urlToOpenDefaultApp), found))
        {
            continue;
        }
        for (const std::string& bundleId : entry.bundleIDs)
        {
            if (CreateAppAudioForApp(bundleId, apps->FindInstalled(bundleId), found))
            {
                break;
            }
        }
    }
    std::vector<DRAVDeviceDescriptor> descriptors;
    int32_t index = 0;
    for (const auto& app : found)
    {
        descriptors.push_back(DeviceDescriptorForAppAudio(*app, kDRAVDeviceTypeAudioCapture, index));
    }
    return SelectorsFrom(descriptors);
}

bool DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(const DRMXInputSelector& selector, std::string& path)
{
    if (selector.GetType() != kInputTypeAppAudio)
    {
        return false;
    }
    const std::string& bundleId = selector.GetHardwareId();
    if (!AppIsRunning(bundleId))
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "application audio: \"%s\" doesn't run; no capture device",
                      bundleId.c_str());
        return false;
    }
    std::shared_ptr<DRMXAppAudio> app = Find(bundleId);
    if (!app)
    {
        app = std::make_shared<DRMXAppAudio>(bundleId, selector.GetName());
        // The device that appears now is the application's own: the audio
        // observer must not take it for one the user plugged in.
        DRMXDeviceObserverCoreAudio::DisableDeviceObserverCallback();
        const bool made = app->Activate();
        DRMXDeviceObserverCoreAudio::EnableDeviceObserverCallback();
        if (!made)
        {
            return false;
        }
        CDplScopedLock lock(AudioInfoLock());
        AudioInfos().push_back(app);
    }
    else if (!app->Activate())
    {
        return false;
    }
    path = std::to_string(app->GetDeviceHardwareId());
    return true;
}

void DRMXDeviceObserverAppAudio::DeactivateAppAudioDevice(const DRMXInputSelector& selector)
{
    if (selector.GetType() != kInputTypeAppAudio)
    {
        return;
    }
    const std::shared_ptr<DRMXAppAudio> app = Find(selector.GetHardwareId());
    if (!app)
    {
        return;
    }
    app->Deactivate();
    if (AppIsRunning(selector.GetHardwareId()))
    {
        return;
    }
    {
        CDplScopedLock lock(AudioInfoLock());
        std::erase(AudioInfos(), app);
    }
    // Observers hear of the application that is gone now, though nothing
    // started or stopped just now.
    if (const auto platform = tidemix::platform::Platform::Current())
    {
        platform->MainQueue()->dispatch(
            [] {
                DRMXNotificationCenter::defaultNotificationCenter()->postNotification(
                    NotifyObserversNotification, {});
            });
    }
}

bool DRMXDeviceObserverAppAudio::ImageExistsForInputSelector(const DRMXInputSelector& selector)
{
    const auto app = Find(selector.GetHardwareId());
    return app && app->ImageExists();
}

int DRMXDeviceObserverAppAudio::CopyImageData(const DRMXInputSelector& selector, void** out, int width,
                                              int height, bool resize)
{
    const auto app = Find(selector.GetHardwareId());
    return app ? app->CopyImageData(out, width, height, resize) : 0;
}

int DRMXDeviceObserverAppAudio::CopyImageDataFromBundleID(const std::string& bundleId, void** out, int width,
                                                          int height, bool resize)
{
    return DRMXAppAudio::CopyImageDataFromImage(DRMXAppAudio::ImageForBundleID(bundleId), out, width, height,
                                                resize);
}

bool DRMXDeviceObserverAppAudio::IsInstalled(const DRMXInputSelector& selector)
{
    const auto app = Find(selector.GetHardwareId());
    return app && app->IsInstalled();
}

bool DRMXDeviceObserverAppAudio::UpdateIsInstalledFlag(const DRMXInputSelector& selector)
{
    if (const auto app = Find(selector.GetHardwareId()))
    {
        app->UpdateIsInstalledFlag();
        return app->IsInstalled();
    }
    return DRMXAppAudio::AppWithIdentifierIsInstalled(selector.GetHardwareId());
}

void DRMXDeviceObserverAppAudio::UpdateIsInstalledFlagForAllAppAudioInputSelectors()
{
    AppList list;
    {
        CDplScopedLock lock(AudioInfoLock());
        list = AudioInfos();
    }
    for (const auto& app : list)
    {
        app->UpdateIsInstalledFlag();
    }
}

bool DRMXDeviceObserverAppAudio::OpenApp(const DRMXInputSelector& selector)
{
    if (selector.GetHardwareId().empty())
    {
        return false;
    }
    if (auto* apps = Apps(); apps == nullptr || !apps->Launch(selector.GetHardwareId()))
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "application audio: \"%s\" could not be launched",
                      selector.GetHardwareId().c_str());
    }
    return true;
}
