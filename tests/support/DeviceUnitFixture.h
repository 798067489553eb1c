#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "platform/Platform.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/UnitTestSupport.h"

namespace deviceunits_test
{
// A capture source with a ring on its output pin and blocks of `blockFrames`,
// on device `deviceId` (0: an empty path).
std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> MakeCaptureSource(uint32_t deviceId,
                                                                   int64_t blockFrames = 960);
// A renderer sink with blocks of 960 frames on `path`, running unless `run`
// is false.
std::shared_ptr<DRAVSinkAudioRendererAudioUnit> MakeRendererSink(const std::string& path, bool run = true);

// The ground the device units' tests stand on: the engine's test
// environment, a platform of type PlatformT in use for the test, and
// recording meters in place of level meters.
template <class PlatformT>
class DeviceUnitFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<PlatformT>();
        tidemix::platform::Platform::Use(platform_);
        formerFactory_ = DRAVUnitFactory::Install(meters_.Make());
    }
    void TearDown() override
    {
        DRAVUnitFactory::Install(formerFactory_);
        tidemix::platform::Platform::Use(nullptr);
    }

    std::shared_ptr<RecordingMeter> Meter() { return *meters_.last; }

    unittest::EngineEnvironment environment_;
    std::shared_ptr<PlatformT> platform_;
    MeterFactory meters_;
    DRAVUnitFactory formerFactory_;
};
}  // namespace deviceunits_test
