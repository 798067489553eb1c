#pragma once

#include "portable-core/CDplThreadMutex.h"

// Private to the manager's files. Takes the mixer lock, then the microphone
// lock: the one order of the two.
class MixerThenMicrophoneLock
{
public:
    MixerThenMicrophoneLock(CDplThreadMutex& mixer, CDplThreadMutex& microphone)
        : mixer_(mixer), microphone_(microphone)
    {
        mixer_.Lock();
        microphone_.Lock();
    }
    ~MixerThenMicrophoneLock()
    {
        microphone_.Unlock();
        mixer_.Unlock();
    }
    MixerThenMicrophoneLock(const MixerThenMicrophoneLock&) = delete;
    MixerThenMicrophoneLock& operator=(const MixerThenMicrophoneLock&) = delete;

private:
    CDplThreadMutex& mixer_;
    CDplThreadMutex& microphone_;
};
