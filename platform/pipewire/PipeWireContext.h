#pragma once

// PipeWire's own headers stay inside this folder.
#include <pipewire/pipewire.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace tidemix::platform::pipewire
{

// One connection to the PipeWire daemon: its thread loop, context and core.
// Everything that touches PipeWire objects does so on the loop's thread or
// while holding the loop's lock (PipeWireContext::Lock).
class PipeWireContext
{
public:
    // Null when no daemon answers; *whyNot then says why. An empty remote
    // name means the usual one ($PIPEWIRE_REMOTE or "pipewire-0").
    static std::shared_ptr<PipeWireContext> Connect(const std::string& remoteName, std::string* whyNot);
    ~PipeWireContext();

    PipeWireContext(const PipeWireContext&) = delete;
    PipeWireContext& operator=(const PipeWireContext&) = delete;

    pw_thread_loop* Loop() const { return loop_; }
    pw_core* Core() const { return core_; }
    // False once the daemon has gone away; a lost connection stays lost.
    bool Connected() const { return connected_.load(); }
    bool OnLoopThread() const;

    // Waits until the daemon has answered everything sent before. False on
    // time-out or a lost connection. Not on the loop's thread; without the lock.
    bool RoundTrip(int timeoutSeconds);

    // Called on the loop's thread, once, when the daemon goes away.
    void SetConnectionLostHandler(std::function<void(const std::string& why)> handler);

    // The loop's lock (recursive), held for a scope.
    class Lock
    {
    public:
        explicit Lock(const PipeWireContext& context);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pw_thread_loop* loop_;
    };

private:
    PipeWireContext() = default;
    static void OnCoreDone(void* data, uint32_t id, int seq);
    static void OnCoreError(void* data, uint32_t id, int seq, int res, const char* message);

    pw_thread_loop* loop_ = nullptr;
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
    spa_hook coreListener_{};
    std::atomic<bool> connected_{false};
    int lastDoneSeq_ = -1;                                 // loop thread / under the lock
    std::function<void(const std::string&)> lostHandler_;  // under the lock
};

}  // namespace tidemix::platform::pipewire
