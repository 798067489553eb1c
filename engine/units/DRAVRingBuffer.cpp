#include "engine/units/DRAVRingBuffer.h"

#include <algorithm>
#include <chrono>
#include <climits>

#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"

namespace
{
int64_t WallClockMsec()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

int ClampToInt(int64_t value)
{
    return static_cast<int>(std::clamp<int64_t>(value, 0, INT_MAX));
}

// Silence written in pieces, so that refilling allocates nothing.
const unsigned char kZeros[4096] = {};
}  // namespace

DRAVRingBuffer::DRAVRingBuffer(const std::string& name) : ring_(name.c_str()), name_(name) {}

DRAVRingBuffer::~DRAVRingBuffer() = default;

DRAVResult DRAVRingBuffer::Init()
{
    CDplScopedLock lock(mutex_);
    readTimestamp_ = DRAVTimestamp(-1);
    writeTimestamp_ = DRAVTimestamp(-1);
    timeBase_ = DRAVGetHostTime().Get();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::Deinit()
{
    CDplScopedLock lock(mutex_);
    ring_.Destroy();
    capacity_ = 0;
    format_.reset();
    readTimestamp_ = DRAVTimestamp(-1);
    writeTimestamp_ = DRAVTimestamp(-1);
    bytesInBuffer_.store(0, std::memory_order_release);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::Stop()
{
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::Flush()
{
    CDplScopedLock lock(mutex_);
    ring_.Reset();
    readTimestamp_ = DRAVTimestamp(-1);
    writeTimestamp_ = DRAVTimestamp(-1);
    timeBase_ = DRAVGetHostTime().Get();
    bytesInBuffer_.store(0, std::memory_order_release);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::SetMaxNumItems(int)
{
    return DRAVResult(kDRAVResultOk);
}

int DRAVRingBuffer::GetMaxNumItems()
{
    return 0;
}

int DRAVRingBuffer::GetCurrentNumItems()
{
    return 0;
}

DRAVResult DRAVRingBuffer::SetMaxTotalSizeMB(int bytes)
{
    CDplScopedLock lock(mutex_);
    if (bytes < 0 || HeldLocked() >= bytes)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    const bool created = ring_.Create(bytes);
    capacity_ = created ? bytes : 0;
    // The content is gone, and with it the times it stood for.
    readTimestamp_ = DRAVTimestamp(-1);
    writeTimestamp_ = DRAVTimestamp(-1);
    bytesInBuffer_.store(0, std::memory_order_release);
    if (!created)
    {
        return DRAVResult(kDRAVResultErrInsufficientMemory, "RB: no ring of %d bytes <%s>", bytes,
                          name_.c_str());
    }
    return DRAVResult(kDRAVResultOk);
}

int DRAVRingBuffer::GetMaxTotalSizeMB()
{
    return ClampToInt(GetBytesInBuffer());
}

int DRAVRingBuffer::GetAvailableItemsAt(const DRAVTimestamp&)
{
    return 0;
}

DRAVDuration DRAVRingBuffer::GetAvailableDurationAt(const DRAVTimestamp&)
{
    return DRAVDuration(0);
}

std::shared_ptr<DRAVAudioFormat> DRAVRingBuffer::AudioFormatLocked() const
{
    return std::dynamic_pointer_cast<DRAVAudioFormat>(format_);
}

int64_t DRAVRingBuffer::HeldLocked()
{
    return ring_.GetFill();
}

void DRAVRingBuffer::UpdateHeldLocked()
{
    bytesInBuffer_.store(HeldLocked(), std::memory_order_release);
}

DRAVResult DRAVRingBuffer::AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer)
{
    if (!buffer)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (buffer->GetTimestamp().Get() < 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "RB: frame without time stamp <%s>", name_.c_str());
    }
    DRAVResult result;
    std::shared_ptr<DRAVMediaFormatChangeDelegate> delegateToTell;
    {
        std::shared_ptr<DRAVBufferRAM> storage;
        DRAVMediaBufferReadLock<DRAVBufferRAM> frameLock(buffer, &storage, &result);
        if (!result.Succeeded())
        {
            return result;
        }
        CDplScopedLock lock(mutex_);
        if (firstAddWallClockMsec_ < 0)
        {
            firstAddWallClockMsec_ = WallClockMsec();
        }
        const int64_t size = storage->GetSizeCurrent();
        const int64_t heldBefore = HeldLocked();
        bool overrun = false;
        const int stored = ring_.Write(storage->GetData(), ClampToInt(size), &overrun, dropHalf_);
        // A frame longer than the ring keeps only its end: the start of the
        // held bytes moved as in an overrun.
        const bool truncated = capacity_ > 0 && stored < size;

        // A frame without a duration lasts as long as its bytes.
        DRAVDuration duration = buffer->GetDuration();
        if (duration.Get() <= 0)
        {
            auto frameFormat = std::dynamic_pointer_cast<DRAVAudioFormat>(buffer->GetMediaFormat());
            duration = frameFormat ? frameFormat->GetDurationFromSize(size) : DRAVDuration(0);
        }
        const DRAVTimestamp previousRead = readTimestamp_;
        writeTimestamp_ = buffer->GetTimestamp() + duration;

        bool formatChanged = false;
        if (!format_ || !buffer->HasMediaFormat(format_))
        {
            std::shared_ptr<DRAVMediaFormat> copy;
            result = buffer->GetMediaFormatCopy(&copy);
            if (!result.Succeeded())
            {
                UpdateHeldLocked();
                return result;
            }
            format_ = std::move(copy);
            formatChanged = true;
            delegateToTell = formatChangeDelegate_.lock();
        }

        auto audio = AudioFormatLocked();
        UpdateHeldLocked();
        if (overrun || truncated)
        {
            overruns_.fetch_add(1, std::memory_order_relaxed);
            // Where the kept bytes begin: the writer's position less what is held.
            readTimestamp_ =
                audio ? writeTimestamp_ - audio->GetDurationFromSize(HeldLocked()) : buffer->GetTimestamp();
            logOverwrite_.Log(
                __func__,
                "RB: Ringbuffer overwrite - reset read timestamp to current write pos %s (was %s) <%s>",
                readTimestamp_.ToString().c_str(), previousRead.ToString().c_str(), name_.c_str());
        }
        else if (readTimestamp_.Get() < 0 || heldBefore == 0)
        {
            // Nothing was held: the next byte to read is this frame's first.
            readTimestamp_ = buffer->GetTimestamp();
        }
        if (audio)
        {
            timeBase_ += audio->GetDurationFromSize(size).Get();
            if (formatChanged)
            {
                dropHalf_ = capacity_ < audio->GetSizeFromDuration(DRAVDuration(kDropHalfBelowUsec));
            }
        }
        totalBytesWritten_ += size;
    }
    // Outside every lock: a delegate may take locks of its own, and those may
    // be held by a thread that is about to add to this ring.
    if (delegateToTell)
    {
        delegateToTell->MediaFormatChanged(nullptr, buffer);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVSlowLog& DRAVRingBuffer::Verbose(DRAVSlowLog& log)
{
    if (verbose_.load(std::memory_order_relaxed))
    {
        log.Force();
    }
    return log;
}

DRAVResult DRAVRingBuffer::PullBuffer(const DRAVTimestamp&, std::shared_ptr<DRAVMediaBuffer>*, bool)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVRingBuffer::PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                           const DRAVDuration& duration)
{
    int64_t frames = 0;
    {
        CDplScopedLock lock(mutex_);
        if (HeldLocked() <= 0)
        {
            return DRAVResult(kDRAVResultErrNoData);
        }
        if (out == nullptr)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        if (!format_)
        {
            return DRAVResult(kDRAVResultErrInvalidState);
        }
        if (duration.Get() <= kMinPullUsec)
        {
            return DRAVResult(kDRAVResultErrInvalidParameter);
        }
        auto audio = AudioFormatLocked();
        if (!audio)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        frames = audio->GetFramesFromDuration(duration);
    }
    return PullAudioBuffer(time, out, frames);
}

DRAVResult DRAVRingBuffer::PullAudioBuffer(const DRAVTimestamp&, std::shared_ptr<DRAVAudioBuffer>* out,
                                           int64_t frames)
{
    CDplScopedLock lock(mutex_);
    const int64_t held = HeldLocked();
    if (held <= 0)
    {
        shortPulls_.fetch_add(1, std::memory_order_relaxed);
        return DRAVResult(kDRAVResultErrNoData);
    }
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (!format_)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    auto audio = AudioFormatLocked();
    if (!audio)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const int64_t size = audio->GetBytesPerFrame() * frames;
    if (frames <= 0 || size <= 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    if (size > held)
    {
        shortPulls_.fetch_add(1, std::memory_order_relaxed);
        Verbose(logNotEnoughData_)
            .Log(__func__, "RB: NOT ENOUGH DATA: read %d, max %d bytes <%s> - return error", ClampToInt(size),
                 ClampToInt(held), name_.c_str());
        return DRAVResult(kDRAVResultErrInsufficientMemory);
    }
    auto frame = DRAVAudioBuffer::GetAudioBuffer(name_, size, *audio, nullptr, 0);
    if (!frame)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    DRAVResult result;
    {
        std::shared_ptr<DRAVBufferRAM> storage;
        DRAVMediaBufferWriteLock<DRAVBufferRAM> frameLock(frame, &storage, &result);
        if (!result.Succeeded())
        {
            return result;
        }
        const int read = ring_.Read(storage->GetData(), ClampToInt(size), false);
        if (read < size)
        {
            Verbose(logShortRead_)
                .Log(__func__, "RB: NOT ENOUGH DATA: Only read %d instead of %d bytes (%3d msec) <%s>", read,
                     ClampToInt(size), static_cast<int>(audio->GetDurationFromSize(read).Get() / 1000),
                     name_.c_str());
            result = DRAVResult(kDRAVResultErrInsufficientMemory);
        }
        storage->SetSizeCurrent(read);
        const DRAVDuration duration = audio->GetDurationFromSize(read);
        frame->SetTimestamp(readTimestamp_);
        frame->SetDuration(duration);
        readTimestamp_ += duration;
    }
    UpdateHeldLocked();
    *out = std::move(frame);
    return result;
}

DRAVResult DRAVRingBuffer::DropBuffersBefore(const DRAVTimestamp& time)
{
    CDplScopedLock lock(mutex_);
    const int64_t held = HeldLocked();
    if (held <= 0)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    if (!format_)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    auto audio = AudioFormatLocked();
    if (!audio)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (readTimestamp_.Get() / 1000 >= time.Get() / 1000)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    const int64_t drop = audio->GetSizeFromDuration(time - readTimestamp_);
    const int64_t keep = preserveBuffer_.load() ? audio->GetSizeFromDuration(DRAVDuration(kPreserveUsec)) : 0;
    const DRAVDuration dropDuration = audio->GetDurationFromSize(drop);
    if (dropDuration.Get() < kMinDropUsec)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    if (preserveBuffer_.load() && keep >= held)
    {
        return DRAVResult(kDRAVResultOk);
    }
    if (drop >= held)
    {
        logNotEnoughDropData_.Log(
            __func__, "RB: %s: Drop %d bytes (%d ms) => Not enough data: only %d available <%s>",
            time.ToString().c_str(), ClampToInt(drop), static_cast<int>(dropDuration.Get() / 1000),
            ClampToInt(held), name_.c_str());
        const DRAVDuration halfCapacity = audio->GetDurationFromSize(capacity_ / 2);
        MoveReadPointerLocked(DRAVDuration(std::min<int64_t>(halfCapacity.Get(), kMaxRefillUsec)));
        return DRAVResult(kDRAVResultErrInsufficientMemory);
    }
    const int skipped = ring_.Skip(ClampToInt(drop));
    if (skipped > 0)
    {
        const int64_t skippedMsec = audio->GetDurationFromSize(skipped).Get() / 1000;
        if (skippedMsec > 1)
        {
            Verbose(logDropped_)
                .Log(__func__, "RB: Dropped %6d of %6d bytes (%s...%s -> %3d msec) <%s>", skipped,
                     ClampToInt(held), readTimestamp_.ToString().c_str(), time.ToString().c_str(),
                     static_cast<int>(skippedMsec), name_.c_str());
        }
        readTimestamp_ = time;
    }
    UpdateHeldLocked();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::DropBuffersBetween(const DRAVTimestamp&, const DRAVTimestamp&)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVRingBuffer::MoveReadPointer(DRAVDuration duration)
{
    CDplScopedLock lock(mutex_);
    return MoveReadPointerLocked(duration);
}

DRAVResult DRAVRingBuffer::MoveReadPointerLocked(DRAVDuration duration)
{
    auto audio = AudioFormatLocked();
    if (!audio)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (writeTimestamp_.Get() < 0)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (duration >= BufferDurationLocked())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    const DRAVTimestamp newRead = writeTimestamp_ - duration;
    if (newRead.Get() < 0)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    ring_.Reset();
    int64_t left = audio->GetSizeFromDuration(duration);
    while (left > 0)
    {
        const int piece = static_cast<int>(std::min<int64_t>(left, sizeof(kZeros)));
        bool overrun = false;
        if (ring_.Write(kZeros, piece, &overrun, true) <= 0)
        {
            break;
        }
        left -= piece;
    }
    readTimestamp_ = newRead;
    UpdateHeldLocked();
    return DRAVResult(kDRAVResultOk);
}

DRAVDuration DRAVRingBuffer::GetBufferDuration()
{
    CDplScopedLock lock(mutex_);
    return BufferDurationLocked();
}

DRAVDuration DRAVRingBuffer::BufferDurationLocked() const
{
    auto audio = AudioFormatLocked();
    return audio ? audio->GetDurationFromSize(capacity_) : DRAVDuration(-2);
}

DRAVResult DRAVRingBuffer::GetStatistics(DRAVQueueStatistics* statistics)
{
    if (statistics == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(mutex_);
    statistics->bytes = HeldLocked();
    statistics->maxBytes = capacity_;
    statistics->firstTimestamp = readTimestamp_;
    statistics->lastTimestamp = writeTimestamp_;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::SetFormatChangeDelegate(std::shared_ptr<DRAVMediaFormatChangeDelegate> delegate)
{
    CDplScopedLock lock(mutex_);
    formatChangeDelegate_ = delegate;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVRingBuffer::AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface>)
{
    return DRAVResult(kDRAVResultOk);
}

void DRAVRingBuffer::SetVerboseLogging(bool verbose)
{
    verbose_.store(verbose, std::memory_order_relaxed);
}

void DRAVRingBuffer::SetPreserveBuffer(bool preserve)
{
    preserveBuffer_.store(preserve);
}

int64_t DRAVRingBuffer::GetCapacity()
{
    CDplScopedLock lock(mutex_);
    return capacity_;
}

DRAVTimestamp DRAVRingBuffer::GetReadTimestamp()
{
    CDplScopedLock lock(mutex_);
    return readTimestamp_;
}

DRAVTimestamp DRAVRingBuffer::GetWriteTimestamp()
{
    CDplScopedLock lock(mutex_);
    return writeTimestamp_;
}

int64_t DRAVRingBuffer::GetTotalBytesWritten()
{
    CDplScopedLock lock(mutex_);
    return totalBytesWritten_;
}

bool DRAVRingBuffer::GetDropHalf()
{
    CDplScopedLock lock(mutex_);
    return dropHalf_;
}

std::shared_ptr<DRAVMediaFormat> DRAVRingBuffer::GetMediaFormat()
{
    CDplScopedLock lock(mutex_);
    return format_;
}
