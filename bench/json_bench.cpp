// Parse and write speed of the JSON documents against nlohmann json and
// RapidJSON, on a settings file and on a 1 MB document.
#include <benchmark/benchmark.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "portable-core/json/TJSON.h"

namespace
{
using nlohmann::json;

// The shared settings file as the two settings objects write it.
std::string SettingsText()
{
    json doc;
    json source = {{"sourceDeviceType", 1}, {"sourceUsageType", 1}, {"sourceDevicePath", "84"}};
    doc["version"] = 3;
    doc["primarySource"] = source;
    doc["micSource"] = source;
    doc["sources"] = json::array();
    for (const char* key : {"enableAudioProcessing", "autoDefaultAudioSelection", "previewPageSelected",
                            "processorJitterCompensation", "activateNewLibraryStructure"})
    {
        doc[key] = true;
    }
    doc["maxNumberLogFiles"] = 10;
    doc["processorAdditionalDelayMs"] = 20;
    doc["liveCommentaryAudioGain"] = 1.0;
    json inputs = json::array();
    for (int i = 0; i < 6; ++i)
    {
        inputs.push_back({{"inputType", i == 0 ? 1 : 4},
                          {"inputName", "Input \xC3\xA9 " + std::to_string(i)},
                          {"inputDevicePath", "/devices/usb/" + std::to_string(1000 + i)},
                          {"inputHardwareId", "AppleUSBAudioEngine:Drovane:Reed:" + std::to_string(i)},
                          {"inputMixerNodeGain", 0.5 + i * 0.0625},
                          {"inputMixerNodeMute", i % 2 == 0},
                          {"inputMixerNodeId", i}});
    }
    json output = {{"outputType", 1},    {"outputName", "Speakers"}, {"outputDevicePath", "62"},
                   {"outputLevel", 1.0}, {"outputVendorId", 7504},   {"outputProductId", 24828}};
    doc["Tidemix Engine Settings"] = {{"Tidemix Settings Version", 0},
                                      {"Mixer Inputs Local", inputs},
                                      {"Mixer Inputs Stream", inputs},
                                      {"Mixer Output Local", output},
                                      {"Mixer Output Stream", output},
                                      {"Mixer Input Buffer Size MSec", 20},
                                      {"Mixer Output Buffer Size MSec V2", 60},
                                      {"Microphone Settings",
                                       {{"Microphone Gain", 0.75},
                                        {"Microphone Mute", false},
                                        {"Microphone Custom Name", "Reed \"Pro\""}}}};
    doc["Tidemix Application Settings"] = {
        {"checkForUpdate", true}, {"updateSkipVersion", "1.2.3"}, {"levelMeterDecayAnimationDelay", 1000}};
    return doc.dump(4);
}

// About 1 MB of records with text, integers, doubles and nesting.
std::string LargeText()
{
    std::mt19937_64 random(42);
    json records = json::array();
    std::string text;
    while (true)
    {
        json record = {{"id", static_cast<int64_t>(random() >> 20)},
                       {"name", "record " + std::to_string(records.size()) + " \xE2\x82\xAC / \"quoted\""},
                       {"level", static_cast<double>(random() % 100000) / 977.0},
                       {"enabled", random() % 2 == 0},
                       {"tags", {"alpha", "beta", std::to_string(random() % 1000)}},
                       {"position", {{"x", static_cast<double>(random() % 2000) * 0.37}, {"y", -3}}},
                       {"none", nullptr}};
        records.push_back(record);
        if (records.size() % 256 == 0)
        {
            text = json{{"records", records}}.dump();
            if (text.size() >= 1000000)
            {
                return text;
            }
        }
    }
}

const std::string& Settings()
{
    static const std::string text = SettingsText();
    return text;
}

const std::string& Large()
{
    static const std::string text = LargeText();
    return text;
}

const std::string& Input(int which)
{
    return which == 0 ? Settings() : Large();
}

void SetLabel(benchmark::State& state, size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.SetLabel(state.range(0) == 0 ? "settings" : "1MB");
}

void BM_ParseOurs(benchmark::State& state)
{
    const std::string& text = Input(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        TJSON doc(text);
        benchmark::DoNotOptimize(doc.GetCount());
    }
    SetLabel(state, text.size());
}

void BM_ParseNlohmann(benchmark::State& state)
{
    const std::string& text = Input(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        json doc = json::parse(text);
        benchmark::DoNotOptimize(doc.size());
    }
    SetLabel(state, text.size());
}

void BM_ParseRapidJson(benchmark::State& state)
{
    const std::string& text = Input(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        rapidjson::Document doc;
        doc.Parse<rapidjson::kParseFullPrecisionFlag>(text.c_str());
        benchmark::DoNotOptimize(doc.IsObject());
    }
    SetLabel(state, text.size());
}

void BM_WriteOursCompact(benchmark::State& state)
{
    TJSON doc(Input(static_cast<int>(state.range(0))));
    size_t bytes = 0;
    for (auto _ : state)
    {
        std::string text = doc.ToString();
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    SetLabel(state, bytes);
}

void BM_WriteOursPretty(benchmark::State& state)
{
    TJSON doc(Input(static_cast<int>(state.range(0))));
    size_t bytes = 0;
    for (auto _ : state)
    {
        int level = 0;
        std::string text = doc.ToString(&level);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    SetLabel(state, bytes);
}

void BM_WriteNlohmann(benchmark::State& state)
{
    json doc = json::parse(Input(static_cast<int>(state.range(0))));
    size_t bytes = 0;
    for (auto _ : state)
    {
        std::string text = doc.dump();
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    SetLabel(state, bytes);
}

void BM_WriteRapidJson(benchmark::State& state)
{
    rapidjson::Document doc;
    doc.Parse<rapidjson::kParseFullPrecisionFlag>(Input(static_cast<int>(state.range(0))).c_str());
    size_t bytes = 0;
    for (auto _ : state)
    {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        doc.Accept(writer);
        bytes = buffer.GetSize();
        benchmark::DoNotOptimize(buffer.GetString());
    }
    SetLabel(state, bytes);
}
}  // namespace

BENCHMARK(BM_ParseOurs)->Arg(0)->Arg(1);
BENCHMARK(BM_ParseNlohmann)->Arg(0)->Arg(1);
BENCHMARK(BM_ParseRapidJson)->Arg(0)->Arg(1);
BENCHMARK(BM_WriteOursCompact)->Arg(0)->Arg(1);
BENCHMARK(BM_WriteOursPretty)->Arg(0)->Arg(1);
BENCHMARK(BM_WriteNlohmann)->Arg(0)->Arg(1);
BENCHMARK(BM_WriteRapidJson)->Arg(0)->Arg(1);
