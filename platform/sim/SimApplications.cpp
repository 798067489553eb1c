#include "platform/sim/SimApplications.h"

#include <algorithm>
#include <future>

#include "platform/desktop/DesktopEntries.h"
#include "platform/sim/SimAudioWorld.h"

namespace tidemix::platform::sim
{
namespace
{
constexpr uint32_t kChunkFrames = 512;
constexpr uint32_t kMaxChannels = 8;
const std::string kDevicePrefix = "tidemix-app.";
}  // namespace

// One application's playback stream and the generator behind it. The
// scratch buffers are sized here, so the device thread never allocates.
struct SimApplications::Voice
{
    Voice(const SimSignal& signal, const DeviceStreamFormat& deviceFormat)
        : format(deviceFormat),
          channels(std::clamp<uint32_t>(deviceFormat.channels, 1, kMaxChannels)),
          generator(signal, deviceFormat.sampleRate, channels),
          scratch(static_cast<size_t>(channels) * kChunkFrames)
    {
        for (uint32_t c = 0; c < channels; ++c)
        {
            planes[c] = scratch.data() + static_cast<size_t>(c) * kChunkFrames;
        }
    }
    ~Voice()
    {
        if (stream)
        {
            stream->Stop();
        }
    }

    void Render(const PlaybackRequest& request)
    {
        for (uint32_t done = 0; done < request.frames;)
        {
            const uint32_t frames = std::min(kChunkFrames, request.frames - done);
            generator.Render(planes, frames);
            for (uint32_t c = 0; c < format.channels; ++c)
            {
                const float* from = planes[std::min(c, channels - 1)];
                for (uint32_t f = 0; f < frames; ++f)
                {
                    const size_t at = format.interleaved ? (done + f) * format.channels + c : done + f;
                    const uint32_t buffer = format.interleaved ? 0 : c;
                    if (buffer >= request.bufferCount)
                    {
                        break;
                    }
                    if (format.encoding == SampleEncoding::Float32)
                    {
                        static_cast<float*>(request.buffers[buffer])[at] = from[f];
                    }
                    else
                    {
                        const float scaled = std::clamp(from[f] * 32768.0f, -32768.0f, 32767.0f);
                        static_cast<int16_t*>(request.buffers[buffer])[at] = static_cast<int16_t>(scaled);
                    }
                }
            }
            done += frames;
        }
    }

    DeviceStreamFormat format;
    uint32_t channels;
    SimSignalGenerator generator;
    std::vector<float> scratch;
    float* planes[kMaxChannels] = {};
    std::unique_ptr<PlaybackStream> stream;
};

SimApplications::SimApplications(SimAudioWorld& world)
    : world_(world), events_(std::make_unique<DplDispatchQueue>("sim.apps", 1))
{
}

// Events go first, so none runs while the rest is torn down.
SimApplications::~SimApplications()
{
    events_.reset();
    std::vector<App> running;
    {
        std::lock_guard guard(lock_);
        running.swap(running_);
    }
    running.clear();
}

std::unique_ptr<SimApplications::Voice> SimApplications::OpenVoice(const SimSignal& signal, uint32_t deviceId)
{
    if (signal.kind == SimSignal::Kind::Silence)
    {
        return nullptr;
    }
    const std::optional<uint32_t> target =
        deviceId != 0 ? std::optional<uint32_t>(deviceId) : world_.DefaultOutput();
    const std::optional<AudioDeviceInfo> device = target ? world_.Device(*target) : std::nullopt;
    if (!device || device->outputStreams == 0)
    {
        return nullptr;  // nowhere to play: the application plays into the void
    }
    auto voice = std::make_unique<Voice>(signal, device->outputFormat);
    Voice* raw = voice.get();
    voice->stream =
        world_.OpenPlayback(*target, [raw](const PlaybackRequest& request) { raw->Render(request); });
    if (!voice->stream || !voice->stream->Start().Succeeded())
    {
        return nullptr;
    }
    return voice;
}

bool SimApplications::Start(SimApplicationSpec spec)
{
    if (spec.identifier.empty())
    {
        return false;
    }
    RunningApplication application{spec.identifier, spec.name, spec.policy};
    {
        std::lock_guard guard(lock_);
        if (std::any_of(running_.begin(), running_.end(),
                        [&](const App& app) { return app.spec.identifier == spec.identifier; }))
        {
            return false;
        }
        App app;
        app.voice = OpenVoice(spec.signal, 0);
        app.spec = std::move(spec);
        running_.push_back(std::move(app));
    }
    Post(ApplicationEvent::Launched, std::move(application));
    return true;
}

bool SimApplications::Quit(const std::string& identifier)
{
    App quitting;
    {
        std::lock_guard guard(lock_);
        auto found = std::find_if(running_.begin(), running_.end(),
                                  [&](const App& app) { return app.spec.identifier == identifier; });
        if (found == running_.end())
        {
            return false;
        }
        quitting = std::move(*found);
        running_.erase(found);
        if (quitting.captureDevice != 0)
        {
            orphanDevices_[kDevicePrefix + identifier] = quitting.captureDevice;
        }
    }
    RunningApplication application{quitting.spec.identifier, quitting.spec.name, quitting.spec.policy};
    quitting.voice.reset();
    Post(ApplicationEvent::Terminated, std::move(application));
    return true;
}

void SimApplications::SetOwnIdentifier(std::string identifier)
{
    std::lock_guard guard(lock_);
    ownIdentifier_ = std::move(identifier);
}

void SimApplications::Install(InstalledApplication application)
{
    std::lock_guard guard(lock_);
    std::string identifier = application.identifier;
    installed_[identifier] = std::move(application);
}

void SimApplications::SetUrlHandler(const std::string& scheme, const std::string& identifier)
{
    std::lock_guard guard(lock_);
    urlHandlers_[scheme] = identifier;
}

std::vector<std::string> SimApplications::LaunchRequests() const
{
    std::lock_guard guard(lock_);
    return launchRequests_;
}

std::optional<uint32_t> SimApplications::SoundDevice(const std::string& identifier) const
{
    std::lock_guard guard(lock_);
    for (const App& app : running_)
    {
        if (app.spec.identifier == identifier)
        {
            return app.captureDevice;
        }
    }
    return std::nullopt;
}

int SimApplications::CaptureDevicesCreated() const
{
    std::lock_guard guard(lock_);
    return devicesCreated_;
}

void SimApplications::FlushNotifications()
{
    if (events_->isCurrentWorker())
    {
        return;
    }
    std::promise<void> reached;
    events_->dispatch([&reached] { reached.set_value(); });
    reached.get_future().wait();
}

std::vector<RunningApplication> SimApplications::Running()
{
    std::lock_guard guard(lock_);
    std::vector<RunningApplication> result;
    for (const App& app : running_)
    {
        result.push_back({app.spec.identifier, app.spec.name, app.spec.policy});
    }
    return result;
}

std::string SimApplications::OwnIdentifier()
{
    std::lock_guard guard(lock_);
    return ownIdentifier_;
}

uint64_t SimApplications::AddListener(Listener listener)
{
    if (!listener)
    {
        return 0;
    }
    std::lock_guard guard(listenerLock_);
    const uint64_t token = nextListener_++;
    listeners_.emplace(token, std::move(listener));
    return token;
}

void SimApplications::RemoveListener(uint64_t token)
{
    std::lock_guard guard(listenerLock_);
    listeners_.erase(token);
}

void SimApplications::Post(ApplicationEvent event, RunningApplication application)
{
    events_->dispatch(
        [this, event, application = std::move(application)]
        {
            std::lock_guard guard(listenerLock_);
            std::vector<uint64_t> tokens;
            for (const auto& [token, listener] : listeners_)
            {
                tokens.push_back(token);
            }
            for (uint64_t token : tokens)
            {
                // One removed by an earlier listener isn't called.
                if (auto found = listeners_.find(token); found != listeners_.end())
                {
                    Listener listener = found->second;
                    listener(event, application);
                }
            }
        });
}

std::string SimApplications::CreateCaptureDevice(const std::string& identifier, std::string* whyNot)
{
    std::unique_lock guard(lock_);
    auto found = std::find_if(running_.begin(), running_.end(),
                              [&](const App& app) { return app.spec.identifier == identifier; });
    if (found == running_.end())
    {
        if (whyNot != nullptr)
        {
            *whyNot = "\"" + identifier + "\" doesn't run";
        }
        return {};
    }
    const std::string uid = kDevicePrefix + identifier;
    if (found->captureDevice != 0)
    {
        return uid;
    }
    SimDeviceSpec spec = SimDeviceSpec::Duplex(uid, found->spec.name);
    spec.transport = AudioTransport::Virtual;
    spec.loopback = true;
    const SimSignal signal = found->spec.signal;
    guard.unlock();
    // Outside the lock: the world's listeners may call back in.
    const uint32_t device = world_.AddDevice(std::move(spec));
    // The device-list listeners have heard of it when this returns, as a
    // caller that closes its own listener's gate around the call expects.
    world_.FlushNotifications();
    std::unique_ptr<Voice> voice = OpenVoice(signal, device);
    guard.lock();
    ++devicesCreated_;
    found = std::find_if(running_.begin(), running_.end(),
                         [&](const App& app) { return app.spec.identifier == identifier; });
    if (found == running_.end())
    {
        orphanDevices_[uid] = device;  // quit meanwhile: the device stays until deleted
        return uid;
    }
    found->captureDevice = device;
    std::swap(found->voice, voice);
    guard.unlock();
    voice.reset();  // the former voice, on the default output
    return uid;
}

void SimApplications::DeleteCaptureDevice(const std::string& deviceUid)
{
    uint32_t device = 0;
    SimSignal signal;
    bool running = false;
    {
        std::lock_guard guard(lock_);
        if (auto orphan = orphanDevices_.find(deviceUid); orphan != orphanDevices_.end())
        {
            device = orphan->second;
            orphanDevices_.erase(orphan);
        }
        for (App& app : running_)
        {
            if (app.captureDevice != 0 && kDevicePrefix + app.spec.identifier == deviceUid)
            {
                device = app.captureDevice;
                signal = app.spec.signal;
                running = true;
            }
        }
    }
    if (device == 0)
    {
        return;
    }
    // Back to the default output first, so the sound never stops.
    std::unique_ptr<Voice> voice = running ? OpenVoice(signal, 0) : nullptr;
    {
        std::lock_guard guard(lock_);
        for (App& app : running_)
        {
            if (app.captureDevice == device)
            {
                app.captureDevice = 0;
                std::swap(app.voice, voice);
            }
        }
    }
    voice.reset();
    world_.RemoveDevice(device);
}

std::optional<InstalledApplication> SimApplications::FindInstalled(const std::string& identifier)
{
    std::lock_guard guard(lock_);
    auto found = installed_.find(identifier);
    return found == installed_.end() ? std::nullopt : std::optional<InstalledApplication>(found->second);
}

std::optional<InstalledApplication> SimApplications::ApplicationForUrl(const std::string& url)
{
    const size_t colon = url.find(':');
    std::string identifier;
    {
        std::lock_guard guard(lock_);
        auto handler =
            colon == std::string::npos ? urlHandlers_.end() : urlHandlers_.find(url.substr(0, colon));
        if (handler == urlHandlers_.end())
        {
            return std::nullopt;
        }
        identifier = handler->second;
    }
    return FindInstalled(identifier);
}

std::shared_ptr<ApplicationIcon> SimApplications::LoadIcon(const std::string& path, std::string* whyNot)
{
    // Icons are real files even in the simulation, decoded as the desktop does.
    return desktop::DesktopEntries::LoadIcon(path, whyNot);
}

bool SimApplications::Launch(const std::string& identifier)
{
    std::optional<InstalledApplication> installed = FindInstalled(identifier);
    {
        std::lock_guard guard(lock_);
        launchRequests_.push_back(identifier);
    }
    if (!installed)
    {
        return false;
    }
    Start(SimApplicationSpec{identifier, installed->name, ApplicationPolicy::Regular, SimSignal::Silence()});
    return true;
}

}  // namespace tidemix::platform::sim
