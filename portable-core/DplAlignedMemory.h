#pragma once

#include <cstddef>

// Byte stores of rings and audio buffers start on a 64-byte line: a copy
// between two such stores never hits glibc's slow case for sources and
// destinations a few bytes apart modulo a page, and never splits a line.
constexpr size_t kDplStoreAlignment = 64;

// An uninitialised block of at least `bytes` bytes (rounded up to a whole
// number of lines); null on failure or for 0 bytes. Free with DplAlignedFree.
void* DplAlignedAlloc(size_t bytes);
void DplAlignedFree(void* block);
