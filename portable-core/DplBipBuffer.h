#pragma once

#include <cstddef>

// A bip buffer: the writer reserves and commits contiguous regions, the
// reader takes contiguous blocks, nothing is copied and nothing wraps inside
// a region. No lock and no atomics: the two sides keep out of each other's
// way with a lock of their own around the calls, which are constant-time and
// never allocate.
//
// Committed bytes live in up to two regions: A (older, read first) and B,
// which grows from the block's start once the space after A is too small.
class DplBipBuffer
{
public:
    DplBipBuffer() = default;
    // A copy has a block of its own with the same content and regions.
    DplBipBuffer(const DplBipBuffer& other);
    DplBipBuffer& operator=(const DplBipBuffer& other);
    ~DplBipBuffer();

    // False for 0 bytes or a failed allocation. Forgets the former block.
    bool allocate(size_t bytes);
    void deallocate();
    // Forgets regions and reservation; the block stays.
    void clear();

    // Opens a reservation of up to `wanted` bytes; `reserved` tells how many.
    // Null when there is no room. A new reservation replaces an open one.
    void* reserve(size_t wanted, size_t& reserved);
    // Closes the reservation, keeping its first `bytes` bytes (at most all of it).
    void commit(size_t bytes);
    // The oldest committed bytes as one block; null and 0 when empty.
    void* getContiguousBlock(size_t& size);
    // Gives back `bytes` from the start of the block getContiguousBlock returned.
    void decommitBlock(size_t bytes);

    size_t getCommittedSize() const { return sza_ + szb_; }
    size_t getReservationSize() const { return szResrv_; }
    size_t getBufferSize() const { return bufferLength_; }
    bool isInitialized() const { return storage_ != nullptr; }
    size_t getBFreeSpace() const { return ixa_ - ixb_ - szb_; }
    size_t getSpaceAfterA() const { return bufferLength_ - ixa_ - sza_; }

    // Region positions, for diagnostics and tests.
    size_t regionAStart() const { return ixa_; }
    size_t regionASize() const { return sza_; }
    size_t regionBStart() const { return ixb_; }
    size_t regionBSize() const { return szb_; }
    size_t reservationStart() const { return ixResrv_; }
    const unsigned char* data() const { return storage_; }

private:
    void ForgetRegions();
    void CopyFrom(const DplBipBuffer& other);

    unsigned char* storage_ = nullptr;
    size_t ixa_ = 0;
    size_t sza_ = 0;
    size_t ixb_ = 0;
    size_t szb_ = 0;
    size_t bufferLength_ = 0;
    size_t ixResrv_ = 0;
    size_t szResrv_ = 0;
};
