#include "platform/sim/SimAudioWorld.h"

#include <algorithm>
#include <cmath>
#include <future>

namespace tidemix::platform::sim
{

// Listeners and the lock that makes RemoveListener wait for a running call.
struct SimAudioWorld::Listeners
{
    enum class Kind : uint8_t
    {
        DeviceList,
        DefaultOutput,
    };

    std::mutex lock;
    std::map<ListenerToken, std::pair<Kind, std::function<void()>>> entries;
    ListenerToken nextToken = 1;
    // Held while listeners run; recursive so a listener may remove itself.
    std::recursive_mutex callLock;

    ListenerToken Add(Kind kind, std::function<void()> listener)
    {
        std::lock_guard guard(lock);
        const ListenerToken token = nextToken++;
        entries.emplace(token, std::make_pair(kind, std::move(listener)));
        return token;
    }

    void Remove(ListenerToken token)
    {
        {
            std::lock_guard guard(lock);
            entries.erase(token);
        }
        std::lock_guard barrier(callLock);
    }

    void Fire(Kind kind)
    {
        std::lock_guard calling(callLock);
        std::vector<ListenerToken> tokens;
        {
            std::lock_guard guard(lock);
            for (const auto& [token, entry] : entries)
            {
                if (entry.first == kind)
                {
                    tokens.push_back(token);
                }
            }
        }
        for (ListenerToken token : tokens)
        {
            std::function<void()> listener;
            {
                std::lock_guard guard(lock);
                auto found = entries.find(token);
                if (found == entries.end())
                {
                    continue;  // removed by an earlier listener
                }
                listener = found->second.second;
            }
            listener();
        }
    }
};

namespace
{
class SimCaptureStream : public CaptureStream
{
public:
    SimCaptureStream(std::shared_ptr<SimDeviceEngine> engine, CaptureCallback callback)
        : engine_(std::move(engine)), core_(std::make_unique<SimStreamCore>())
    {
        core_->capture = std::move(callback);
        engine_->Attach(core_.get());
    }
    ~SimCaptureStream() override { engine_->Detach(core_.get()); }

    DeviceStreamFormat Format() const override { return engine_->Format(); }
    DRAVResult Start() override { return engine_->StartStream(core_.get()); }
    void Stop() override { engine_->StopStream(core_.get()); }

private:
    std::shared_ptr<SimDeviceEngine> engine_;
    std::unique_ptr<SimStreamCore> core_;
};

using Resolver = std::function<std::shared_ptr<SimDeviceEngine>(uint32_t)>;

class SimPlaybackStream : public PlaybackStream
{
public:
    SimPlaybackStream(std::shared_ptr<SimDeviceEngine> engine, PlaybackCallback callback,
                      std::weak_ptr<Resolver> resolver)
        : engine_(std::move(engine)), core_(std::make_unique<SimStreamCore>()), resolver_(std::move(resolver))
    {
        core_->playback = std::move(callback);
        engine_->Attach(core_.get());
    }
    ~SimPlaybackStream() override { Engine()->Detach(core_.get()); }

    DeviceStreamFormat Format() const override { return Engine()->Format(); }
    DRAVResult Start() override { return Engine()->StartStream(core_.get()); }
    void Stop() override { Engine()->StopStream(core_.get()); }
    void SetVolume(float volume) override
    {
        core_->volume.store(std::isnan(volume) ? 0.0f : std::clamp(volume, 0.0f, 1.0f),
                            std::memory_order_relaxed);
    }
    float Volume() const override { return core_->volume.load(std::memory_order_relaxed); }

    DRAVResult MoveTo(uint32_t deviceId) override
    {
        std::shared_ptr<Resolver> resolver = resolver_.lock();
        std::shared_ptr<SimDeviceEngine> target = resolver ? (*resolver)(deviceId) : nullptr;
        if (!target)
        {
            return DRAVResult(kDRAVResultErrNotFound, "no output device %u", deviceId);
        }
        std::shared_ptr<SimDeviceEngine> current = Engine();
        if (target == current)
        {
            return kDRAVResultOk;
        }
        const bool wasStarted = core_->started.load();
        current->Detach(core_.get());
        target->Attach(core_.get());
        {
            std::lock_guard guard(engineLock_);
            engine_ = target;
        }
        return wasStarted ? target->StartStream(core_.get()) : DRAVResult(kDRAVResultOk);
    }

private:
    std::shared_ptr<SimDeviceEngine> Engine() const
    {
        std::lock_guard guard(engineLock_);
        return engine_;
    }

    mutable std::mutex engineLock_;
    std::shared_ptr<SimDeviceEngine> engine_;
    std::unique_ptr<SimStreamCore> core_;
    std::weak_ptr<Resolver> resolver_;
};

// Beyond these a format or packet size is a mistake of the test, not a device.
constexpr uint32_t kMaxPacketFrames = 65536;
constexpr uint32_t kMaxChannels = 64;
constexpr uint32_t kMaxSampleRate = 768000;

bool IsUsableFormat(const DeviceStreamFormat& format)
{
    return format.channels >= 1 && format.channels <= kMaxChannels && format.sampleRate >= 1 &&
           format.sampleRate <= kMaxSampleRate;
}

struct VirtualDevice
{
    const char* name;
    const char* uid;
};

// The devices the virtual audio driver publishes.
constexpr VirtualDevice kVirtualDevices[] = {
    {"Tidemix System", "DrovaneTidemixCh1"},      {"Tidemix Music", "DrovaneTidemixCh2"},
    {"Tidemix Browser", "DrovaneTidemixCh3"},     {"Tidemix Voice Chat", "DrovaneTidemixCh4"},
    {"Tidemix SFX", "DrovaneTidemixCh5"},         {"Tidemix Game", "DrovaneTidemixCh6"},
    {"Tidemix Aux 1", "DrovaneTidemixCh7"},       {"Tidemix Aux 2", "DrovaneTidemixCh8"},
    {"Tidemix Monitor", "DrovaneTidemixMonitor"}, {"Tidemix Stream", "DrovaneTidemixStream"},
};
}  // namespace

SimDeviceSpec SimDeviceSpec::Microphone(std::string uid, std::string name, DeviceStreamFormat format)
{
    SimDeviceSpec spec;
    spec.uid = std::move(uid);
    spec.name = std::move(name);
    spec.inputStreams = 1;
    spec.inputTerminal = TerminalKind::Microphone;
    spec.inputFormat = format;
    return spec;
}

SimDeviceSpec SimDeviceSpec::Speaker(std::string uid, std::string name, DeviceStreamFormat format)
{
    SimDeviceSpec spec;
    spec.uid = std::move(uid);
    spec.name = std::move(name);
    spec.outputStreams = 1;
    spec.outputTerminal = TerminalKind::Speaker;
    spec.outputFormat = format;
    return spec;
}

SimDeviceSpec SimDeviceSpec::Duplex(std::string uid, std::string name, DeviceStreamFormat format)
{
    SimDeviceSpec spec;
    spec.uid = std::move(uid);
    spec.name = std::move(name);
    spec.inputStreams = 1;
    spec.outputStreams = 1;
    spec.inputFormat = format;
    spec.outputFormat = format;
    return spec;
}

SimAudioWorld::SimAudioWorld()
    : listeners_(std::make_shared<Listeners>()),
      resolver_(std::make_shared<Resolver>([this](uint32_t id) { return PlaybackEngine(id); })),
      events_(std::make_shared<DplDispatchQueue>("sim.audio.events", 1))
{
}

SimAudioWorld::~SimAudioWorld()
{
    resolver_.reset();
    std::map<uint32_t, DeviceRecord> devices;
    {
        std::lock_guard guard(lock_);
        devices.swap(devices_);
    }
    for (auto& [id, record] : devices)
    {
        if (record.input)
        {
            record.input->Shutdown();
        }
        if (record.output)
        {
            record.output->Shutdown();
        }
    }
    events_.reset();
}

std::shared_ptr<SimLoopback> SimAudioWorld::MakeLoopback(const DeviceStreamFormat& format)
{
    // A second of room; the reader keeps the delay to a quarter of it.
    return std::make_shared<SimLoopback>(format.channels, std::max<uint32_t>(format.sampleRate, 1));
}

SimEngineConfig SimAudioWorld::MakeConfig(const DeviceRecord& record, SimDirection direction) const
{
    SimEngineConfig config;
    config.format = direction == SimDirection::Input ? record.spec.inputFormat : record.spec.outputFormat;
    config.packetFrames = record.spec.packetFrames;
    config.skewPpm = record.spec.skewPpm;
    config.signal = record.loopback ? SimSignal::FromLoopback(record.loopback) : record.spec.signal;
    config.faults = record.spec.faults;
    if (direction == SimDirection::Output)
    {
        config.recorder = record.recording;
        config.loopback = record.loopback;
    }
    return config;
}

uint32_t SimAudioWorld::AddDevice(SimDeviceSpec spec)
{
    bool defaultChanged = false;
    uint32_t id = 0;
    {
        std::lock_guard guard(lock_);
        id = nextId_++;
        DeviceRecord record;
        record.spec = std::move(spec);
        // Keep what the device threads size their buffers by within reason.
        record.spec.packetFrames = std::clamp<uint32_t>(record.spec.packetFrames, 1, kMaxPacketFrames);
        if (!IsUsableFormat(record.spec.inputFormat))
        {
            record.spec.inputFormat = DeviceStreamFormat{};
        }
        if (!IsUsableFormat(record.spec.outputFormat))
        {
            record.spec.outputFormat = DeviceStreamFormat{};
        }
        AudioDeviceInfo& info = record.info;
        info.id = id;
        info.uid = record.spec.uid;
        info.name = record.spec.name;
        info.inputStreams = record.spec.inputStreams;
        info.outputStreams = record.spec.outputStreams;
        info.transport = record.spec.transport;
        info.inputTerminal = record.spec.inputTerminal;
        info.outputTerminal = record.spec.outputTerminal;
        info.usb = record.spec.usb;
        info.inputFormat = record.spec.inputFormat;
        info.outputFormat = record.spec.outputFormat;
        if (record.spec.loopback && info.inputStreams > 0 && info.outputStreams > 0)
        {
            record.loopback = MakeLoopback(record.spec.outputFormat);
        }
        if (info.inputStreams > 0)
        {
            record.input = std::make_shared<SimDeviceEngine>(id, SimDirection::Input,
                                                             MakeConfig(record, SimDirection::Input));
            record.input->Launch();
        }
        if (info.outputStreams > 0)
        {
            record.output = std::make_shared<SimDeviceEngine>(id, SimDirection::Output,
                                                              MakeConfig(record, SimDirection::Output));
            record.output->Launch();
            if (!defaultOutput_)
            {
                defaultOutput_ = id;
                defaultChanged = true;
            }
        }
        devices_.emplace(id, std::move(record));
    }
    Notify(true, defaultChanged);
    return id;
}

bool SimAudioWorld::RemoveDevice(uint32_t id)
{
    DeviceRecord removed;
    bool defaultChanged = false;
    {
        std::lock_guard guard(lock_);
        auto found = devices_.find(id);
        if (found == devices_.end())
        {
            return false;
        }
        removed = std::move(found->second);
        devices_.erase(found);
        if (defaultOutput_ == id)
        {
            defaultOutput_.reset();
            for (const auto& [otherId, record] : devices_)
            {
                if (record.output)
                {
                    defaultOutput_ = otherId;
                    break;
                }
            }
            defaultChanged = true;
        }
    }
    // Outside the world's lock: a callback that is running may call back in.
    if (removed.input)
    {
        removed.input->Shutdown();
    }
    if (removed.output)
    {
        removed.output->Shutdown();
    }
    Notify(true, defaultChanged);
    return true;
}

bool SimAudioWorld::SetDefaultOutput(uint32_t id)
{
    {
        std::lock_guard guard(lock_);
        auto found = devices_.find(id);
        if (found == devices_.end() || !found->second.output)
        {
            return false;
        }
        if (defaultOutput_ == id)
        {
            return true;
        }
        defaultOutput_ = id;
    }
    Notify(false, true);
    return true;
}

bool SimAudioWorld::Reconfigure(uint32_t id, const std::function<bool(DeviceRecord&)>& change)
{
    std::lock_guard guard(lock_);
    auto found = devices_.find(id);
    if (found == devices_.end() || !change(found->second))
    {
        return false;
    }
    DeviceRecord& record = found->second;
    record.info.inputFormat = record.spec.inputFormat;
    record.info.outputFormat = record.spec.outputFormat;
    if (record.input)
    {
        record.input->Configure(MakeConfig(record, SimDirection::Input));
    }
    if (record.output)
    {
        record.output->Configure(MakeConfig(record, SimDirection::Output));
    }
    return true;
}

bool SimAudioWorld::SetInputFormat(uint32_t id, const DeviceStreamFormat& format)
{
    return Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           if (!record.input || !IsUsableFormat(format))
                           {
                               return false;
                           }
                           record.spec.inputFormat = format;
                           return true;
                       });
}

bool SimAudioWorld::SetOutputFormat(uint32_t id, const DeviceStreamFormat& format)
{
    return Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           if (!record.output || !IsUsableFormat(format))
                           {
                               return false;
                           }
                           record.spec.outputFormat = format;
                           if (record.loopback)
                           {
                               record.loopback = MakeLoopback(format);
                           }
                           return true;
                       });
}

bool SimAudioWorld::SetPacketFrames(uint32_t id, uint32_t frames)
{
    return frames > 0 && frames <= kMaxPacketFrames &&
           Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           record.spec.packetFrames = frames;
                           return true;
                       });
}

bool SimAudioWorld::SetSkewPpm(uint32_t id, double partsPerMillion)
{
    // Beyond +-10% a clock is broken, not skewed; it also keeps the rate positive.
    return std::isfinite(partsPerMillion) && std::fabs(partsPerMillion) <= 100000.0 &&
           Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           record.spec.skewPpm = partsPerMillion;
                           return true;
                       });
}

bool SimAudioWorld::SetSignal(uint32_t id, const SimSignal& signal)
{
    return Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           record.spec.signal = signal;
                           return true;
                       });
}

bool SimAudioWorld::SetFaults(uint32_t id, const SimDeviceFaults& faults)
{
    return Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           record.spec.faults = faults;
                           return true;
                       });
}

bool SimAudioWorld::StartRecording(uint32_t id, double maxSeconds)
{
    if (!(maxSeconds > 0.0) || maxSeconds > 3600.0)
    {
        return false;
    }
    return Reconfigure(id,
                       [&](DeviceRecord& record)
                       {
                           if (!record.output)
                           {
                               return false;
                           }
                           const DeviceStreamFormat& format = record.spec.outputFormat;
                           const auto capacity =
                               static_cast<size_t>(std::ceil(maxSeconds * format.sampleRate));
                           record.recording = std::make_shared<SimRecorder>(
                               format.sampleRate, std::max<uint32_t>(format.channels, 1), capacity);
                           return true;
                       });
}

void SimAudioWorld::StopRecording(uint32_t id)
{
    std::lock_guard guard(lock_);
    auto found = devices_.find(id);
    if (found != devices_.end() && found->second.output)
    {
        // The recording stays readable; the device just stops appending.
        SimEngineConfig config = MakeConfig(found->second, SimDirection::Output);
        config.recorder.reset();
        found->second.output->Configure(std::move(config));
    }
}

std::shared_ptr<SimRecorder> SimAudioWorld::Recording(uint32_t id)
{
    std::lock_guard guard(lock_);
    auto found = devices_.find(id);
    return found == devices_.end() ? nullptr : found->second.recording;
}

DRAVResult SimAudioWorld::SaveRecording(uint32_t id, const std::string& path, SampleEncoding encoding)
{
    std::shared_ptr<SimRecorder> recorder = Recording(id);
    if (!recorder)
    {
        return DRAVResult(kDRAVResultErrNotFound, "no recording of device %u", id);
    }
    return SimWavFile::Write(path, recorder->Snapshot(), encoding);
}

std::vector<uint32_t> SimAudioWorld::PublishVirtualDevices()
{
    std::vector<uint32_t> ids;
    for (const VirtualDevice& device : kVirtualDevices)
    {
        SimDeviceSpec spec = SimDeviceSpec::Duplex(device.uid, device.name);
        spec.transport = AudioTransport::Virtual;
        spec.loopback = true;
        ids.push_back(AddDevice(std::move(spec)));
    }
    return ids;
}

uint64_t SimAudioWorld::PacketsDelivered(uint32_t id, SimDirection direction)
{
    std::lock_guard guard(lock_);
    auto found = devices_.find(id);
    if (found == devices_.end())
    {
        return 0;
    }
    const auto& engine = direction == SimDirection::Input ? found->second.input : found->second.output;
    return engine ? engine->PacketsDelivered() : 0;
}

std::vector<AudioDeviceInfo> SimAudioWorld::Devices()
{
    std::lock_guard guard(lock_);
    std::vector<AudioDeviceInfo> result;
    result.reserve(devices_.size());
    for (const auto& [id, record] : devices_)
    {
        result.push_back(record.info);
    }
    return result;
}

std::optional<AudioDeviceInfo> SimAudioWorld::Device(uint32_t id)
{
    std::lock_guard guard(lock_);
    auto found = devices_.find(id);
    if (found == devices_.end())
    {
        return std::nullopt;
    }
    return found->second.info;
}

std::optional<uint32_t> SimAudioWorld::DefaultOutput()
{
    std::lock_guard guard(lock_);
    return defaultOutput_;
}

ListenerToken SimAudioWorld::AddDeviceListListener(std::function<void()> listener)
{
    return listener ? listeners_->Add(Listeners::Kind::DeviceList, std::move(listener)) : 0;
}

ListenerToken SimAudioWorld::AddDefaultOutputListener(std::function<void()> listener)
{
    return listener ? listeners_->Add(Listeners::Kind::DefaultOutput, std::move(listener)) : 0;
}

void SimAudioWorld::RemoveListener(ListenerToken token)
{
    listeners_->Remove(token);
}

void SimAudioWorld::Notify(bool deviceList, bool defaultOutput)
{
    if (!deviceList && !defaultOutput)
    {
        return;
    }
    std::shared_ptr<DplDispatchQueue> events = events_;
    if (!events)
    {
        return;
    }
    events->dispatch(
        [listeners = listeners_, deviceList, defaultOutput]
        {
            if (deviceList)
            {
                listeners->Fire(Listeners::Kind::DeviceList);
            }
            if (defaultOutput)
            {
                listeners->Fire(Listeners::Kind::DefaultOutput);
            }
        });
}

void SimAudioWorld::FlushNotifications()
{
    if (!events_ || events_->isCurrentWorker())
    {
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    events_->dispatch([done] { done->set_value(); });
    finished.wait();
}

std::unique_ptr<CaptureStream> SimAudioWorld::OpenCapture(uint32_t deviceId, CaptureCallback callback)
{
    std::shared_ptr<SimDeviceEngine> engine;
    {
        std::lock_guard guard(lock_);
        auto found = devices_.find(deviceId);
        if (found == devices_.end() || !found->second.input)
        {
            return nullptr;
        }
        engine = found->second.input;
    }
    return std::make_unique<SimCaptureStream>(std::move(engine), std::move(callback));
}

std::shared_ptr<SimDeviceEngine> SimAudioWorld::PlaybackEngine(uint32_t deviceId)
{
    std::lock_guard guard(lock_);
    if (deviceId == 0)
    {
        if (!defaultOutput_)
        {
            return nullptr;
        }
        deviceId = *defaultOutput_;
    }
    auto found = devices_.find(deviceId);
    return found == devices_.end() ? nullptr : found->second.output;
}

std::unique_ptr<PlaybackStream> SimAudioWorld::OpenPlayback(uint32_t deviceId, PlaybackCallback callback)
{
    std::shared_ptr<SimDeviceEngine> engine = PlaybackEngine(deviceId);
    if (!engine)
    {
        return nullptr;
    }
    return std::make_unique<SimPlaybackStream>(std::move(engine), std::move(callback), resolver_);
}

}  // namespace tidemix::platform::sim
