#pragma once
// Recycling of large heap blocks. Frames allocate and free the same full-size working images
// over and over; handing those blocks back to the system and taking them again costs a page
// fault for every 4 KB touched, which can take longer than the pixel work itself. The cache
// keeps a bounded number of recently freed large blocks and hands them out again to requests of
// about the same size.
#include <cstddef>

namespace blockcache {

// Blocks below this size go straight to malloc and free.
constexpr size_t kLeastBlock = size_t(1) << 20;
// At most this many blocks and bytes wait in the cache; the oldest go back to the system first.
constexpr int kMostBlocks = 32;
constexpr size_t kMostBytes = size_t(384) << 20;

// A block of at least `size` bytes from malloc or the cache; null when the system has none.
void* Take(size_t size);
// Returns a block that Take handed out. Anything else (a block from another allocator, null)
// is passed to free.
void Give(void* block);
// Frees every cached block.
void Drain();
// Frees every cached block and forgets the blocks handed out: from now on they are plain malloc
// blocks to Give. Called when another allocator takes over, since blocks handed out now may be
// freed by it and their addresses reused for small blocks.
void Forget();
// Frees every cached block and the cache itself, so that a shared object that is unloaded
// gives all of its memory back. Blocks handed out before are plain malloc blocks to Give from
// now on; the next large request makes a new cache. Not to be called while other threads
// allocate.
void Release();
// Bytes and blocks waiting in the cache now.
size_t CachedBytes();
int CachedBlocks();
// Whether the cache exists now: it is made by the first large request and ended by Release.
bool Exists();

} // namespace blockcache
