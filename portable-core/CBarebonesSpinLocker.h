#pragma once

// A spin lock is one word: 0 free, 1 held. It has no owner, no recursion and
// no system object, so it may live in shared or static memory and be taken on
// a real-time thread. Every access goes through atomic operations.
typedef int volatile CBarebonesSpinLock;

// Scoped holder of a spin lock, plus the raw operations on a lock word.
// Holders must run a few instructions and never block.
class CBarebonesSpinLocker
{
public:
    // Sets the word to free; null is ignored.
    static void RawInit(int volatile* lock);
    // One attempt to take the lock; with `wait`, backs off and retries until
    // it gets it. A null word counts as taken.
    static bool RawLock(int volatile* lock, bool wait);
    // Frees the lock; false when the word wasn't held (1). A null word succeeds.
    static bool RawUnlock(int volatile* lock);
    // Nothing to release: the word owns no system object.
    static void RawDeinit(int volatile* lock);

    // With `acquireNow` it waits for the lock and holds it; without, it takes nothing.
    CBarebonesSpinLocker(int volatile& lock, bool acquireNow);
    ~CBarebonesSpinLocker();
    CBarebonesSpinLocker(const CBarebonesSpinLocker&) = delete;
    CBarebonesSpinLocker& operator=(const CBarebonesSpinLocker&) = delete;

    // True at once if held; otherwise takes the lock as RawLock does.
    bool Reacquire(bool wait);
    // True if not held. False if the word wasn't held (somebody else freed it),
    // and then this holder still counts as holding it.
    bool Release();

    bool IsHeld() const { return held_; }

private:
    int volatile* lock_;
    bool held_ = false;
};
