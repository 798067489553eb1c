#include "observers/DRMXDeviceObserverCoreAudio.h"

#include <algorithm>
#include <mutex>

#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "microphones/DRMXMicrophoneAccess.h"
#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "microphones/DRMXNotificationCenter.h"
#include "microphones/IOKitUsb.h"
#include "observers/DRMXDeviceObserverUSB.h"
#include "platform/Platform.h"

using namespace DRMX_Settings;

const std::string DRMXDeviceObserverCoreAudio::CoreAudioInputsAddedNotification =
    "CoreAudioInputsAddedNotification";
const std::string DRMXDeviceObserverCoreAudio::CoreAudioInputsRemovedNotification =
    "CoreAudioInputsRemovedNotification";
const std::string DRMXDeviceObserverCoreAudio::CoreAudioOutputsAddedNotification =
    "CoreAudioOutputsAddedNotification";
const std::string DRMXDeviceObserverCoreAudio::CoreAudioOutputsRemovedNotification =
    "CoreAudioOutputsRemovedNotification";
const std::string DRMXDeviceObserverCoreAudio::CoreAudioInputsKey = "inputs";
const std::string DRMXDeviceObserverCoreAudio::CoreAudioOutputsKey = "outputs";

namespace
{
std::atomic<bool> gCallbackGate{true};

// Two kinds of user choose the main microphone: the comparison on the main
// queue and GetAvailableInputs on any thread. One lock over a whole
// enumeration keeps the choice (read, compare, claim) in one piece.
std::mutex gEnumerationMutex;
DRMXDeviceObserverCoreAudio::MainMicrophoneDeviceID gMainMicrophoneDeviceID;

constexpr uint16_t kReedProRuntimeId = 0x0B25;

bool IsRuntimeMicrophone(uint16_t vendorId, uint16_t productId)
{
    return vendorId == kDrovaneVendorId &&
           (productId == 0x0B21 || productId == 0x0B23 || productId == 0x0B25);
}

int64_t FirmwareVersionOf(uint16_t vendorId, uint16_t productId, const std::string& hardwareId)
{
    int64_t version = 0;
    IOKit::EnumerateDevices(vendorId,
                            [&](const IOKit::Device& device)
                            {
                                if (device.productId == productId)
                                {
                                    version = device.release;
                                    return true;  // the first one of its kind
                                }
                                return false;
                            });
    // A Reed whose block has grown to 16 bytes runs 1.1.0, whatever its
    // release number says. A Reed Pro keeps its release number.
    if (productId != kReedProRuntimeId)
    {
        const std::shared_ptr<DRMXDeviceObserverUSB> usb = DRMXDeviceObserverUSB::Shared();
        const std::shared_ptr<DRMXMicrophoneInterface> control =
            usb ? usb->GetMicrophoneInterfaceWithHardwareID(hardwareId).lock() : nullptr;
        if (auto* reed = dynamic_cast<DRMXMicrophoneHelper<DRMXMicrophoneReed>*>(control.get()))
        {
            std::lock_guard access(DRMXMicrophoneAccessMutex());
            int bytes = 0;
            if (reed->ReadMicrophoneConfiguration(bytes).Succeeded() && bytes == 16)
            {
                version = 0x110;
            }
        }
    }
    return version;
}

// The first microphone an enumeration meets after a reset is the main one,
// and stays so while it is remembered.
DRMXInputType ClaimMainMicrophone(const DRAVDeviceCapabilitiesAudioCapture& caps,
                                  const std::string& hardwareId)
{
    const DRMXDeviceObserverCoreAudio::MainMicrophoneDeviceID self{caps.usbInfoValid, caps.vendorId,
                                                                   caps.productId, caps.location, hardwareId};
    const auto& main = gMainMicrophoneDeviceID;
    if (main.vendorId != 0 && main.productId != 0 && !(main == self))
    {
        return kInputTypeFurtherMicrophone;
    }
    gMainMicrophoneDeviceID = self;
    return kInputTypeMainMicrophone;
}

template <typename Selector>
std::vector<Selector> Missing(const std::vector<Selector>& from, const std::vector<Selector>& in)
{
    std::vector<Selector> missing;
    std::copy_if(from.begin(), from.end(), std::back_inserter(missing),
                 [&](const Selector& s) { return std::find(in.begin(), in.end(), s) == in.end(); });
    return missing;
}

template <typename Selector>
void PostIfAny(const std::string& name, const std::string& key, std::vector<Selector>& selectors)
{
    if (!selectors.empty())
    {
        // The address is good for the post only: observers copy what they keep.
        DRMXNotificationCenter::defaultNotificationCenter()->postNotification(name, {{key, &selectors}});
    }
}
}  // namespace

struct DRMXDeviceObserverCoreAudio::Impl
{
    explicit Impl(DRMXDeviceObserverCoreAudio* owner) : owner(owner) {}

    // Runs on the main queue, holding ownerMutex: the owner can't go away
    // while a comparison tells its observers.
    void Compare()
    {
        std::lock_guard ownerLock(ownerMutex);
        if (owner == nullptr)
        {
            return;
        }
        std::vector<DRMXInputSelector> newInputs = EnumInputs();
        std::vector<DRMXOutputSelector> newOutputs = EnumOutputs();
        std::vector<DRMXInputSelector> oldInputs;
        std::vector<DRMXOutputSelector> oldOutputs;
        {
            std::lock_guard lock(listLock);
            oldInputs = inputs;
            oldOutputs = outputs;
        }
        std::vector<DRMXInputSelector> addedInputs = Missing(newInputs, oldInputs);
        PostIfAny(CoreAudioInputsAddedNotification, CoreAudioInputsKey, addedInputs);
        std::vector<DRMXInputSelector> removedInputs = Missing(oldInputs, newInputs);
        PostIfAny(CoreAudioInputsRemovedNotification, CoreAudioInputsKey, removedInputs);
        std::vector<DRMXOutputSelector> addedOutputs = Missing(newOutputs, oldOutputs);
        PostIfAny(CoreAudioOutputsAddedNotification, CoreAudioOutputsKey, addedOutputs);
        std::vector<DRMXOutputSelector> removedOutputs = Missing(oldOutputs, newOutputs);
        PostIfAny(CoreAudioOutputsRemovedNotification, CoreAudioOutputsKey, removedOutputs);
        if (newInputs.size() != oldInputs.size() || newOutputs.size() != oldOutputs.size())
        {
            owner->NotifyChanges();
        }
        std::lock_guard lock(listLock);
        inputs = std::move(newInputs);
        outputs = std::move(newOutputs);
    }

    std::mutex ownerMutex;
    DRMXDeviceObserverCoreAudio* owner;
    mutable std::mutex listLock;
    std::vector<DRMXInputSelector> inputs;
    std::vector<DRMXOutputSelector> outputs;
    std::atomic<bool> initialized{false};
    // The platform whose listeners are installed, and their tokens.
    std::shared_ptr<tidemix::platform::Platform> platform;
    tidemix::platform::ListenerToken defaultOutputListener = 0;
    tidemix::platform::ListenerToken deviceListListener = 0;
};

namespace
{
void PostComparison(const std::weak_ptr<DRMXDeviceObserverCoreAudio::Impl>& weak)
{
    auto platform = tidemix::platform::Platform::Current();
    if (!platform)
    {
        return;
    }
    platform->MainQueue()->dispatch(
        [weak]
        {
            if (auto impl = weak.lock())
            {
                impl->Compare();
            }
        });
}
}  // namespace

DRMXDeviceObserverCoreAudio::DRMXDeviceObserverCoreAudio()
    : DRMXDeviceObserverBase("Device Observer Core Audio"), impl_(std::make_shared<Impl>(this))
{
}

DRMXDeviceObserverCoreAudio::~DRMXDeviceObserverCoreAudio()
{
    Deinit();
    std::lock_guard ownerLock(impl_->ownerMutex);
    impl_->owner = nullptr;
}

DRAVResult DRMXDeviceObserverCoreAudio::Init()
{
    if (impl_->initialized.load())
    {
        return DRAVResult(kDRAVResultOk);
    }
    {
        std::vector<DRMXInputSelector> inputs = EnumInputs();
        std::vector<DRMXOutputSelector> outputs = EnumOutputs();
        std::lock_guard lock(impl_->listLock);
        impl_->inputs = std::move(inputs);
        impl_->outputs = std::move(outputs);
    }
    impl_->platform = tidemix::platform::Platform::Current();
    if (!impl_->platform)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::weak_ptr<Impl> weak = impl_;
    // Any thread: the listener looks at the gate and posts, nothing more.
    auto listener = [weak]
    {
        if (gCallbackGate.load())
        {
            PostComparison(weak);
        }
    };
    auto& audio = impl_->platform->Audio();
    impl_->defaultOutputListener = audio.AddDefaultOutputListener(listener);
    if (impl_->defaultOutputListener == 0)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    impl_->deviceListListener = audio.AddDeviceListListener(listener);
    if (impl_->deviceListListener == 0)
    {
        audio.RemoveListener(impl_->defaultOutputListener);
        impl_->defaultOutputListener = 0;
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    impl_->initialized.store(true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverCoreAudio::Deinit()
{
    if (impl_->initialized.exchange(false) && impl_->platform)
    {
        impl_->platform->Audio().RemoveListener(impl_->defaultOutputListener);
        impl_->platform->Audio().RemoveListener(impl_->deviceListListener);
        impl_->defaultOutputListener = 0;
        impl_->deviceListListener = 0;
    }
    return DRAVResult(kDRAVResultOk);
}

bool DRMXDeviceObserverCoreAudio::IsInitialized()
{
    return impl_->initialized.load();
}

void DRMXDeviceObserverCoreAudio::HandleDeviceObserverCallback(bool)
{
    PostComparison(impl_);
}

std::vector<DRMXInputSelector> DRMXDeviceObserverCoreAudio::GetInputs() const
{
    std::lock_guard lock(impl_->listLock);
    return impl_->inputs;
}

std::vector<DRMXOutputSelector> DRMXDeviceObserverCoreAudio::GetOutputs() const
{
    std::lock_guard lock(impl_->listLock);
    return impl_->outputs;
}

void DRMXDeviceObserverCoreAudio::EnableDeviceObserverCallback()
{
    gCallbackGate.store(true);
}

void DRMXDeviceObserverCoreAudio::DisableDeviceObserverCallback()
{
    gCallbackGate.store(false);
}

bool DRMXDeviceObserverCoreAudio::IsDeviceObserverCallbackEnabled()
{
    return gCallbackGate.load();
}

void DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID()
{
    std::lock_guard lock(gEnumerationMutex);
    gMainMicrophoneDeviceID = MainMicrophoneDeviceID();
}

DRMXDeviceObserverCoreAudio::MainMicrophoneDeviceID DRMXDeviceObserverCoreAudio::GetMainMicrophoneID()
{
    std::lock_guard lock(gEnumerationMutex);
    return gMainMicrophoneDeviceID;
}

std::vector<DRMXInputSelector> DRMXDeviceObserverCoreAudio::EnumInputs()
{
    std::vector<DRMXInputSelector> inputs;
    const std::vector<DRAVDeviceDescriptor> devices =
        DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    std::lock_guard lock(gEnumerationMutex);
    for (const DRAVDeviceDescriptor& device : devices)
    {
        DRMXInputSelector selector;
        selector.SetName(device.name);
        selector.SetDevicePath(device.devicePath);
        selector.SetHardwareId(device.hardwareId);
        const auto* caps = dynamic_cast<const DRAVDeviceCapabilitiesAudioCapture*>(device.capabilities.get());
        if (caps != nullptr)
        {
            selector.SetVendorId(caps->vendorId);
            selector.SetProductId(caps->productId);
            if (IsRuntimeMicrophone(caps->vendorId, caps->productId))
            {
                selector.SetFWVersion(FirmwareVersionOf(caps->vendorId, caps->productId, device.hardwareId));
                selector.SetType(ClaimMainMicrophone(*caps, device.hardwareId));
            }
            else if (caps->outputType == kOutputTypeHardware)
            {
                selector.SetType(kInputTypeHardware);
            }
            else if (caps->outputType == kOutputTypeVirtual)
            {
                selector.SetType(kInputTypeVirtual);
            }
        }
        inputs.push_back(std::move(selector));
    }
    return inputs;
}

std::vector<DRMXOutputSelector> DRMXDeviceObserverCoreAudio::EnumOutputs()
{
    const DRAVDeviceDescriptor defaultOutput = DRAVDeviceCoreAudio::DefaultOutputDeviceDescriptor();
    std::vector<DRMXOutputSelector> outputs;
    for (const DRAVDeviceDescriptor& device :
         DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput))
    {
        DRMXOutputSelector selector;
        selector.SetName(device.name);
        selector.SetDevicePath(device.devicePath);
        selector.SetHardwareId(device.hardwareId);
        selector.isDefaultOutput = device == defaultOutput;
        if (device.capabilities)
        {
            const auto* caps =
                dynamic_cast<const DRAVDeviceCapabilitiesAudioCapture*>(device.capabilities.get());
            if (caps != nullptr)
            {
                selector.SetVendorId(caps->vendorId);
                selector.SetProductId(caps->productId);
                if (caps->outputType == kOutputTypeHardware || caps->outputType == kOutputTypeVirtual)
                {
                    selector.SetType(static_cast<DRMXOutputType>(caps->outputType));
                }
                switch (caps->terminal)
                {
                    case kDRAVDeviceTerminalDrovaneMicrophoneOutput:
                        selector.SetTerminalType(kTerminalMicrophoneOutput);
                        break;
                    case kDRAVDeviceTerminalHeadphone:
                        selector.SetTerminalType(kTerminalHeadphone);
                        break;
                    case kDRAVDeviceTerminalSpeaker:
                        selector.SetTerminalType(kTerminalSpeaker);
                        break;
                    default:
                        break;
                }
            }
        }
        outputs.push_back(std::move(selector));
    }
    return outputs;
}
