#include "image/Mem.h"

#include "image/BlockCache.h"
#include "image/Error.h"

#include <cstring>

namespace {
struct Heap {
    void* context = nullptr;
    ZUMemAllocateFunction allocate = nullptr;
    ZUMemReleaseFunction release = nullptr;
};
Heap gHeap;
} // namespace

void ZUMemSetAllocator(void* context, ZUMemAllocateFunction allocate,
                       ZUMemReleaseFunction release) {
    blockcache::Forget();
    gHeap = Heap{context, allocate, release};
}

void* ZUMemAllocate(size_t size) {
    void* block = gHeap.allocate ? gHeap.allocate(gHeap.context, size) : blockcache::Take(size);
    if (!block) DQThrow(kDQErrMemory);
    return block;
}

void ZUMemRelease(void* pointer) {
    if (!pointer) return;
    if (gHeap.release)
        gHeap.release(gHeap.context, pointer);
    else
        blockcache::Give(pointer);
}

void* ZUMemResize(void* pointer, size_t newSize, size_t oldSize) {
    void* block = ZUMemAllocate(newSize);
    if (pointer) {
        std::memcpy(block, pointer, newSize < oldSize ? newSize : oldSize);
        ZUMemRelease(pointer);
    }
    return block;
}
