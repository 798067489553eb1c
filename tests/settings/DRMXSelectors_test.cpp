#include <gtest/gtest.h>

#include <random>
// g++ 12 warns falsely inside <regex> when optimising with sanitizers; the
// regular expressions here only serve as the reference of a comparison.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <regex>
#include <string>

#include "portable-core/BreakIntoDebugger.h"
#include "settings/DRMXApplicationSettings.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXMicrophoneSettings.h"
#include "settings/DRMXMixerConfiguration.h"
#include "settings/DRMXMixerNodeSelector.h"
#include "settings/DRMXOutputSelector.h"
#include "settings/InvalidSettingsException.h"

namespace DRMX_Settings
{
namespace
{
using nlohmann::json;

DRMXInputSelector FullInput()
{
    DRMXInputSelector input;
    input.SetType(kInputTypeHardware);
    input.SetHardwareId("AppleUSBAudioEngine:Maker:Mic:1234:1");
    input.SetName("USB Mic");
    input.SetDevicePath("57");
    input.SetVendorId(0x1234);
    input.SetProductId(0x5678);
    input.SetMixerNodeID(3);
    input.SetFWVersion(0x123);
    input.gain = 0.5;
    input.mute = true;
    input.SetCustomName("Guest");
    input.SetLinked(true);
    input.SetLinkedDelta(0.25);
    input.SetIsDefault(true);
    return input;
}

}  // namespace

TEST(DRMXInputSelector, RoundTripKeepsEveryPersistedField)
{
    const DRMXInputSelector original = FullInput();
    DRMXInputSelector back;
    ASSERT_TRUE(back.FromJSON(original.ToJSON()).Succeeded());
    // The text form is pinned below; equal texts mean every written field came back.
    EXPECT_EQ(back.ToJSON(), original.ToJSON());
    EXPECT_EQ(back.GetInputID(), original.GetInputID());
    // The device path is not part of the text form.
    EXPECT_TRUE(back.GetDevicePath().empty());
}

TEST(DRMXInputSelector, TextFormHasSortedKeysIndentOfFourAndFloatPrecision)
{
    DRMXInputSelector input;
    input.SetType(kInputTypeHardware);
    input.SetName("Line");
    input.gain = 0.1;
    const std::string text = input.ToJSON();
    EXPECT_EQ(text,
              "{\n"
              "    \"inputCustomName\": \"Line\",\n"
              "    \"inputDefault\": false,\n"
              "    \"inputFWVersion\": 0,\n"
              "    \"inputHardwareId\": \"\",\n"
              "    \"inputLinked\": false,\n"
              "    \"inputMixerNodeGain\": 0.1,\n"
              "    \"inputMixerNodeId\": -1,\n"
              "    \"inputMixerNodeMute\": false,\n"
              "    \"inputName\": \"Line\",\n"
              "    \"inputProductId\": 0,\n"
              "    \"inputType\": 4,\n"
              "    \"inputVendorId\": 0\n"
              "}");
    DRMXInputSelector back;
    ASSERT_TRUE(back.FromJSON(text).Succeeded());
    // Gain goes through a 32-bit float; a stored -1 node id reads as 0.
    EXPECT_EQ(back.gain, 0.10000000149011612);
    EXPECT_EQ(back.GetMixerNodeId(), 0);
    // Written custom name is the shown name, so it comes back as a custom name.
    EXPECT_EQ(back.customName, "Line");
}

TEST(DRMXInputSelector, CustomNameKeyFollowsTheShownName)
{
    DRMXInputSelector input;
    input.SetType(kInputTypeVirtual);
    input.SetName("Tidemix Music (Left)");
    EXPECT_EQ(json::parse(input.ToJSON()).at("inputCustomName"), "Music");
    input.SetType(kInputTypeHardware);
    EXPECT_EQ(json::parse(input.ToJSON()).at("inputCustomName"), "Tidemix Music (Left)");
    input.SetName("");
    EXPECT_FALSE(json::parse(input.ToJSON()).contains("inputCustomName"));
    EXPECT_FALSE(json::parse(input.ToJSON()).contains("inputLinkedDelta"));
    input.SetLinkedDelta(-0.5);
    EXPECT_EQ(json::parse(input.ToJSON()).at("inputLinkedDelta"), -0.5);
}

TEST(DRMXInputSelector, ReadingIsTolerantExceptForTheType)
{
    DRMXInputSelector input = FullInput();
    const std::string before = input.ToJSON();
    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    EXPECT_EQ(input.FromJSON(R"({"inputName":"X"})").GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    EXPECT_EQ(input.FromJSON(R"({"inputType":"4"})").GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(input.FromJSON(R"([{"inputType":4}])").GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(input.ToJSON(), before);

    ASSERT_TRUE(input
                    .FromJSON(R"({"inputType":2.9,"inputVendorId":-1,"inputFWVersion":1.5,
        "inputProductId":"7","inputMixerNodeMute":1,"inputHardwareId":"hw","inputName":"N",
        "inputMixerNodeGain":1,"inputFWVersion2":3})")
                    .Succeeded());
    EXPECT_EQ(input.GetType(), kInputTypeFurtherMicrophone);
    EXPECT_EQ(input.GetVendorId(), 0u);
    EXPECT_EQ(input.GetFWVersion(), 0);
    EXPECT_EQ(input.GetProductId(), 0u);
    EXPECT_FALSE(input.mute);
    EXPECT_EQ(input.gain, 1.0);
    EXPECT_EQ(input.GetInputID(), "hw");
    EXPECT_EQ(input.GetName(), "N");
    // Everything else came back to new-record values, not the old ones.
    EXPECT_TRUE(input.customName.empty());
    EXPECT_FALSE(input.linked);
    EXPECT_FALSE(input.isDefault);

    // The firmware version is read as 32 bits and sign-extended.
    ASSERT_TRUE(input.FromJSON(R"({"inputType":1,"inputFWVersion":4294967295})").Succeeded());
    EXPECT_EQ(input.GetFWVersion(), -1);
}

TEST(DRMXInputSelector, IdentityFollowsTheHardwareId)
{
    DRMXInputSelector a, b;
    a.SetName("One");
    b.SetName("Two");
    a.SetHardwareId("X");
    EXPECT_NE(a, b);
    b.SetHardwareId("X");
    EXPECT_EQ(a, b);
    b.SetHardwareId("x");
    EXPECT_NE(a, b);  // byte-exact
    EXPECT_EQ(DRMXInputSelector::getInputIdFromHardwareId("AbC"), "AbC");
}

TEST(DRMXInputSelector, EqualsMixerTypeUnspecifically)
{
    const DRMXInputSelector base = FullInput();
    DRMXInputSelector other = base;
    other.gain = 0.9;
    other.mute = false;
    other.SetCustomName("Else");
    other.SetLinked(false);
    other.SetLinkedDelta(0.0);
    EXPECT_TRUE(DRMXInputSelector::EqualsMixerTypeUnspecifically(base, other));

    other = base;
    other.SetDevicePath("58");
    EXPECT_FALSE(DRMXInputSelector::EqualsMixerTypeUnspecifically(base, other));
    other.SetDevicePath("");
    EXPECT_TRUE(DRMXInputSelector::EqualsMixerTypeUnspecifically(base, other));
    EXPECT_TRUE(DRMXInputSelector::EqualsMixerTypeUnspecifically(other, base));

    auto differs = [&](auto change)
    {
        DRMXInputSelector changed = base;
        change(changed);
        return !DRMXInputSelector::EqualsMixerTypeUnspecifically(base, changed);
    };
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetType(kInputTypeVirtual); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetName("Other"); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetVendorId(1); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetProductId(1); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetMixerNodeID(9); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetFWVersion(1); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetIsDefault(false); }));
    EXPECT_TRUE(differs([](DRMXInputSelector& s) { s.SetHardwareId("other"); }));
}

// The short name's cases come from the comparison with the regular
// expressions below; this one is about size.
TEST(DRMXInputSelector, ShortNameOfAHugeNameTakesLinearTime)
{
    DRMXInputSelector huge;
    huge.SetType(kInputTypeVirtual);
    std::string brackets;
    for (int i = 0; i < 500000; ++i)
    {
        brackets += " (";
    }
    huge.SetName("Tidemix " + std::string(2000000, 'a') + brackets + "x)");
    // The last " (" that leaves both groups non-empty is the last one.
    EXPECT_EQ(huge.GetNameShort().size(), 2000000u + 2 * 499999);
}

TEST(DRMXInputSelector, ShortNamesMatchTheRegularExpressions)
{
    // The short name is defined by two whole-string matches of regular
    // expressions; compare with them on many short random names.
    const std::regex prefix("Tidemix (.+)");
    const std::regex bracket("(.+) \\((.+)\\)");
    const char alphabet[] = {'T', 'i', 'd', 'e', 'm', 'x', ' ', '(', ')', 'a', '\n', '\r'};
    std::mt19937 random(1234);
    for (int round = 0; round < 20000; ++round)
    {
        std::string name = round % 2 == 0 ? "Tidemix " : "";
        const int length = static_cast<int>(random() % 10);
        for (int i = 0; i < length; ++i)
        {
            name += alphabet[random() % sizeof alphabet];
        }
        std::string expected = name;
        std::smatch match;
        if (std::regex_match(expected, match, prefix))
        {
            expected = match[1].str();
        }
        if (std::regex_match(expected, match, bracket))
        {
            expected = match[1].str();
        }
        DRMXInputSelector input;
        input.SetType(kInputTypeVirtual);
        input.SetName(name);
        ASSERT_EQ(input.GetNameShort(), expected) << "name: [" << name << "]";
        input.SetType(kInputTypeHardware);
        ASSERT_EQ(input.GetNameShort(), name);
    }
}

TEST(DRMXInputSelector, DrovaneMicrophonesAreTheRuntimeProducts)
{
    DRMXInputSelector input;
    DRMXOutputSelector output;
    input.SetVendorId(0x7E11);
    output.SetVendorId(0x7E11);
    for (uint32_t product : {0x0B21u, 0x0B23u, 0x0B25u})
    {
        input.SetProductId(product);
        output.SetProductId(product);
        EXPECT_TRUE(input.IsDrovaneMicrophone());
        EXPECT_TRUE(output.IsDrovaneMicrophone());
    }
    for (uint32_t product : {0x0B22u, 0x0B24u, 0x0B26u, 0u})
    {
        input.SetProductId(product);
        EXPECT_FALSE(input.IsDrovaneMicrophone());
    }
    input.SetVendorId(0x7E12);
    input.SetProductId(0x0B21);
    EXPECT_FALSE(input.IsDrovaneMicrophone());
}

TEST(DRMXInputSelector, AvailabilityOfApplicationAudioAsksTheCheck)
{
    DRMXInputSelector app;
    app.SetType(kInputTypeAppAudio);
    app.SetHardwareId("com.example.player");
    app.available = true;
    DRMXInputSelector::SetAppAudioAvailabilityCheck([](const DRMXInputSelector& s)
                                                    { return s.GetHardwareId() == "com.example.installed"; });
    EXPECT_FALSE(app.GetIsAvailable());
    app.SetHardwareId("com.example.installed");
    EXPECT_TRUE(app.GetIsAvailable());
    DRMXInputSelector device;
    device.SetType(kInputTypeHardware);
    device.available = false;
    EXPECT_FALSE(device.GetIsAvailable());  // other types read the field
    DRMXInputSelector::SetAppAudioAvailabilityCheck(nullptr);
    app.SetHardwareId("com.example.player");
    EXPECT_TRUE(app.GetIsAvailable());
}

TEST(DRMXOutputSelector, RoundTripAndTolerantReading)
{
    DRMXOutputSelector output;
    output.SetType(kOutputTypeHardware);
    output.SetHardwareId("BuiltInSpeakerDevice");
    output.SetTerminalType(kTerminalHeadphone);
    output.level = 0.75;
    output.mute = true;
    output.SetVendorId(0x7E11);
    output.SetProductId(0x0B23);
    output.SetName("not persisted");
    output.SetDevicePath("12");
    output.SetMixerNodeID(4);
    output.isDefaultOutput = true;
    DRMXOutputSelector back;
    ASSERT_TRUE(back.FromJSON(output.ToJSON()).Succeeded());
    EXPECT_EQ(back, output);
    EXPECT_EQ(back.ToJSON(), output.ToJSON());
    EXPECT_EQ(back.GetTerminalType(), kTerminalHeadphone);
    // Name, path, node and default flag are not persisted.
    EXPECT_TRUE(back.GetName().empty());
    EXPECT_TRUE(back.GetDevicePath().empty());
    EXPECT_EQ(back.GetMixerNodeId(), 0);
    EXPECT_FALSE(back.isDefaultOutput);

    ASSERT_TRUE(
        back.FromJSON(R"({"outputType":1,"outputTerminalType":0,"outputLevel":1,"outputVendorId":-2})")
            .Succeeded());
    EXPECT_EQ(back.level, 1.0);
    EXPECT_EQ(back.GetVendorId(), static_cast<uint32_t>(-2));  // read as a signed integer
    EXPECT_TRUE(back.GetOutputId().empty());
    EXPECT_EQ(back.FromJSON(R"({"outputType":1})").GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(back.GetType(), kOutputTypeVirtual);
}

TEST(DRMXOutputSelector, IdentityIsTheOutputId)
{
    DRMXOutputSelector a, b;
    a.SetHardwareId("hw");
    b.SetHardwareId("hw");
    b.SetName("different");
    b.level = 1.0;
    EXPECT_EQ(a, b);
    EXPECT_EQ(a.GetOutputId(), "hw");
    b.SetHardwareId("HW");
    EXPECT_NE(a, b);
}

TEST(DRMXMixerNodeSelector, RoundTripAndRequiredKeys)
{
    DRMXMixerNodeSelector node;
    node.type = kInputTypeVirtual;
    node.nodeId = 5;
    node.gain = 0.3;
    node.mute = true;
    DRMXMixerNodeSelector back;
    ASSERT_TRUE(back.FromJSON(node.ToJSON()).Succeeded());
    EXPECT_EQ(back.type, 3);
    EXPECT_EQ(back.nodeId, 5);
    EXPECT_EQ(back.gain, 0.3);  // not narrowed to float
    EXPECT_TRUE(back.mute);
    for (const char* text :
         {R"({"nodeID":1,"nodeGain":0.5})", R"({"nodeInputType":1,"nodeGain":0.5})",
          R"({"nodeInputType":1,"nodeID":1})", R"({"nodeInputType":1,"nodeID":1,"nodeGain":"x"})"})
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(back.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
    }
    EXPECT_EQ(back.nodeId, 5);
    ASSERT_TRUE(back.FromJSON(R"({"nodeInputType":1,"nodeID":2,"nodeGain":1})").Succeeded());
    EXPECT_FALSE(back.mute);
}

TEST(DRMXMicrophoneSettings, RoundTripDefaultsAndRequiredKeys)
{
    DRMXMicrophoneSettings settings;
    settings.gain = 0.6;
    settings.mute = true;
    settings.outputVolume = 0.7;
    settings.outputMute = true;
    settings.directMonitorVolume = 0.2;
    settings.clipGuard = true;
    settings.lowCut = true;
    settings.polarization = 1.0;
    settings.customName = "Podcast";
    settings.microphoneType = 3;
    settings.gainLock = true;
    settings.ledFlipped = true;
    settings.dialFunction = 1;
    DRMXMicrophoneSettings back;
    ASSERT_TRUE(back.FromJSON(settings.ToJSON()).Succeeded());
    EXPECT_EQ(back.ToJSON(), settings.ToJSON());
    EXPECT_EQ(back.gain, 0.6);
    EXPECT_EQ(back.customName, "Podcast");
    EXPECT_EQ(back.dialFunction, 1);

    const json minimal = json::parse(R"({"Microphone Gain":0.5,"Microphone Output Volume":1,
        "Microphone DirectMonitor Volume":0,"Microphone ClipGuard":false,"Microphone LowCut":true,
        "Microphone Polarization":0,"Microphone Type":2})");
    ASSERT_TRUE(back.FromJSON(minimal.dump()).Succeeded());
    EXPECT_EQ(back.dialFunction, 2);
    EXPECT_FALSE(back.gainLock);
    EXPECT_TRUE(back.customName.empty());
    EXPECT_EQ(back.microphoneType, 2);
    for (const char* key :
         {"Microphone Gain", "Microphone Output Volume", "Microphone DirectMonitor Volume",
          "Microphone ClipGuard", "Microphone LowCut", "Microphone Polarization", "Microphone Type"})
    {
        SCOPED_TRACE(key);
        json missing = minimal;
        missing.erase(key);
        EXPECT_EQ(back.FromJSON(missing.dump()).GetCode(), kDRAVResultErrInvalidParameter);
        json wrongType = minimal;
        wrongType[key] = "text";
        EXPECT_EQ(back.FromJSON(wrongType.dump()).GetCode(), kDRAVResultErrInvalidParameter);
    }
    // A boolean key holding a number is a type error, not a coercion.
    json numberForBool = minimal;
    numberForBool["Microphone ClipGuard"] = 1;
    EXPECT_EQ(back.FromJSON(numberForBool.dump()).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(back.microphoneType, 2);
}

TEST(DRMXApplicationSettings, DefaultsFromAnEmptyObjectAndRoundTrip)
{
    DRMXApplicationSettings settings;
    settings.checkForUpdate = false;
    settings.autoOpenLogin = false;
    settings.SetUpdateSkipVersion("2.1.0");
    settings.levelMeterDecayAnimationDelay = 250;
    settings.localizationLanguage = "de";
    settings.dontShowAlertOnQuit = true;
    ASSERT_TRUE(settings.FromJSON("{}").Succeeded());
    EXPECT_TRUE(settings.checkForUpdate);
    EXPECT_TRUE(settings.autoOpenLogin);
    EXPECT_EQ(settings.levelMeterDecayAnimationDelay, 1000u);
    EXPECT_TRUE(settings.GetUpdateSkipVersion().empty());
    EXPECT_FALSE(settings.dontShowAlertOnQuit);

    settings.checkForUpdate = false;
    settings.dontShowAlertOnLocalMicChannelUnmute = true;
    settings.SetUpdateSkipVersion("3.0.1");
    settings.levelMeterDecayAnimationDelay = 0;
    settings.localizationLanguage = "fr";
    DRMXApplicationSettings back;
    ASSERT_TRUE(back.FromJSON(settings.ToJSON()).Succeeded());
    EXPECT_EQ(back.ToJSON(), settings.ToJSON());
    EXPECT_EQ(back.levelMeterDecayAnimationDelay, 0u);

    ASSERT_TRUE(back.FromJSON(R"({"Application LevelMeterDecayAnimationDelay":-5})").Succeeded());
    EXPECT_EQ(back.levelMeterDecayAnimationDelay, 1000u);
    EXPECT_EQ(back.FromJSON("[]").GetCode(), kDRAVResultOk);  // every key optional: defaults
}

TEST(DRMXRecords, HostileTextsGiveInvalidParameterAndChangeNothing)
{
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const std::string deepObject = []
    {
        std::string text;
        for (int i = 0; i < 5000; ++i)
        {
            text += "{\"inputType\":";
        }
        text += "1";
        text += std::string(5000, '}');
        return text;
    }();
    const std::vector<std::string> hostile = {
        deep,
        deepObject,
        "",
        "{",
        "nul",
        "{\"inputType\":1,}",
        "\"\xc3\x28\"",
        "{\"inputType\":1e999}",
        std::string("{\"inputType\":1\0}", 16),
    };
    DRMXInputSelector input = FullInput();
    DRMXOutputSelector output;
    output.SetHardwareId("kept");
    DRMXMixerNodeSelector node;
    node.nodeId = 7;
    DRMXMicrophoneSettings microphone;
    microphone.customName = "kept";
    DRMXApplicationSettings application;
    application.localizationLanguage = "kept";
    for (const std::string& text : hostile)
    {
        SCOPED_TRACE(text.substr(0, 40));
        EXPECT_EQ(input.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
        EXPECT_EQ(output.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
        EXPECT_EQ(node.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
        EXPECT_EQ(microphone.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
        EXPECT_EQ(application.FromJSON(text).GetCode(), kDRAVResultErrInvalidParameter);
    }
    EXPECT_EQ(input.GetName(), "USB Mic");
    EXPECT_EQ(output.GetOutputId(), "kept");
    EXPECT_EQ(node.nodeId, 7);
    EXPECT_EQ(microphone.customName, "kept");
    EXPECT_EQ(application.localizationLanguage, "kept");

    // A name that isn't valid UTF-8 (from a device) still writes.
    input.SetName("bad \xff name");
    EXPECT_NE(input.ToJSON().find("bad"), std::string::npos);
}

TEST(DRMXRecords, InvalidSettingsExceptionIsCaughtAsALibraryError)
{
    try
    {
        throw InvalidSettingsException("mixer layout is broken");
    }
    catch (const nlohmann::detail::exception& error)
    {
        EXPECT_EQ(error.id, 0);
        EXPECT_NE(std::string(error.what()).find("mixer layout is broken"), std::string::npos);
        return;
    }
    FAIL() << "not caught by the library's base";
}

TEST(DRMXMixerConfiguration, ValidateInputs)
{
    DRMXMixerConfiguration config;
    EXPECT_EQ(config.ValidateInputs().GetCode(), kDRAVResultErrInvalidState);

    DRMXInputSelector other = FullInput();
    config.AddMixerInputLocal(other);
    config.AddMixerInputStream(other);
    EXPECT_EQ(config.ValidateInputs().GetCode(), kDRAVResultErrInvalidState);  // no main microphone

    DRMXInputSelector main;
    main.SetType(kInputTypeMainMicrophone);
    main.SetHardwareId("mic");
    main.SetName("Reed 1");
    config.AddMixerInputLocal(main);
    EXPECT_EQ(config.ValidateInputs().GetCode(), kDRAVResultErrInvalidState);  // lengths differ
    DRMXInputSelector streamMain = main;
    streamMain.gain = 0.2;  // may differ between the mixers
    config.AddMixerInputStream(streamMain);
    EXPECT_TRUE(config.ValidateInputs().Succeeded());

    config.mixerInputsStream[0].SetName("Changed");
    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    EXPECT_EQ(config.ValidateInputs().GetCode(), kDRAVResultErrInvalidState);
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);

    DRMXOutputSelector output;
    output.SetHardwareId("out");
    config.SetMixerOutputLocal(output);
    config.SetMixerOutputStream(output);
    config.SetAudioBufferFrameCount(480);
    config.SetAudioBufferSizeInputMSec(10);
    config.SetAudioBufferSizeOutputMSec(30);
    config.ResetMixerSettings();
    EXPECT_TRUE(config.mixerInputsLocal.empty());
    EXPECT_TRUE(config.mixerInputsStream.empty());
    EXPECT_TRUE(config.mixerOutputLocal.GetOutputId().empty());
    EXPECT_TRUE(config.mixerOutputStream.GetOutputId().empty());
    EXPECT_EQ(config.audioBufferFrameCount, 480);
    EXPECT_EQ(config.audioBufferSizeInputMSec, 10);
    EXPECT_EQ(config.audioBufferSizeOutputMSec, 30);
}

}  // namespace DRMX_Settings
