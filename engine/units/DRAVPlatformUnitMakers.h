#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "engine/units/DRAVDeviceObserverSubjectInterface.h"
#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"

// The units whose classes live above the engine (device sinks and sources,
// the preview sink), made by functions that the layers above install at
// start-up. The engine's platform hooks and its default sink ask these; a
// missing function makes nothing.
struct DRAVPlatformUnitMakers
{
    using SourceMaker = std::function<std::shared_ptr<DRAVSource>(const DRAVSourceConfig& config)>;
    using SinkMaker = std::function<std::shared_ptr<DRAVSink>(const DRAVSinkConfig& config)>;
    using FilterMaker = std::function<std::shared_ptr<DRAVFilter>(const DRAVFilterConfig& config)>;
    using SubjectsMaker = std::function<std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>()>;

    // Behind CreateSourcePlatformSpecific, CreateSinkPlatformSpecific,
    // CreateFilterPlatformSpecific and
    // RegisterDeviceObserverSubjectsPlatformSpecific.
    SourceMaker platformSource;
    SinkMaker platformSink;
    FilterMaker platformFilter;
    SubjectsMaker deviceObserverSubjects;
    // The engine's own sinks that need no platform, asked when the platform
    // makes nothing.
    SinkMaker defaultSink;

    // Installs `makers` and returns the former ones.
    static DRAVPlatformUnitMakers Install(DRAVPlatformUnitMakers makers);
    // A copy, so that no maker runs under the table's lock.
    static DRAVPlatformUnitMakers Current();
};
