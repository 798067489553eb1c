#include "platform/pipewire/PipeWireAudioSystem.h"

#if TIDEMIX_HAVE_PIPEWIRE

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/pipewire/PipeWireApplications.h"
#include "platform/pipewire/PipeWireCaptureStream.h"
#include "platform/pipewire/PipeWireContext.h"
#include "platform/pipewire/PipeWireDeviceMapping.h"
#include "platform/pipewire/PipeWirePlaybackStream.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform::pipewire
{
namespace
{
constexpr int kSnapshotTimeoutSeconds = 5;

PropertyMap ToPropertyMap(const spa_dict* dict)
{
    PropertyMap map;
    if (dict == nullptr)
    {
        return map;
    }
    const spa_dict_item* item;
    spa_dict_for_each(item, dict)
    {
        if (item->key != nullptr && item->value != nullptr)
        {
            map.emplace(item->key, item->value);
        }
    }
    return map;
}

bool SameDevice(const AudioDeviceInfo& a, const AudioDeviceInfo& b)
{
    return a.id == b.id && a.uid == b.uid && a.name == b.name && a.inputStreams == b.inputStreams &&
           a.outputStreams == b.outputStreams && a.transport == b.transport &&
           a.inputTerminal == b.inputTerminal && a.outputTerminal == b.outputTerminal && a.usb == b.usb &&
           a.inputFormat == b.inputFormat && a.outputFormat == b.outputFormat;
}

bool SameDevices(const std::vector<AudioDeviceInfo>& a, const std::vector<AudioDeviceInfo>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), SameDevice);
}

std::string Lookup(const PropertyMap& map, const char* key)
{
    auto it = map.find(key);
    return it != map.end() ? it->second : std::string();
}
}  // namespace

struct PipeWireAudioSystem::Impl
{
    enum class ObjectKind
    {
        Node,
        Device,
        Metadata,
    };

    // A registry object we bound to learn its full properties. Lives on the
    // loop thread; its address is stable (held by unique_ptr).
    struct BoundObject
    {
        Impl* owner = nullptr;
        ObjectKind kind = ObjectKind::Node;
        uint32_t id = 0;
        pw_proxy* proxy = nullptr;
        spa_hook objectListener{};
        PropertyMap props;
        bool haveInfo = false;
    };

    struct Listener
    {
        bool deviceList = true;
        std::shared_ptr<std::function<void()>> call;
    };

    std::shared_ptr<PipeWireContext> context;

    // Loop thread (or under the loop's lock).
    pw_registry* registry = nullptr;
    spa_hook registryListener{};
    std::map<uint32_t, std::unique_ptr<BoundObject>> objects;
    std::string defaultSinkName;

    // What the other threads read.
    std::mutex snapshotMutex;
    std::vector<AudioDeviceInfo> snapshot;
    std::map<uint32_t, StreamTarget> targets;
    std::optional<uint32_t> defaultOutput;

    // Recursive: a listener may remove itself (or another) while it runs.
    std::recursive_mutex listenerMutex;
    std::map<ListenerToken, Listener> listeners;
    ListenerToken nextToken = 1;

    ~Impl() { Teardown(); }

    bool Start()
    {
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
        }
        context->SetConnectionLostHandler([this](const std::string&) { OnConnectionLost(); });
        return true;
    }

    void Teardown()
    {
        if (!context)
        {
            return;
        }
        context->SetConnectionLostHandler(nullptr);
        PipeWireContext::Lock lock(*context);
        for (auto& [id, object] : objects)
        {
            DestroyObject(*object);
        }
        objects.clear();
        if (registry != nullptr)
        {
            spa_hook_remove(&registryListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
            registry = nullptr;
        }
        std::lock_guard listenerLock(listenerMutex);
        listeners.clear();
    }

    static void DestroyObject(BoundObject& object)
    {
        if (object.proxy != nullptr)
        {
            spa_hook_remove(&object.objectListener);
            pw_proxy_destroy(object.proxy);
            object.proxy = nullptr;
        }
    }

    // Registry events, on the loop thread.
    static void OnGlobal(void* data, uint32_t id, uint32_t /*permissions*/, const char* type,
                         uint32_t /*version*/, const spa_dict* props)
    {
        auto* self = static_cast<Impl*>(data);
        const char* mediaClass = props != nullptr ? spa_dict_lookup(props, PW_KEY_MEDIA_CLASS) : nullptr;
        std::unique_ptr<BoundObject> object = std::make_unique<BoundObject>();
        object->owner = self;
        object->id = id;
        if (strcmp(type, PW_TYPE_INTERFACE_Node) == 0)
        {
            if (mediaClass == nullptr || !PipeWireDeviceMapping::IsAudioDeviceClass(mediaClass))
            {
                return;
            }
            object->kind = ObjectKind::Node;
            object->proxy =
                static_cast<pw_proxy*>(pw_registry_bind(self->registry, id, type, PW_VERSION_NODE, 0));
            static const pw_node_events kNodeEvents = []
            {
                pw_node_events events{};
                events.version = PW_VERSION_NODE_EVENTS;
                events.info = &Impl::OnNodeInfo;
                return events;
            }();
            if (object->proxy != nullptr)
            {
                pw_proxy_add_object_listener(object->proxy, &object->objectListener, &kNodeEvents,
                                             object.get());
            }
        }
        else if (strcmp(type, PW_TYPE_INTERFACE_Device) == 0)
        {
            if (mediaClass == nullptr || strcmp(mediaClass, "Audio/Device") != 0)
            {
                return;
            }
            object->kind = ObjectKind::Device;
            object->proxy =
                static_cast<pw_proxy*>(pw_registry_bind(self->registry, id, type, PW_VERSION_DEVICE, 0));
            static const pw_device_events kDeviceEvents = []
            {
                pw_device_events events{};
                events.version = PW_VERSION_DEVICE_EVENTS;
                events.info = &Impl::OnDeviceInfo;
                return events;
            }();
            if (object->proxy != nullptr)
            {
                pw_proxy_add_object_listener(object->proxy, &object->objectListener, &kDeviceEvents,
                                             object.get());
            }
        }
        else if (strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0)
        {
            const char* name = props != nullptr ? spa_dict_lookup(props, PW_KEY_METADATA_NAME) : nullptr;
            if (name == nullptr || strcmp(name, "default") != 0)
            {
                return;
            }
            object->kind = ObjectKind::Metadata;
            object->proxy =
                static_cast<pw_proxy*>(pw_registry_bind(self->registry, id, type, PW_VERSION_METADATA, 0));
            static const pw_metadata_events kMetadataEvents = []
            {
                pw_metadata_events events{};
                events.version = PW_VERSION_METADATA_EVENTS;
                events.property = &Impl::OnMetadataProperty;
                return events;
            }();
            if (object->proxy != nullptr)
            {
                pw_proxy_add_object_listener(object->proxy, &object->objectListener, &kMetadataEvents,
                                             object.get());
            }
        }
        else
        {
            return;
        }
        if (object->proxy == nullptr)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "PipeWire: cannot follow object %u (%s)", id, type);
            return;
        }
        self->objects[id] = std::move(object);
    }

    static void OnGlobalRemove(void* data, uint32_t id)
    {
        auto* self = static_cast<Impl*>(data);
        auto it = self->objects.find(id);
        if (it == self->objects.end())
        {
            return;
        }
        const bool wasMetadata = it->second->kind == ObjectKind::Metadata;
        DestroyObject(*it->second);
        self->objects.erase(it);
        if (wasMetadata)
        {
            self->defaultSinkName.clear();
        }
        self->Republish();
    }

    static void OnNodeInfo(void* data, const pw_node_info* info)
    {
        auto* object = static_cast<BoundObject*>(data);
        if (info == nullptr || (info->change_mask & PW_NODE_CHANGE_MASK_PROPS) == 0)
        {
            return;
        }
        object->props = ToPropertyMap(info->props);
        object->haveInfo = true;
        object->owner->Republish();
    }

    static void OnDeviceInfo(void* data, const pw_device_info* info)
    {
        auto* object = static_cast<BoundObject*>(data);
        if (info == nullptr || (info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS) == 0)
        {
            return;
        }
        object->props = ToPropertyMap(info->props);
        object->haveInfo = true;
        object->owner->Republish();
    }

    static int OnMetadataProperty(void* data, uint32_t subject, const char* key, const char* /*type*/,
                                  const char* value)
    {
        auto* object = static_cast<BoundObject*>(data);
        Impl* self = object->owner;
        if (subject != PW_ID_CORE)
        {
            return 0;
        }
        if (key == nullptr || strcmp(key, "default.audio.sink") == 0)
        {
            std::optional<std::string> name =
                value != nullptr ? PipeWireDeviceMapping::DefaultNodeName(value) : std::nullopt;
            self->defaultSinkName = name.value_or(std::string());
            self->Republish();
        }
        return 0;
    }

    // Builds the snapshot from what the registry told; fires the listeners
    // of what changed. Loop thread.
    void Republish()
    {
        std::vector<AudioDeviceInfo> devices;
        std::map<uint32_t, StreamTarget> newTargets;
        std::optional<uint32_t> newDefault;
        static const PropertyMap kNoDevice;
        for (const auto& [id, object] : objects)
        {
            if (object->kind != ObjectKind::Node || !object->haveInfo)
            {
                continue;
            }
            const PropertyMap* deviceProps = &kNoDevice;
            std::string deviceId = Lookup(object->props, PW_KEY_DEVICE_ID);
            if (!deviceId.empty())
            {
                auto device = objects.find(static_cast<uint32_t>(strtoul(deviceId.c_str(), nullptr, 10)));
                if (device != objects.end() && device->second->kind == ObjectKind::Device)
                {
                    deviceProps = &device->second->props;
                }
            }
            std::optional<AudioDeviceInfo> info =
                PipeWireDeviceMapping::DeviceFromNode(id, object->props, *deviceProps);
            if (!info)
            {
                continue;
            }
            StreamTarget target;
            target.serial = Lookup(object->props, PW_KEY_OBJECT_SERIAL);
            target.nodeName = info->uid;
            target.displayName = info->name;
            // A duplex node records what is played into it: its monitor.
            target.captureFromSink = Lookup(object->props, PW_KEY_MEDIA_CLASS) == "Audio/Duplex";
            newTargets[id] = std::move(target);
            if (!defaultSinkName.empty() && info->uid == defaultSinkName && info->outputStreams > 0)
            {
                newDefault = id;
            }
            devices.push_back(std::move(*info));
        }
        Publish(std::move(devices), std::move(newTargets), newDefault);
    }

    void Publish(std::vector<AudioDeviceInfo> devices, std::map<uint32_t, StreamTarget> newTargets,
                 std::optional<uint32_t> newDefault)
    {
        bool listChanged = false;
        bool defaultChanged = false;
        {
            std::lock_guard lock(snapshotMutex);
            listChanged = !SameDevices(snapshot, devices);
            defaultChanged = defaultOutput != newDefault;
            snapshot = std::move(devices);
            targets = std::move(newTargets);
            defaultOutput = newDefault;
        }
        if (listChanged)
        {
            Fire(true);
        }
        if (defaultChanged)
        {
            Fire(false);
        }
    }

    void OnConnectionLost() { Publish({}, {}, std::nullopt); }

    void Fire(bool deviceList)
    {
        std::lock_guard lock(listenerMutex);
        std::vector<ListenerToken> tokens;
        for (const auto& [token, listener] : listeners)
        {
            if (listener.deviceList == deviceList)
            {
                tokens.push_back(token);
            }
        }
        for (ListenerToken token : tokens)
        {
            auto it = listeners.find(token);
            if (it == listeners.end())
            {
                continue;
            }
            std::shared_ptr<std::function<void()>> call = it->second.call;
            (*call)();
        }
    }

    ListenerToken AddListener(bool deviceList, std::function<void()> call)
    {
        if (!call)
        {
            return 0;
        }
        std::lock_guard lock(listenerMutex);
        ListenerToken token = nextToken++;
        listeners[token] = Listener{deviceList, std::make_shared<std::function<void()>>(std::move(call))};
        return token;
    }

    std::optional<StreamTarget> TargetFor(uint32_t deviceId, bool capture)
    {
        std::lock_guard lock(snapshotMutex);
        auto device = std::find_if(snapshot.begin(), snapshot.end(),
                                   [&](const AudioDeviceInfo& info) { return info.id == deviceId; });
        auto target = targets.find(deviceId);
        if (device == snapshot.end() || target == targets.end())
        {
            return std::nullopt;
        }
        if ((capture ? device->inputStreams : device->outputStreams) == 0)
        {
            return std::nullopt;
        }
        StreamTarget result = target->second;
        if (!capture)
        {
            result.captureFromSink = false;
        }
        return result;
    }
};

bool PipeWireAudioSystem::Available()
{
    return true;
}

std::unique_ptr<PipeWireAudioSystem> PipeWireAudioSystem::Connect(const std::string& remoteName,
                                                                  std::string* whyNot)
{
    std::shared_ptr<PipeWireContext> context = PipeWireContext::Connect(remoteName, whyNot);
    if (!context)
    {
        return nullptr;
    }
    auto impl = std::make_shared<Impl>();
    impl->context = std::move(context);
    if (!impl->Start())
    {
        if (whyNot != nullptr)
        {
            *whyNot = "cannot read the PipeWire registry";
        }
        return nullptr;
    }
    std::unique_ptr<PipeWireAudioSystem> system(new PipeWireAudioSystem(std::move(impl)));
    if (!system->Synchronize(kSnapshotTimeoutSeconds))
    {
        if (whyNot != nullptr)
        {
            *whyNot = "the PipeWire daemon did not answer";
        }
        return nullptr;
    }
    return system;
}

PipeWireAudioSystem::PipeWireAudioSystem(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

PipeWireAudioSystem::~PipeWireAudioSystem() = default;

bool PipeWireAudioSystem::Connected() const
{
    return impl_->context->Connected();
}

std::unique_ptr<Applications> PipeWireAudioSystem::CreateApplications()
{
    return PipeWireApplications::Create(impl_->context);
}

bool PipeWireAudioSystem::Synchronize(int timeoutSeconds)
{
    // The first round trip brings every announced object and the binds we
    // made for them; the second brings their properties.
    return impl_->context->RoundTrip(timeoutSeconds) && impl_->context->RoundTrip(timeoutSeconds);
}

std::vector<AudioDeviceInfo> PipeWireAudioSystem::Devices()
{
    std::lock_guard lock(impl_->snapshotMutex);
    return impl_->snapshot;
}

std::optional<uint32_t> PipeWireAudioSystem::DefaultOutput()
{
    std::lock_guard lock(impl_->snapshotMutex);
    return impl_->defaultOutput;
}

ListenerToken PipeWireAudioSystem::AddDeviceListListener(std::function<void()> listener)
{
    return impl_->AddListener(true, std::move(listener));
}

ListenerToken PipeWireAudioSystem::AddDefaultOutputListener(std::function<void()> listener)
{
    return impl_->AddListener(false, std::move(listener));
}

void PipeWireAudioSystem::RemoveListener(ListenerToken token)
{
    // Waits for a listener that is running on PipeWire's thread.
    std::lock_guard lock(impl_->listenerMutex);
    impl_->listeners.erase(token);
}

std::unique_ptr<CaptureStream> PipeWireAudioSystem::OpenCapture(uint32_t deviceId, CaptureCallback callback)
{
    std::optional<StreamTarget> target = impl_->TargetFor(deviceId, true);
    if (!target || !Connected())
    {
        return nullptr;
    }
    return std::make_unique<PipeWireCaptureStream>(impl_->context, std::move(*target), std::move(callback));
}

std::unique_ptr<PlaybackStream> PipeWireAudioSystem::OpenPlayback(uint32_t deviceId,
                                                                  PlaybackCallback callback)
{
    if (!Connected())
    {
        return nullptr;
    }
    std::weak_ptr<Impl> weak = impl_;
    auto resolve = [weak](uint32_t id) -> std::optional<StreamTarget>
    {
        if (id == 0)
        {
            // PipeWire's default output: no target, the session manager links it.
            StreamTarget target;
            target.displayName = "the default output";
            return target;
        }
        std::shared_ptr<Impl> impl = weak.lock();
        return impl ? impl->TargetFor(id, false) : std::nullopt;
    };
    std::optional<StreamTarget> target = resolve(deviceId);
    if (!target)
    {
        return nullptr;
    }
    return std::make_unique<PipeWirePlaybackStream>(impl_->context, std::move(*target), std::move(resolve),
                                                    std::move(callback));
}

}  // namespace tidemix::platform::pipewire

#else  // no PipeWire in this build

namespace tidemix::platform::pipewire
{
struct PipeWireAudioSystem::Impl
{
};

bool PipeWireAudioSystem::Available()
{
    return false;
}

std::unique_ptr<PipeWireAudioSystem> PipeWireAudioSystem::Connect(const std::string&, std::string* whyNot)
{
    if (whyNot != nullptr)
    {
        *whyNot = "this build has no PipeWire support";
    }
    return nullptr;
}

PipeWireAudioSystem::PipeWireAudioSystem(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
PipeWireAudioSystem::~PipeWireAudioSystem() = default;
bool PipeWireAudioSystem::Connected() const
{
    return false;
}
std::unique_ptr<Applications> PipeWireAudioSystem::CreateApplications()
{
    return nullptr;
}
bool PipeWireAudioSystem::Synchronize(int)
{
    return false;
}
std::vector<AudioDeviceInfo> PipeWireAudioSystem::Devices()
{
    return {};
}
std::optional<uint32_t> PipeWireAudioSystem::DefaultOutput()
{
    return std::nullopt;
}
ListenerToken PipeWireAudioSystem::AddDeviceListListener(std::function<void()>)
{
    return 0;
}
ListenerToken PipeWireAudioSystem::AddDefaultOutputListener(std::function<void()>)
{
    return 0;
}
void PipeWireAudioSystem::RemoveListener(ListenerToken) {}
std::unique_ptr<CaptureStream> PipeWireAudioSystem::OpenCapture(uint32_t, CaptureCallback)
{
    return nullptr;
}
std::unique_ptr<PlaybackStream> PipeWireAudioSystem::OpenPlayback(uint32_t, PlaybackCallback)
{
    return nullptr;
}
}  // namespace tidemix::platform::pipewire

#endif
