// Built only with PipeWire; see PipeWireAudioSystem.h for the backend.
#if TIDEMIX_HAVE_PIPEWIRE
#include "platform/pipewire/PipeWireContext.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>

#include "portable-core/DRAVLog.h"

namespace tidemix::platform::pipewire
{
namespace
{

void InitLibraryOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}
}  // namespace

PipeWireContext::Lock::Lock(const PipeWireContext& context) : loop_(context.loop_)
{
    pw_thread_loop_lock(loop_);
}

PipeWireContext::Lock::~Lock()
{
    pw_thread_loop_unlock(loop_);
}

std::shared_ptr<PipeWireContext> PipeWireContext::Connect(const std::string& remoteName, std::string* whyNot)
{
    InitLibraryOnce();
    std::shared_ptr<PipeWireContext> self(new PipeWireContext());
    auto fail = [&](const std::string& why) -> std::shared_ptr<PipeWireContext>
    {
        if (whyNot != nullptr)
        {
            *whyNot = why;
        }
        return nullptr;
    };

    self->loop_ = pw_thread_loop_new("tidemix-pw", nullptr);
    if (self->loop_ == nullptr)
    {
        return fail(std::string("cannot make a PipeWire thread loop: ") + strerror(errno));
    }
    pw_properties* contextProps = pw_properties_new(PW_KEY_APP_NAME, "libTidemixApi", nullptr);
    self->context_ = pw_context_new(pw_thread_loop_get_loop(self->loop_), contextProps, 0);
    if (self->context_ == nullptr)
    {
        return fail(std::string("cannot make a PipeWire context: ") + strerror(errno));
    }
    if (pw_thread_loop_start(self->loop_) < 0)
    {
        return fail("cannot start the PipeWire thread loop");
    }

    Lock lock(*self);
    pw_properties* coreProps = nullptr;
    if (!remoteName.empty())
    {
        coreProps = pw_properties_new(PW_KEY_REMOTE_NAME, remoteName.c_str(), nullptr);
    }
    self->core_ = pw_context_connect(self->context_, coreProps, 0);
    if (self->core_ == nullptr)
    {
        int error = errno;
        const char* remote = !remoteName.empty()                    ? remoteName.c_str()
                             : getenv("PIPEWIRE_REMOTE") != nullptr ? getenv("PIPEWIRE_REMOTE")
                                                                    : "pipewire-0";
        return fail(std::string("no PipeWire daemon reachable at \"") + remote + "\" (" + strerror(error) +
                    ")");
    }
    static const pw_core_events kEvents = []
    {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.done = &PipeWireContext::OnCoreDone;
        events.error = &PipeWireContext::OnCoreError;
        return events;
    }();
    pw_core_add_listener(self->core_, &self->coreListener_, &kEvents, self.get());
    self->connected_.store(true);
    return self;
}

PipeWireContext::~PipeWireContext()
{
    if (loop_ != nullptr)
    {
        // Leave the loop first: nothing may run while the core goes away.
        pw_thread_loop_stop(loop_);
    }
    if (core_ != nullptr)
    {
        spa_hook_remove(&coreListener_);
        pw_core_disconnect(core_);
    }
    if (context_ != nullptr)
    {
        pw_context_destroy(context_);
    }
    if (loop_ != nullptr)
    {
        pw_thread_loop_destroy(loop_);
    }
}

bool PipeWireContext::OnLoopThread() const
{
    return pw_thread_loop_in_thread(loop_);
}

bool PipeWireContext::RoundTrip(int timeoutSeconds)
{
    Lock lock(*this);
    if (!connected_.load())
    {
        return false;
    }
    const int seq = pw_core_sync(core_, PW_ID_CORE, 0);
    timespec deadline{};
    pw_thread_loop_get_time(loop_, &deadline, static_cast<int64_t>(timeoutSeconds) * SPA_NSEC_PER_SEC);
    while (connected_.load() && lastDoneSeq_ < seq)
    {
        if (pw_thread_loop_timed_wait_full(loop_, &deadline) != 0)
        {
            return false;
        }
    }
    return connected_.load();
}

void PipeWireContext::SetConnectionLostHandler(std::function<void(const std::string&)> handler)
{
    Lock lock(*this);
    lostHandler_ = std::move(handler);
}

void PipeWireContext::OnCoreDone(void* data, uint32_t id, int seq)
{
    auto* self = static_cast<PipeWireContext*>(data);
    if (id == PW_ID_CORE)
    {
        self->lastDoneSeq_ = seq;
        pw_thread_loop_signal(self->loop_, false);
    }
}

void PipeWireContext::OnCoreError(void* data, uint32_t id, int /*seq*/, int res, const char* message)
{
    auto* self = static_cast<PipeWireContext*>(data);
    if (id != PW_ID_CORE || res != -EPIPE)
    {
        // Errors about single objects reach the objects' own listeners.
        return;
    }
    if (!self->connected_.exchange(false))
    {
        return;
    }
    std::string why = message != nullptr && *message != '\0' ? message : strerror(-res);
    DRAVLogPrintf(
        kDbgPrintLevelError,
        "PipeWire: lost the connection to the daemon (%s); audio devices are gone and streams are silent",
        why.c_str());
    pw_thread_loop_signal(self->loop_, false);
    if (self->lostHandler_)
    {
        self->lostHandler_(why);
    }
}

}  // namespace tidemix::platform::pipewire

#endif
