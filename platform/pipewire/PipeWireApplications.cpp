#include "platform/pipewire/PipeWireApplications.h"

#include "portable-core/DRAVLog.h"

#if TIDEMIX_HAVE_PIPEWIRE

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <system_error>

#include "platform/pipewire/PipeWireContext.h"

namespace tidemix::platform::pipewire
{
namespace
{
constexpr int kRoundTripSeconds = 5;
const char* const kDevicePrefix = "tidemix-app.";
const char* const kTargetKey = "target.node";

std::string Lookup(const spa_dict* dict, const char* key)
{
    const char* value = dict != nullptr ? spa_dict_lookup(dict, key) : nullptr;
    return value != nullptr ? value : "";
}

// A node name of the identifier's characters that node names may hold.
std::string DeviceNameFor(const std::string& identifier)
{
    std::string name = kDevicePrefix;
    for (char c : identifier)
    {
        name += (std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_') ? c : '_';
    }
    return name;
}

std::string ProgramName()
{
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : path.filename().string();
}
}  // namespace

struct PipeWireApplications::Impl
{
    struct Client
    {
        Impl* owner = nullptr;
        uint32_t id = 0;
        pw_proxy* proxy = nullptr;
        spa_hook listener{};
        std::string identifier;  // empty until its info came, or when it has none
        std::string name;
        bool playsAudio = false;
    };

    // A capture device this client made; lives on the loop thread.
    struct Device
    {
        Impl* owner = nullptr;
        std::string identifier;
        pw_proxy* proxy = nullptr;
        spa_hook listener{};
        uint32_t boundId = SPA_ID_INVALID;
    };

    std::shared_ptr<PipeWireContext> context;

    // Loop thread, or under the loop's lock.
    pw_registry* registry = nullptr;
    spa_hook registryListener{};
    std::map<uint32_t, std::unique_ptr<Client>> clients;
    std::map<uint32_t, uint32_t> playbackStreams;  // stream node -> client
    pw_metadata* metadata = nullptr;
    uint32_t metadataId = SPA_ID_INVALID;
    spa_hook metadataListener{};
    std::map<std::string, std::unique_ptr<Device>> devices;  // by node name

    // What other threads read.
    std::mutex snapshotMutex;
    std::vector<RunningApplication> running;

    // Recursive: a listener may remove itself while it runs.
    std::recursive_mutex listenerMutex;
    std::map<uint64_t, Listener> listeners;
    uint64_t nextToken = 1;

    ~Impl() { Teardown(); }

    bool Start()
    {
        PipeWireContext::Lock lock(*context);
        registry = pw_core_get_registry(context->Core(), PW_VERSION_REGISTRY, 0);
        if (registry == nullptr)
        {
            return false;
        }
        static const pw_registry_events kEvents = []
        {
            pw_registry_events events{};
            events.version = PW_VERSION_REGISTRY_EVENTS;
            events.global = &Impl::OnGlobal;
            events.global_remove = &Impl::OnGlobalRemove;
            return events;
        }();
        pw_registry_add_listener(registry, &registryListener, &kEvents, this);
        return true;
    }

    void Teardown()
    {
        if (!context)
        {
            return;
        }
        PipeWireContext::Lock lock(*context);
        for (auto& [name, device] : devices)
        {
            DestroyDevice(*device);
        }
        devices.clear();
        for (auto& [id, client] : clients)
        {
            DestroyClient(*client);
        }
        clients.clear();
        if (metadata != nullptr)
        {
            spa_hook_remove(&metadataListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata));
            metadata = nullptr;
        }
        if (registry != nullptr)
        {
            spa_hook_remove(&registryListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
            registry = nullptr;
        }
    }

    static void DestroyClient(Client& client)
    {
        if (client.proxy != nullptr)
        {
            spa_hook_remove(&client.listener);
            pw_proxy_destroy(client.proxy);
            client.proxy = nullptr;
        }
    }

    static void DestroyDevice(Device& device)
    {
        if (device.proxy != nullptr)
        {
            spa_hook_remove(&device.listener);
            pw_proxy_destroy(device.proxy);
            device.proxy = nullptr;
        }
    }

    static void OnGlobal(void* data, uint32_t id, uint32_t /*permissions*/, const char* type,
                         uint32_t /*version*/, const spa_dict* props)
    {
        auto* self = static_cast<Impl*>(data);
        if (strcmp(type, PW_TYPE_INTERFACE_Client) == 0)
        {
            self->AddClient(id);
        }
        else if (strcmp(type, PW_TYPE_INTERFACE_Node) == 0 &&
                 Lookup(props, PW_KEY_MEDIA_CLASS) == "Stream/Output/Audio")
        {
            const std::string client = Lookup(props, PW_KEY_CLIENT_ID);
            if (client.empty())
            {
                return;
            }
            const auto clientId = static_cast<uint32_t>(strtoul(client.c_str(), nullptr, 10));
            self->playbackStreams[id] = clientId;
            if (auto found = self->clients.find(clientId); found != self->clients.end())
            {
                found->second->playsAudio = true;
                self->RouteStream(id, found->second->identifier);
            }
            self->Republish();
        }
        else if (strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0 &&
                 Lookup(props, PW_KEY_METADATA_NAME) == "default")
        {
            self->BindMetadata(id);
        }
    }

    static void OnGlobalRemove(void* data, uint32_t id)
    {
        auto* self = static_cast<Impl*>(data);
        if (auto client = self->clients.find(id); client != self->clients.end())
        {
            DestroyClient(*client->second);
            self->clients.erase(client);
            std::erase_if(self->playbackStreams, [id](const auto& stream) { return stream.second == id; });
            self->Republish();
        }
        else if (self->playbackStreams.erase(id) > 0)
        {
            self->Republish();
        }
        else if (id == self->metadataId && self->metadata != nullptr)
        {
            spa_hook_remove(&self->metadataListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(self->metadata));
            self->metadata = nullptr;
            self->metadataId = SPA_ID_INVALID;
        }
    }

    void AddClient(uint32_t id)
    {
        auto client = std::make_unique<Client>();
        client->owner = this;
        client->id = id;
        client->proxy = static_cast<pw_proxy*>(
            pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0));
        if (client->proxy == nullptr)
        {
            return;
        }
        static const pw_client_events kClientEvents = []
        {
            pw_client_events events{};
            events.version = PW_VERSION_CLIENT_EVENTS;
            events.info = &Impl::OnClientInfo;
            return events;
        }();
        pw_proxy_add_object_listener(client->proxy, &client->listener, &kClientEvents, client.get());
        // A stream may have been announced before its client's info.
        client->playsAudio = std::any_of(playbackStreams.begin(), playbackStreams.end(),
                                         [id](const auto& stream) { return stream.second == id; });
        clients[id] = std::move(client);
    }

    static void OnClientInfo(void* data, const pw_client_info* info)
    {
        auto* client = static_cast<Client*>(data);
        if (info == nullptr || (info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0)
        {
            return;
        }
        std::string identifier = Lookup(info->props, PW_KEY_APP_ID);
        if (identifier.empty())
        {
            identifier = Lookup(info->props, PW_KEY_APP_PROCESS_BINARY);
        }
        client->identifier = identifier;
        client->name = Lookup(info->props, PW_KEY_APP_NAME);
        if (client->name.empty())
        {
            client->name = identifier;
        }
        Impl* self = client->owner;
        for (const auto& [stream, clientId] : self->playbackStreams)
        {
            if (clientId == client->id)
            {
                self->RouteStream(stream, identifier);
            }
        }
        self->Republish();
    }

    void BindMetadata(uint32_t id)
    {
        if (metadata != nullptr)
        {
            return;
        }
        metadata = static_cast<pw_metadata*>(
            pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
        if (metadata == nullptr)
        {
            return;
        }
        metadataId = id;
        // Nothing to hear: the metadata is only written to.
        static const pw_metadata_events kMetadataEvents = []
        {
            pw_metadata_events events{};
            events.version = PW_VERSION_METADATA_EVENTS;
            return events;
        }();
        pw_metadata_add_listener(metadata, &metadataListener, &kMetadataEvents, this);
    }

    // Points a playback stream at the capture device of its application, if
    // there is one. Loop thread or under the lock.
    void RouteStream(uint32_t stream, const std::string& identifier)
    {
        if (metadata == nullptr || identifier.empty())
        {
            return;
        }
        for (const auto& [name, device] : devices)
        {
            if (device->identifier == identifier && device->boundId != SPA_ID_INVALID)
            {
                const std::string target = std::to_string(device->boundId);
                pw_metadata_set_property(metadata, stream, kTargetKey, "Spa:Id", target.c_str());
            }
        }
    }

    // Lets the session manager link the application's streams to the default
    // output again. Under the lock.
    void ReleaseStreams(const std::string& identifier)
    {
        if (metadata == nullptr)
        {
            return;
        }
        for (const auto& [stream, clientId] : playbackStreams)
        {
            auto client = clients.find(clientId);
            if (client != clients.end() && client->second->identifier == identifier)
            {
                pw_metadata_set_property(metadata, stream, kTargetKey, nullptr, nullptr);
            }
        }
    }

    void RouteApplication(const std::string& identifier)
    {
        for (const auto& [stream, clientId] : playbackStreams)
        {
            auto client = clients.find(clientId);
            if (client != clients.end() && client->second->identifier == identifier)
            {
                RouteStream(stream, identifier);
            }
        }
    }

    // The applications now: clients that play audio, merged by identifier,
    // in the order of their first client. Fires launch and end. Loop thread.
    void Republish()
    {
        std::vector<RunningApplication> now;
        for (const auto& [id, client] : clients)
        {
            if (!client->playsAudio || client->identifier.empty() ||
                std::any_of(now.begin(), now.end(),
                            [&](const RunningApplication& a) { return a.identifier == client->identifier; }))
            {
                continue;
            }
            now.push_back({client->identifier, client->name, ApplicationPolicy::Regular});
        }
        std::vector<std::pair<ApplicationEvent, RunningApplication>> events;
        {
            std::lock_guard lock(snapshotMutex);
            auto contains = [](const std::vector<RunningApplication>& list, const RunningApplication& app)
            {
                return std::any_of(list.begin(), list.end(),
                                   [&](const RunningApplication& a)
                                   { return a.identifier == app.identifier; });
            };
            for (const auto& app : running)
            {
                if (!contains(now, app))
                {
                    events.emplace_back(ApplicationEvent::Terminated, app);
                }
            }
            for (const auto& app : now)
            {
                if (!contains(running, app))
                {
                    events.emplace_back(ApplicationEvent::Launched, app);
                }
            }
            running = std::move(now);
        }
        for (const auto& [event, app] : events)
        {
            Fire(event, app);
        }
    }

    void Fire(ApplicationEvent event, const RunningApplication& application)
    {
        std::lock_guard lock(listenerMutex);
        std::vector<uint64_t> tokens;
        for (const auto& [token, listener] : listeners)
        {
            tokens.push_back(token);
        }
        for (uint64_t token : tokens)
        {
            if (auto found = listeners.find(token); found != listeners.end())
            {
                Listener listener = found->second;
                listener(event, application);
            }
        }
    }

    static void OnDeviceBound(void* data, uint32_t globalId)
    {
        auto* device = static_cast<Device*>(data);
        device->boundId = globalId;
    }
};

std::unique_ptr<PipeWireApplications> PipeWireApplications::Create(std::shared_ptr<PipeWireContext> context)
{
    if (!context || !context->Connected())
    {
        return nullptr;
    }
    auto impl = std::make_shared<Impl>();
    impl->context = std::move(context);
    if (!impl->Start())
    {
        return nullptr;
    }
    // The clients and their properties, as for the device list.
    impl->context->RoundTrip(kRoundTripSeconds);
    impl->context->RoundTrip(kRoundTripSeconds);
    return std::unique_ptr<PipeWireApplications>(new PipeWireApplications(std::move(impl)));
}

PipeWireApplications::PipeWireApplications(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

PipeWireApplications::~PipeWireApplications() = default;

std::vector<RunningApplication> PipeWireApplications::Running()
{
    std::lock_guard lock(impl_->snapshotMutex);
    return impl_->running;
}

std::string PipeWireApplications::OwnIdentifier()
{
    return ProgramName();
}

uint64_t PipeWireApplications::AddListener(Listener listener)
{
    if (!listener)
    {
        return 0;
    }
    std::lock_guard lock(impl_->listenerMutex);
    const uint64_t token = impl_->nextToken++;
    impl_->listeners[token] = std::move(listener);
    return token;
}

void PipeWireApplications::RemoveListener(uint64_t token)
{
    std::lock_guard lock(impl_->listenerMutex);
    impl_->listeners.erase(token);
}

std::string PipeWireApplications::CreateCaptureDevice(const std::string& identifier, std::string* whyNot)
{
    auto fail = [whyNot](std::string why)
    {
        if (whyNot != nullptr)
        {
            *whyNot = std::move(why);
        }
        return std::string();
    };
    std::string name;
    {
        std::lock_guard lock(impl_->snapshotMutex);
        const auto found =
            std::find_if(impl_->running.begin(), impl_->running.end(),
                         [&](const RunningApplication& a) { return a.identifier == identifier; });
        if (found == impl_->running.end())
        {
            return fail("\"" + identifier + "\" plays no audio on PipeWire");
        }
        name = found->name;
    }
    if (!impl_->context->Connected())
    {
        return fail("the PipeWire daemon is gone");
    }
    const std::string uid = DeviceNameFor(identifier);
    {
        PipeWireContext::Lock lock(*impl_->context);
        if (impl_->devices.count(uid) == 0)
        {
            pw_properties* props =
                pw_properties_new("factory.name", "support.null-audio-sink", PW_KEY_NODE_NAME, uid.c_str(),
                                  PW_KEY_NODE_DESCRIPTION, name.c_str(), PW_KEY_MEDIA_CLASS, "Audio/Duplex",
                                  "audio.position", "[ FL FR ]", "audio.rate", "48000", PW_KEY_NODE_VIRTUAL,
                                  "true", PW_KEY_OBJECT_LINGER, "false", nullptr);
            auto* proxy = static_cast<pw_proxy*>(pw_core_create_object(
                impl_->context->Core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &props->dict, 0));
            pw_properties_free(props);
            if (proxy == nullptr)
            {
                return fail("PipeWire refused the null sink");
            }
            auto device = std::make_unique<Impl::Device>();
            device->owner = impl_.get();
            device->identifier = identifier;
            device->proxy = proxy;
            static const pw_proxy_events kProxyEvents = []
            {
                pw_proxy_events events{};
                events.version = PW_VERSION_PROXY_EVENTS;
                events.bound = &Impl::OnDeviceBound;
                return events;
            }();
            pw_proxy_add_listener(proxy, &device->listener, &kProxyEvents, device.get());
            impl_->devices[uid] = std::move(device);
        }
    }
    // The node's id, and the node in every snapshot of this connection.
    impl_->context->RoundTrip(kRoundTripSeconds);
    impl_->context->RoundTrip(kRoundTripSeconds);
    {
        PipeWireContext::Lock lock(*impl_->context);
        auto device = impl_->devices.find(uid);
        if (device == impl_->devices.end() || device->second->boundId == SPA_ID_INVALID)
        {
            if (device != impl_->devices.end())
            {
                Impl::DestroyDevice(*device->second);
                impl_->devices.erase(device);
            }
            return fail("the null sink for \"" + identifier + "\" did not appear");
        }
        impl_->RouteApplication(identifier);
    }
    impl_->context->RoundTrip(kRoundTripSeconds);
    return uid;
}

void PipeWireApplications::DeleteCaptureDevice(const std::string& deviceUid)
{
    {
        PipeWireContext::Lock lock(*impl_->context);
        auto device = impl_->devices.find(deviceUid);
        if (device == impl_->devices.end())
        {
            return;
        }
        impl_->ReleaseStreams(device->second->identifier);
    }
    // The session manager hears of the release before the device goes.
    impl_->context->RoundTrip(kRoundTripSeconds);
    {
        PipeWireContext::Lock lock(*impl_->context);
        auto device = impl_->devices.find(deviceUid);
        if (device != impl_->devices.end())
        {
            Impl::DestroyDevice(*device->second);
            impl_->devices.erase(device);
        }
    }
    impl_->context->RoundTrip(kRoundTripSeconds);
    impl_->context->RoundTrip(kRoundTripSeconds);
}

std::shared_ptr<ApplicationIcon> PipeWireApplications::LoadIcon(const std::string&, std::string* whyNot)
{
    if (whyNot != nullptr)
    {
        *whyNot = "PipeWire knows no icons";
    }
    return nullptr;
}

}  // namespace tidemix::platform::pipewire

#else  // no PipeWire in this build

namespace tidemix::platform::pipewire
{
struct PipeWireApplications::Impl
{
};

std::unique_ptr<PipeWireApplications> PipeWireApplications::Create(std::shared_ptr<PipeWireContext>)
{
    return nullptr;
}
PipeWireApplications::PipeWireApplications(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
PipeWireApplications::~PipeWireApplications() = default;
std::vector<RunningApplication> PipeWireApplications::Running()
{
    return {};
}
std::string PipeWireApplications::OwnIdentifier()
{
    return {};
}
uint64_t PipeWireApplications::AddListener(Listener)
{
    return 0;
}
void PipeWireApplications::RemoveListener(uint64_t) {}
std::string PipeWireApplications::CreateCaptureDevice(const std::string&, std::string* whyNot)
{
    if (whyNot != nullptr)
    {
        *whyNot = "this build has no PipeWire support";
    }
    return {};
}
void PipeWireApplications::DeleteCaptureDevice(const std::string&) {}
std::shared_ptr<ApplicationIcon> PipeWireApplications::LoadIcon(const std::string&, std::string*)
{
    return nullptr;
}
}  // namespace tidemix::platform::pipewire

#endif
