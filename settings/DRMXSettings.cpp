#include "settings/DRMXSettings.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "portable-core/DplFile.h"
#include "settings/DPLJSONUtils.h"
#include "settings/DRAVEngineFolders.h"
#include "settings/DRAVEngineSettings.h"
#include "settings/InvalidSettingsException.h"

namespace DRMX_Settings
{
namespace
{
const std::string kApplicationKey = std::string(PRODUCT_NAME_LONG) + " Application Settings";
const std::string kSectionKey = std::string(PRODUCT_NAME_LONG) + " Engine Settings";
const std::string kVersionKey = std::string(PRODUCT_NAME_LONG) + " Settings Version";
const char* const kMicrophoneKey = "Microphone Settings";
const char* const kInputsLocalKey = "Mixer Inputs Local";
const char* const kInputsStreamKey = "Mixer Inputs Stream";
const char* const kOutputLocalKey = "Mixer Output Local";
const char* const kOutputStreamKey = "Mixer Output Stream";
const char* const kInputBufferKey = "Mixer Input Buffer Size MSec";
const char* const kOutputBufferKey = "Mixer Output Buffer Size MSec V2";

// Settings files are small; anything beyond this is not ours.
constexpr std::uintmax_t kMaxSettingsFileBytes = 16 * 1024 * 1024;

bool ReadWholeFile(const std::string& path, std::string& text)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size > kMaxSettingsFileBytes)
    {
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        return false;
    }
    std::ostringstream buffer;
    buffer << file.rdbuf();
    text = buffer.str();
    return !file.bad();
}

nlohmann::json ArrayOf(const std::vector<DRMXInputSelector>& inputs)
{
    nlohmann::json array = nlohmann::json::array();
    for (const DRMXInputSelector& input : inputs)
    {
        array.push_back(input.ToJSONObject());
    }
    return array;
}
}  // namespace

std::string DRMXGetAppDataDirectory(bool create)
{
    // One folder for both layers: they share the settings file in it.
    return DRAVGetAppDataDirectory(create);
}

DRAVResult DRMXSettings::LoadSettings(const std::string& path)
{
    loadedCorrectly_ = false;
    std::string text;
    if (!ReadWholeFile(path, text))
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile);
    }
    return LoadSettingsFromText(text);
}

DRAVResult DRMXSettings::LoadSettingsFromText(const std::string& text)
{
    loadedCorrectly_ = false;
    nlohmann::json root;
    if (!DPLJSONUtils::Parse(text, root).Succeeded() || !root.is_object())
    {
        return DRAVResult(kDRAVResultErrInvalidFormat);
    }
    const int32_t fileVersion = DPLJSONUtils::GetIntByName(root, kVersionKey, 1);
    if (!CanImportSettingsFromFileWithVersion(fileVersion))
    {
        return DRAVResult(kDRAVResultErrInvalidFormat);
    }
    version = fileVersion;

    try
    {
        const nlohmann::json& section = root.at(kSectionKey);
        DRAVResult read = microphoneSettings.FromJSONObject(section.at(kMicrophoneKey));
        if (!read.Succeeded())
        {
            return DRAVResult(kDRAVResultErrInvalidParameter);
        }
        int32_t index = 0;
        for (const nlohmann::json& element : section.at(kInputsLocalKey))
        {
            DRMXInputSelector selector;
            if (!selector.FromJSONObject(element).Succeeded())
            {
                return DRAVResult(kDRAVResultErrInvalidParameter);
            }
            // Virtual channels are welcome in the local mix: here they are
            // devices the library installs itself, and refusing one would
            // throw the user's whole layout away at the next start.
            selector.SetMixerNodeID(index++);
            mixerConfiguration.AddMixerInputLocal(selector);
        }
        index = 0;
        for (const nlohmann::json& element : section.at(kInputsStreamKey))
        {
            DRMXInputSelector selector;
            if (!selector.FromJSONObject(element).Succeeded())
            {
                return DRAVResult(kDRAVResultErrInvalidParameter);
            }
            selector.SetMixerNodeID(index++);
            mixerConfiguration.AddMixerInputStream(selector);
        }
        DRMXOutputSelector local;
        DRMXOutputSelector stream;
        if (!local.FromJSONObject(section.at(kOutputLocalKey)).Succeeded() ||
            !stream.FromJSONObject(section.at(kOutputStreamKey)).Succeeded())
        {
            return DRAVResult(kDRAVResultErrInvalidParameter);
        }
        mixerConfiguration.SetMixerOutputLocal(local);
        mixerConfiguration.SetMixerOutputStream(stream);
        mixerConfiguration.SetAudioBufferSizeOutputMSec(
            DPLJSONUtils::GetIntByName(section, kOutputBufferKey, 60));
        mixerConfiguration.SetAudioBufferSizeInputMSec(
            DPLJSONUtils::GetIntByName(section, kInputBufferKey, 20));
        mixerConfiguration.SetAudioBufferFrameCount(
            static_cast<int>(mixerConfiguration.audioBufferSizeInputMSec / 1000.0 * 48000.0));
        if (!applicationSettings.FromJSONObject(root.at(kApplicationKey)).Succeeded())
        {
            return DRAVResult(kDRAVResultErrInvalidParameter);
        }
    }
    catch (const nlohmann::detail::exception&)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }

    const DRAVResult validated = Validate();
    loadedCorrectly_ = validated.Succeeded();
    return validated;
}

DRAVResult DRMXSettings::SaveSettings(const std::string& path)
{
    if (!saveSettingsAllowed_)
    {
        return DRAVResult(kDRAVResultOkButIncomplete);
    }
    if (!loadedCorrectly_ || !Validate().Succeeded())
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }

    // The file is shared with the engine's settings: keep every key that
    // isn't ours, so that a save of this section never drops the other, and
    // don't let the two savers interleave their read-merge-write.
    std::lock_guard fileLock(DRAVSettingsFileMutex());
    nlohmann::json root = nlohmann::json::object();
    std::string existing;
    if (ReadWholeFile(path, existing))
    {
        nlohmann::json parsed;
        if (DPLJSONUtils::Parse(existing, parsed).Succeeded() && parsed.is_object())
        {
            root = std::move(parsed);
        }
    }

    std::string text;
    try
    {
        nlohmann::json section = nlohmann::json::object();
        section[kVersionKey] = version;
        section[kMicrophoneKey] = microphoneSettings.ToJSONObject();
        if (!mixerConfiguration.mixerInputsLocal.empty())
        {
            section[kInputsLocalKey] = ArrayOf(mixerConfiguration.mixerInputsLocal);
        }
        if (!mixerConfiguration.mixerInputsStream.empty())
        {
            section[kInputsStreamKey] = ArrayOf(mixerConfiguration.mixerInputsStream);
        }
        section[kOutputLocalKey] = mixerConfiguration.mixerOutputLocal.ToJSONObject();
        section[kOutputStreamKey] = mixerConfiguration.mixerOutputStream.ToJSONObject();
        section[kInputBufferKey] = mixerConfiguration.audioBufferSizeInputMSec;
        section[kOutputBufferKey] = mixerConfiguration.audioBufferSizeOutputMSec;
        root[kSectionKey] = std::move(section);
        root[kApplicationKey] = applicationSettings.ToJSONObject();
        text = root.dump(4);
    }
    catch (const nlohmann::detail::exception&)
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile);
    }
    if (!DplFile_WriteAtomically(path, text))
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile, "could not write %s", path.c_str());
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXSettings::Validate()
{
    const DRAVResult result = mixerConfiguration.ValidateInputs();
    if (result.Succeeded())
    {
        result.Log("Settings validation successful.");
    }
    else
    {
        result.LogError("Settings validation failed.");
    }
    return result;
}

DRAVResult DRMXSettings::LoadDefaultSettings()
{
    loadedCorrectly_ = false;
    DRAVResult result = LoadDefaultOutputs();
    if (result.Succeeded())
    {
        result = LoadDefaultMicrophoneSettings();
    }
    if (result.Succeeded())
    {
        applicationSettings.checkForUpdate = true;
        applicationSettings.autoOpenLogin = true;
        loadedCorrectly_ = true;
    }
    result.Log("LoadDefaultSettings");
    return result;
}

DRAVResult DRMXSettings::LoadDefaultOutputs()
{
    if (!queries_.availableOutputs)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    DRMXOutputSelector local;
    bool found = false;
    for (const DRMXOutputSelector& output : queries_.availableOutputs(kOutputTypeAny, std::string()))
    {
        if (output.isDefaultOutput)
        {
            local = output;
            found = true;
            break;
        }
    }
    if (!found)
    {
        const auto headphones = queries_.availableOutputs(kOutputTypeHardware, "Tidemix Headphone");
        if (!headphones.empty())
        {
            local = headphones.front();
        }
    }
    if (local.GetOutputId().empty())
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    DRMXOutputSelector stream;
    const auto streams = queries_.availableOutputs(kOutputTypeVirtual, "Tidemix Stream");
    if (!streams.empty())
    {
        stream = streams.front();
    }
    if (stream.GetOutputId().empty())
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    local.level = 1.0;
    stream.level = 1.0;
    mixerConfiguration.SetMixerOutputLocal(local);
    mixerConfiguration.SetMixerOutputStream(stream);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXSettings::LoadDefaultMicrophoneSettings()
{
    const std::vector<DRMXInputSelector> microphones =
        queries_.availableInputs ? queries_.availableInputs(kInputTypeMainMicrophone)
                                 : std::vector<DRMXInputSelector>();
    if (microphones.empty())
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    if (microphones.size() > 1)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    DRMXInputSelector selector = microphones.front();
    selector.linked = false;
    selector.linkedDelta = 0.0;
    selector.gain = 0.5;
    selector.mute = true;
    mixerConfiguration.AddMixerInputLocal(selector);
    selector.gain = 1.0;
    selector.mute = false;
    mixerConfiguration.AddMixerInputStream(selector);

    microphoneSettings.directMonitorVolume = 1.0;
    microphoneSettings.clipGuard = true;
    microphoneSettings.lowCut = false;
    microphoneSettings.polarization = 0.5;
    microphoneSettings.dialFunction = 2;
    microphoneSettings.microphoneType = 0;
    microphoneSettings.customName = selector.GetName();
    return DRAVResult(kDRAVResultOk);
}

void DRMXSettings::LoadDefaultMicrophoneSettings(DRMXInputSelector& selector, DRMXMixerType mixerType)
{
    selector.linked = false;
    selector.linkedDelta = 0.0;
    if (mixerType == kMixerStream)
    {
        selector.gain = 1.0;
        selector.mute = false;
    }
    else if (mixerType == kMixerLocal)
    {
        selector.gain = 0.5;
        selector.mute = true;
    }
}

DRAVResult DRMXSettings::LoadDefaultAppAudioSettings()
{
    const std::vector<DRMXInputSelector> inputs =
        queries_.defaultAppAudioInputs ? queries_.defaultAppAudioInputs() : std::vector<DRMXInputSelector>();
    int32_t node = 1;  // node 0 is the microphone's
    for (DRMXInputSelector input : inputs)
    {
        input.SetMixerNodeID(node++);
        input.gain = 1.0;
        mixerConfiguration.AddMixerInputLocal(input);
        mixerConfiguration.AddMixerInputStream(input);
    }
    return DRAVResult(kDRAVResultOk);
}

void DRMXSettings::ResetSettings()
{
    microphoneSettings = DRMXMicrophoneSettings();
    applicationSettings = DRMXApplicationSettings();
    mixerConfiguration.ResetMixerSettings();
}

void DRMXSettings::UpdateSettings(const DRMXSettings& other)
{
    version = other.version;
    mixerConfiguration = other.mixerConfiguration;
    microphoneSettings = other.microphoneSettings;
    applicationSettings = other.applicationSettings;
    loadedCorrectly_ = other.loadedCorrectly_;
    saveSettingsAllowed_ = other.saveSettingsAllowed_;
}

}  // namespace DRMX_Settings
