#include "engine/devices/DRAVDeviceCoreAudio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <tuple>

#include "engine/DRAVPlatformSpecific.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "settings/DRMXSettingsTypes.h"

namespace
{
using tidemix::platform::AudioTransport;
using tidemix::platform::Platform;
using tidemix::platform::TerminalKind;
using tidemix::platform::UsbIdentity;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;

// Each test gets a fresh simulated world as the current platform.
class DeviceEnumeration : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
    }
    void TearDown() override
    {
        DRAVDeviceCoreAudio::SetUsbNameLookup(nullptr);
        Platform::Use(nullptr);
    }

    uint32_t Add(SimDeviceSpec spec) { return platform_->World().AddDevice(std::move(spec)); }

    static SimDeviceSpec Device(const std::string& uid, const std::string& name, bool input, bool output,
                                AudioTransport transport = AudioTransport::BuiltIn)
    {
        SimDeviceSpec spec;
        spec.uid = uid;
        spec.name = name;
        spec.inputStreams = input ? 1 : 0;
        spec.outputStreams = output ? 1 : 0;
        spec.transport = transport;
        return spec;
    }

    static const DRAVDeviceCapabilitiesAudioCapture& Caps(const DRAVDeviceDescriptor& descriptor)
    {
        auto* caps = dynamic_cast<DRAVDeviceCapabilitiesAudioCapture*>(descriptor.capabilities.get());
        EXPECT_NE(caps, nullptr);
        static const DRAVDeviceCapabilitiesAudioCapture empty;
        return caps != nullptr ? *caps : empty;
    }

    // What a descriptor says of its USB identity: valid, vendor, product, location, terminal.
    static std::tuple<int32_t, uint16_t, uint16_t, uint32_t, int32_t> Usb(
        const DRAVDeviceDescriptor& descriptor)
    {
        const auto& caps = Caps(descriptor);
        return {caps.usbInfoValid, caps.vendorId, caps.productId, caps.location, caps.terminal};
    }

    std::shared_ptr<SimPlatform> platform_;
};

TEST_F(DeviceEnumeration, DuplexDeviceIsListedOncePerDirectionWithOneHardwareId)
{
    const uint32_t mic = Add(Device("mic-uid", "Desk Mic", true, false));
    const uint32_t duplex = Add(Device("headset-uid", "Headset", true, true));
    const uint32_t speaker = Add(Device("spk-uid", "Speakers", false, true));

    const auto captures = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    const auto outputs = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput);
    ASSERT_EQ(captures.size(), 2u);
    ASSERT_EQ(outputs.size(), 2u);
    EXPECT_EQ(captures[0].devicePath, std::to_string(mic));
    EXPECT_EQ(captures[1].devicePath, std::to_string(duplex));
    EXPECT_EQ(outputs[0].devicePath, std::to_string(duplex));
    EXPECT_EQ(outputs[1].devicePath, std::to_string(speaker));
    EXPECT_EQ(std::make_tuple(captures[1].hardwareId, captures[1].deviceType, captures[1].name,
                              captures[1].extraId),
              std::make_tuple(std::string("headset-uid"), kDRAVDeviceTypeAudioCapture, std::string("Headset"),
                              std::string()));
    EXPECT_EQ(std::make_pair(outputs[0].hardwareId, outputs[0].deviceType),
              std::make_pair(std::string("headset-uid"), kDRAVDeviceTypeAudioOutput));
    // Paths turn back into ids as the units read them.
    EXPECT_EQ(static_cast<uint32_t>(std::atol(outputs[1].devicePath.c_str())), speaker);

    EXPECT_TRUE(DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeNone).empty());
    EXPECT_TRUE(DRAVDeviceCoreAudio::EnumDeviceDescriptors(static_cast<DRAVDeviceType>(3)).empty());

    const auto sources = DRAVDeviceCoreAudio::EnumDeviceSources();
    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(sources[0], (DRAVSourceDescriptor{"Desk Mic", std::to_string(mic)}));
    EXPECT_EQ(GetAvailableSourcesPlatformSpecific(), sources);
}

TEST_F(DeviceEnumeration, DuplicateHardwareIdsAreListedOnce)
{
    const uint32_t first = Add(Device("same", "First", true, false));
    Add(Device("same", "Second", true, false));
    Add(Device("other", "Third", true, false));
    const auto captures = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    ASSERT_EQ(captures.size(), 2u);
    EXPECT_EQ(captures[0].devicePath, std::to_string(first));
    EXPECT_EQ(captures[1].name, "Third");
}

TEST_F(DeviceEnumeration, TerminalComesFromKindThenUidThenName)
{
    struct Case
    {
        const char* uid;
        const char* name;
        TerminalKind kind;
        int32_t asOutput;
        int32_t asCapture;
    };
    const Case cases[] = {
        {"a", "A", TerminalKind::Headphone, 2, 2},
        {"b", "B", TerminalKind::Speaker, 1, 1},
        {"c", "C", TerminalKind::Microphone, 3, 3},
        // The kind wins over the words.
        {"d-microphone", "AirPods", TerminalKind::Speaker, 1, 1},
        {"e-MICROPHONE", "E", TerminalKind::Other, 3, 3},
        {"f-Headphone", "F", TerminalKind::Unknown, 2, 2},
        {"g-speaker", "G", TerminalKind::Unknown, 1, 1},
        // The UID is asked before the name.
        {"h-speaker", "AirPods", TerminalKind::Unknown, 1, 1},
        {"i", "Jo's AirPods Pro", TerminalKind::Unknown, 2, 3},
        {"j", "AIRPODS", TerminalKind::Unknown, 2, 3},
        {"k", "Plain", TerminalKind::Unknown, 0, 0},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.uid);
        SimDeviceSpec spec = Device(c.uid, c.name, true, true);
        spec.inputTerminal = c.kind;
        spec.outputTerminal = c.kind;
        const uint32_t id = Add(spec);
        for (DRAVDeviceType type : {kDRAVDeviceTypeAudioOutput, kDRAVDeviceTypeAudioCapture})
        {
            std::shared_ptr<DRAVDeviceCapabilitiesAudioCapture> caps;
            const AudioObjectPropertyScope scope = type == kDRAVDeviceTypeAudioOutput
                                                       ? kAudioObjectPropertyScopeOutput
                                                       : kAudioObjectPropertyScopeInput;
            const auto descriptor =
                DRAVDeviceCoreAudio::OutputDeviceDescriptorForAudioObjectID(id, scope, type, caps);
            ASSERT_FALSE(descriptor.IsEmpty());
            ASSERT_NE(caps, nullptr);
            EXPECT_EQ(caps->terminal, type == kDRAVDeviceTypeAudioOutput ? c.asOutput : c.asCapture);
        }
    }
}

TEST_F(DeviceEnumeration, VirtualDevicesHaveVirtualTypeAndNoDerivedTerminal)
{
    const auto ids = platform_->World().PublishVirtualDevices();
    const auto outputs = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput);
    ASSERT_EQ(outputs.size(), ids.size());
    for (const auto& descriptor : outputs)
    {
        EXPECT_EQ(Caps(descriptor).outputType, DRMX_Settings::kOutputTypeVirtual);
        EXPECT_EQ(Caps(descriptor).terminal, 0);
    }
    // A virtual device named like a speaker still isn't given a terminal.
    SimDeviceSpec spec = Device("virtual-speaker", "Virtual AirPods", false, true, AudioTransport::Virtual);
    Add(spec);
    EXPECT_EQ(Caps(DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput).back()).terminal,
              0);
}

TEST_F(DeviceEnumeration, UsbIdentityFromTheBackendOrByName)
{
    SimDeviceSpec reed = Device("reed-uid", "Reed 1", true, true, AudioTransport::Usb);
    reed.usb = UsbIdentity{0x7E11, 0x0B21, 0x14120000 | 0xABCD};
    const uint32_t reedId = Add(reed);
    SimDeviceSpec other = Device("other-usb", "USB Interface", true, true, AudioTransport::Usb);
    other.usb = UsbIdentity{0x1234, 0x0B21, 0x00010002};
    Add(other);
    // No identity from the backend, and no lookup installed: nothing found.
    Add(Device("unknown-usb", "Mystery USB", true, true, AudioTransport::Usb));

    auto outputs = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput);
    auto captures = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    ASSERT_EQ(outputs.size(), 3u);
    EXPECT_EQ(outputs[0].devicePath, std::to_string(reedId));
    // Location: the low 16 bits only; terminal 4 is a Drovane microphone's output.
    EXPECT_EQ(Usb(outputs[0]), std::make_tuple(1, 0x7E11, 0x0B21, 0xABCDu, 4));
    EXPECT_EQ(Caps(captures[0]).terminal, 3);
    // Another vendor: no terminal from the product id.
    EXPECT_EQ(Usb(outputs[1]), std::make_tuple(1, 0x1234, 0x0B21, 0x0002u, 0));
    EXPECT_EQ(Caps(outputs[2]).usbInfoValid, 0);

    // With a USB registry, a name that matches gives the identity; others keep 0.
    DRAVDeviceCoreAudio::SetUsbNameLookup(
        [](const std::string& name) -> std::optional<DRAVDeviceCoreAudio::UsbRecord>
        {
            return name == "Mystery USB"
                       ? std::optional(DRAVDeviceCoreAudio::UsbRecord{0x7E11, 0x0B25, 0x00120034})
                       : std::nullopt;
        });
    Add(Device("nomatch-usb", "Unmatched USB", true, false, AudioTransport::Usb));
    outputs = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput);
    captures = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    EXPECT_EQ(Usb(outputs[2]), std::make_tuple(1, 0x7E11, 0x0B25, 0x34u, 4));
    ASSERT_EQ(captures.size(), 4u);
    EXPECT_EQ(Caps(captures[3]).usbInfoValid, 0);
}

TEST_F(DeviceEnumeration, DefaultOutputDescriptor)
{
    EXPECT_TRUE(DRAVDeviceCoreAudio::DefaultOutputDeviceDescriptor().IsEmpty());
    Add(Device("mic", "Mic", true, false));
    const uint32_t speakers = Add(Device("spk", "Speakers", false, true));
    const uint32_t headset = Add(Device("hs", "Headset", true, true));
    DRAVDeviceDescriptor descriptor = DRAVDeviceCoreAudio::DefaultOutputDeviceDescriptor();
    EXPECT_EQ(descriptor.devicePath, std::to_string(speakers));
    EXPECT_EQ(descriptor.deviceType, kDRAVDeviceTypeAudioOutput);
    ASSERT_NE(descriptor.capabilities, nullptr);
    platform_->World().SetDefaultOutput(headset);
    descriptor = DRAVDeviceCoreAudio::DefaultOutputDeviceDescriptor();
    EXPECT_EQ(descriptor.hardwareId, "hs");
    // The descriptor equals the enumerated one: this is how the default is recognised.
    const auto outputs = DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput);
    EXPECT_EQ(std::count(outputs.begin(), outputs.end(), descriptor), 1);
}

TEST_F(DeviceEnumeration, MissingDevicesAndDirectionsGiveEmptyDescriptors)
{
    const uint32_t mic = Add(Device("mic", "Mic", true, false));
    std::shared_ptr<DRAVDeviceCapabilitiesAudioCapture> caps;
    EXPECT_TRUE(DRAVDeviceCoreAudio::OutputDeviceDescriptorForAudioObjectID(
                    mic, kAudioObjectPropertyScopeOutput, kDRAVDeviceTypeAudioOutput, caps)
                    .IsEmpty());
    EXPECT_FALSE(DRAVDeviceCoreAudio::OutputDeviceDescriptorForAudioObjectID(
                     mic, kAudioObjectPropertyScopeGlobal, kDRAVDeviceTypeAudioOutput, caps)
                     .IsEmpty());
    EXPECT_TRUE(DRAVDeviceCoreAudio::OutputDeviceDescriptorForAudioObjectID(
                    9999, kAudioObjectPropertyScopeInput, kDRAVDeviceTypeAudioCapture, caps)
                    .IsEmpty());
}

TEST(DRAVDeviceDescriptor, EqualityAndHash)
{
    DRAVDeviceDescriptor a("Speakers", "42", "uid", kDRAVDeviceTypeAudioOutput);
    DRAVDeviceDescriptor b = a;
    b.deviceType = kDRAVDeviceTypeAudioCapture;
    b.extraId = "ignored";
    b.capabilities = std::make_shared<DRAVDeviceCapabilitiesAudioCapture>();
    EXPECT_EQ(a, b);
    b.index = 1;
    EXPECT_NE(a, b);
    b = a;
    b.hardwareId = "other";
    EXPECT_NE(a, b);
    EXPECT_EQ(a.hashString(), std::to_string(a.hash()));
    // Swapping name and path changes the hash: the path counts twice.
    DRAVDeviceDescriptor swapped("42", "Speakers", "uid", kDRAVDeviceTypeAudioOutput);
    EXPECT_NE(a.hash(), swapped.hash());
    EXPECT_TRUE(DRAVDeviceDescriptor().IsEmpty());
}

}  // namespace
