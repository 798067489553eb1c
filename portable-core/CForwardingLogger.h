#pragma once

#include <atomic>

#include "portable-core/CRelayLogger.h"
#include "portable-core/OCQueue.h"

// Takes log bytes without ever blocking (a real-time thread may log through
// it) and hands them on to a target later, from ForwardSome. The bytes wait
// in a lock-free ring; a message that doesn't fit is dropped whole.
class CForwardingLogger : public CRelayLogger
{
public:
    // `ringBytes` must be a power of two (else the int -1 is thrown). With
    // `doubled`, a span that wraps the ring's end is forwarded in one piece.
    CForwardingLogger(CCountedPtr<CRelayLogger> target, CRelayLogLevel lowest, int ringBytes, bool doubled);
    ~CForwardingLogger() override;

    int WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes, int length) override;

    // Moves what has queued to the target; returns the bytes moved. One
    // forwarder at a time: a call that finds another at work returns 0.
    int ForwardSome();

protected:
    // Called after each write; a subclass starts the forwarding from here.
    virtual void SignalForward() {}

private:
    OCQueueIndex index_;
    CCountedPtr<CRelayLogger> target_;
    unsigned char* ring_ = nullptr;
    CRelayLogLevel lowest_;
    bool doubled_;
    std::atomic_flag forwarding_ = ATOMIC_FLAG_INIT;
};
