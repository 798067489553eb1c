// Mixer nodes, inputs and outputs as control objects, with no device started:
// their meters, node ids, selectors and buffer sizes.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>

#include "control/DRMXInput.h"
#include "control/DRMXMixerNode.h"
#include "control/DRMXOutput.h"
#include "portable-core/DRAVPropertyNames.h"

namespace
{
using namespace DRMX_Settings;

// Nodes and outputs read a power in decibels on one scale. Each case starts
// from both channels at -40 dB (0.2), so a value that isn't stored shows.
TEST(DRMXMixObjects, MetersOfNodesAndOutputsReadDecibelsOnOneScale)
{
    struct Case
    {
        double decibels;
        int channel;
        double channel1;
        double channel2;
    };
    const Case cases[] = {
        {-60.0, 0, 0.0, 0.2}, {-25.0, 1, 0.2, 0.5}, {3.0, 0, 1.0, 0.2},    {-10.0, 2, 0.2, 0.2},
        {-50.0, 1, 0.2, 0.0}, {0.0, 0, 1.0, 0.2},   {-10.0, -1, 0.2, 0.2}, {NAN, 0, 0.0, 0.2},
    };
    for (const Case& c : cases)
    {
        auto node = std::make_shared<DRMXMixerNode>("node", DRMXInputSelector(), DRMXOutputSelector());
        auto output = std::make_shared<DRMXOutput>();
        for (int channel = 0; channel < 2; ++channel)
        {
            node->SetVULevel(-40.0, channel);
            output->SetVULevel(-40.0, channel);
        }
        node->SetVULevel(c.decibels, c.channel);
        output->SetVULevel(c.decibels, c.channel);
        SCOPED_TRACE(testing::Message() << c.decibels << " dB on channel " << c.channel);
        EXPECT_DOUBLE_EQ(node->GetDoubleProperty(kPropertyNodeVULevelChannel1), c.channel1);
        EXPECT_DOUBLE_EQ(node->GetDoubleProperty(kPropertyNodeVULevelChannel2), c.channel2);
        EXPECT_DOUBLE_EQ(output->GetDoubleProperty(kPropertyOutputVULevelChannel1), c.channel1);
        EXPECT_DOUBLE_EQ(output->GetDoubleProperty(kPropertyOutputVULevelChannel2), c.channel2);
    }
    // The application can't write a meter.
    auto node = std::make_shared<DRMXMixerNode>("node", DRMXInputSelector(), DRMXOutputSelector());
    node->SetDoubleProperty(kPropertyNodeVULevelChannel1, 0.7);
    EXPECT_EQ(node->GetVULevelChannel1(), 0.0);
}

TEST(DRMXMixObjects, ANodeTakesItsValuesAndItsIdFromTheInputSelector)
{
    DRMXInputSelector input;
    input.SetType(kInputTypeVirtual);
    input.SetHardwareId("channel");
    input.gain = 0.25;
    input.mute = true;
    input.SetMixerNodeID(7);
    auto node = std::make_shared<DRMXMixerNode>("node", input, DRMXOutputSelector());

    // Not yet placed: 0, which is no empty slot's -1.
    EXPECT_EQ(node->GetSelector().nodeId, 0);
    EXPECT_EQ(node->GetSelector().type, kInputTypeVirtual);
    EXPECT_EQ(node->GetDoubleProperty(kPropertyNodeGain), 0.25);
    EXPECT_TRUE(node->GetBoolProperty(kPropertyNodeMute));
    ASSERT_TRUE(node->Init().Succeeded());
    EXPECT_EQ(node->GetSelector().nodeId, 7);

    node->UpdateNodeId(5);
    EXPECT_EQ(node->GetSelector().nodeId, 5);
    EXPECT_EQ(node->GetInputSelector().GetMixerNodeId(), 5);
}

TEST(DRMXMixObjects, AnInputKeepsItsSelectorWhenTheInputIdStays)
{
    DRMXInputSelector first;
    first.SetHardwareId("mic");
    first.SetName("Desk microphone");
    DRMXInput input(first);
    DRMXInputSelector renamed = first;
    renamed.SetName("Other name");
    renamed.available = false;
    input.SetSelector(renamed);
    EXPECT_EQ(input.GetSelector().GetName(), "Desk microphone");
    EXPECT_TRUE(input.GetSelector().available);
}

// Sizes of 0 or less are refused, directly and through the properties, and
// the value stays.
TEST(DRMXMixObjects, BadBufferSizesAreRefusedAndChangeNothing)
{
    auto input = std::make_shared<DRMXInput>();
    auto output = std::make_shared<DRMXOutput>();
    struct Case
    {
        std::shared_ptr<DRAVObject> object;
        const char* property;
        std::function<DRAVResult(int64_t)> set;
    };
    const Case cases[] = {
        {input, kPropertyAudioBufferSizeFrameCount,
         [&](int64_t v) { return input->SetBufferSizeFrameCount(v); }},
        {input, kPropertyAudioBufferSizeMs, [&](int64_t v) { return input->SetBufferSizeMSec(v); }},
        {output, kPropertyAudioBufferSizeFrameCount,
         [&](int64_t v) { return output->SetBufferSizeFrameCount(v); }},
        {output, kPropertyAudioBufferSizeMs, [&](int64_t v) { return output->SetBufferSizeMSec(v); }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.property);
        ASSERT_TRUE(c.set(512).Succeeded());
        for (const int64_t bad : {int64_t{0}, int64_t{-1}, int64_t{-960}})
        {
            EXPECT_EQ(c.set(bad).GetCode(), kDRAVResultErrInvalidParameter) << bad;
            c.object->SetIntProperty(c.property, bad);
            EXPECT_EQ(c.object->GetIntProperty(c.property), 512) << bad;
        }
        c.object->SetIntProperty(c.property, 480);
        EXPECT_EQ(c.object->GetIntProperty(c.property), 480);
    }
}
}  // namespace
