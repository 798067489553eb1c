#include "platform/pipewire/PipeWireDeviceMapping.h"

#include <gtest/gtest.h>

namespace tidemix::platform::pipewire
{
namespace
{
using Mapping = PipeWireDeviceMapping;

PropertyMap UsbHeadsetNode()
{
    return {{"media.class", "Audio/Sink"},
            {"node.name", "alsa_output.usb-Maker_Reed-00.analog-stereo"},
            {"node.description", "Reed Analog Stereo"},
            {"device.id", "41"}};
}

PropertyMap UsbHeadsetDevice()
{
    return {{"device.bus", "usb"},
            {"device.vendor.id", "0x7e11"},
            {"device.product.id", "0x0a21"},
            {"device.form-factor", "headset"},
            {"device.bus-path", "pci-0000:00:14.0-usb-0:2.1:1.0"},
            {"device.sysfs.path", "/devices/pci0000:00/0000:00:14.0/usb3/3-2/3-2.1/3-2.1:1.0/sound/card2"}};
}

TEST(PipeWireDeviceMapping, DirectionsFollowTheMediaClass)
{
    struct Case
    {
        const char* mediaClass;
        uint32_t inputs;
        uint32_t outputs;
    };
    for (const Case& c : {Case{"Audio/Sink", 0, 1}, Case{"Audio/Source", 1, 0},
                          Case{"Audio/Source/Virtual", 1, 0}, Case{"Audio/Duplex", 1, 1}})
    {
        std::optional<AudioDeviceInfo> info =
            Mapping::DeviceFromNode(7, {{"media.class", c.mediaClass}, {"node.name", "n"}}, {});
        ASSERT_TRUE(info) << c.mediaClass;
        EXPECT_EQ(info->inputStreams, c.inputs) << c.mediaClass;
        EXPECT_EQ(info->outputStreams, c.outputs) << c.mediaClass;
        EXPECT_EQ(info->id, 7u);
    }
    // Streams, video and nameless nodes are no devices.
    EXPECT_FALSE(
        Mapping::DeviceFromNode(1, {{"media.class", "Stream/Output/Audio"}, {"node.name", "n"}}, {}));
    EXPECT_FALSE(Mapping::DeviceFromNode(1, {{"media.class", "Video/Source"}, {"node.name", "n"}}, {}));
    EXPECT_FALSE(Mapping::DeviceFromNode(1, {{"media.class", "Audio/Sink"}}, {}));
}

TEST(PipeWireDeviceMapping, UsbHeadsetTakesIdentityFromItsDevice)
{
    std::optional<AudioDeviceInfo> info = Mapping::DeviceFromNode(50, UsbHeadsetNode(), UsbHeadsetDevice());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->uid, "alsa_output.usb-Maker_Reed-00.analog-stereo");
    EXPECT_EQ(info->name, "Reed Analog Stereo");
    EXPECT_EQ(info->transport, AudioTransport::Usb);
    EXPECT_EQ(info->outputTerminal, TerminalKind::Headphone);
    ASSERT_TRUE(info->usb);
    EXPECT_EQ(info->usb->vendorId, 0x7E11);
    EXPECT_EQ(info->usb->productId, 0x0A21);
    // Bus 3, ports 2 then 1.
    EXPECT_EQ(info->usb->locationId, 0x03210000u);
}

TEST(PipeWireDeviceMapping, NodeValuesWinOverTheDevicesAndDescriptionFallsBack)
{
    PropertyMap node = UsbHeadsetNode();
    node["device.form-factor"] = "speaker";
    node.erase("node.description");
    node["node.nick"] = "Reed";
    std::optional<AudioDeviceInfo> info = Mapping::DeviceFromNode(50, node, UsbHeadsetDevice());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->outputTerminal, TerminalKind::Speaker);
    EXPECT_EQ(info->name, "Reed");

    node.erase("node.nick");
    info = Mapping::DeviceFromNode(50, node, UsbHeadsetDevice());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->name, node["node.name"]);
}

TEST(PipeWireDeviceMapping, UsbWithoutIdsHasNoIdentity)
{
    PropertyMap device = UsbHeadsetDevice();
    device["device.product.id"] = "not-hex";
    std::optional<AudioDeviceInfo> info = Mapping::DeviceFromNode(50, UsbHeadsetNode(), device);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->transport, AudioTransport::Usb);
    EXPECT_FALSE(info->usb);
}

TEST(PipeWireDeviceMapping, TransportOfVirtualBuiltInBluetoothAndOther)
{
    EXPECT_EQ(Mapping::Transport({{"factory.name", "support.null-audio-sink"}}, {{"device.bus", "usb"}}),
              AudioTransport::Virtual);
    EXPECT_EQ(Mapping::Transport({{"node.virtual", "true"}}, {}), AudioTransport::Virtual);
    EXPECT_EQ(Mapping::Transport({{"media.class", "Audio/Source/Virtual"}}, {}), AudioTransport::Virtual);
    EXPECT_EQ(Mapping::Transport({}, {{"device.bus", "pci"}}), AudioTransport::BuiltIn);
    EXPECT_EQ(Mapping::Transport({}, {{"device.form-factor", "internal"}}), AudioTransport::BuiltIn);
    EXPECT_EQ(Mapping::Transport({}, {{"device.api", "bluez5"}}), AudioTransport::Bluetooth);
    EXPECT_EQ(Mapping::Transport({}, {{"device.bus", "firewire"}}), AudioTransport::Other);
    EXPECT_EQ(Mapping::Transport({}, {}), AudioTransport::Other);
}

TEST(PipeWireDeviceMapping, TerminalFromFormFactorThenIconName)
{
    EXPECT_EQ(Mapping::Terminal({}, {{"device.form-factor", "headphone"}}, false), TerminalKind::Headphone);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.form-factor", "headset"}}, true), TerminalKind::Microphone);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.form-factor", "webcam"}}, true), TerminalKind::Microphone);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.form-factor", "internal"}}, false), TerminalKind::Speaker);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.icon-name", "audio-headphones-usb"}}, false),
              TerminalKind::Headphone);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.icon-name", "audio-speakers"}}, false), TerminalKind::Speaker);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.icon-name", "audio-input-microphone"}}, true),
              TerminalKind::Microphone);
    EXPECT_EQ(Mapping::Terminal({}, {{"device.icon-name", "audio-card"}}, false), TerminalKind::Unknown);
    EXPECT_EQ(Mapping::Terminal({}, {}, true), TerminalKind::Unknown);
}

TEST(PipeWireDeviceMapping, UsbLocationFromSysfsOrBusPath)
{
    EXPECT_EQ(Mapping::UsbLocationId("/devices/pci0000:00/0000:00:14.0/usb1/1-4/1-4:1.0/sound/card1", ""),
              0x01400000u);
    EXPECT_EQ(Mapping::UsbLocationId("/devices/x/usb2/2-1/2-1.3/2-1.3.2/2-1.3.2:1.1", ""), 0x02132000u);
    // Without sysfs the bus isn't known.
    EXPECT_EQ(Mapping::UsbLocationId("", "pci-0000:00:14.0-usb-0:3.2:1.0"), 0x00320000u);
    EXPECT_EQ(Mapping::UsbLocationId("/devices/platform/sound", "pci-0000:00:1f.3"), 0u);
    EXPECT_EQ(Mapping::UsbLocationId("", ""), 0u);
}

TEST(PipeWireDeviceMapping, UsbIdsAreHexWithOrWithoutPrefix)
{
    EXPECT_EQ(Mapping::ParseUsbId("0x7e11"), 0x7E11);
    EXPECT_EQ(Mapping::ParseUsbId("7E11"), 0x7E11);
    EXPECT_EQ(Mapping::ParseUsbId("0x1"), 0x1);
    EXPECT_FALSE(Mapping::ParseUsbId(""));
    EXPECT_FALSE(Mapping::ParseUsbId("0x"));
    EXPECT_FALSE(Mapping::ParseUsbId("0x12345"));
    EXPECT_FALSE(Mapping::ParseUsbId("12g4"));
}

TEST(PipeWireDeviceMapping, DefaultNodeNameFromMetadataValue)
{
#if !TIDEMIX_HAVE_PIPEWIRE
    GTEST_SKIP() << "this build has no PipeWire backend, which alone reads default-node metadata";
#endif
    EXPECT_EQ(Mapping::DefaultNodeName("{\"name\":\"alsa_output.pci\"}"), "alsa_output.pci");
    EXPECT_EQ(Mapping::DefaultNodeName(" { \"priority\": 5 , \"name\" : \"a\\\"b\" } "), "a\"b");
    EXPECT_FALSE(Mapping::DefaultNodeName("{\"name\":\"\"}"));
    EXPECT_FALSE(Mapping::DefaultNodeName("{\"other\":\"x\"}"));
    EXPECT_FALSE(Mapping::DefaultNodeName("\"name\""));
    EXPECT_FALSE(Mapping::DefaultNodeName("{\"name\":\"unterminated"));
    EXPECT_FALSE(Mapping::DefaultNodeName("{\"name\":\"cut\\\""));
    EXPECT_EQ(Mapping::DefaultNodeName("{\"props\":{\"name\":\"inner\"},\"name\":\"outer\"}"), "outer");
    EXPECT_FALSE(Mapping::DefaultNodeName(""));
}

}  // namespace
}  // namespace tidemix::platform::pipewire
