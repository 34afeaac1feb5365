#pragma once
// The process-wide heap of every library object. All allocations go through one replaceable pair
// of functions (malloc/free unless an allocator is installed); an exhausted heap throws DQErr 1.
#include <cstddef>

using ZUMemAllocateFunction = void* (*)(void* context, size_t size);
using ZUMemReleaseFunction = void (*)(void* context, void* pointer);

// Installs an allocator; null functions restore malloc and free.
void ZUMemSetAllocator(void* context, ZUMemAllocateFunction allocate, ZUMemReleaseFunction release);
// Allocates `size` bytes from the current allocator; throws DQErr 1 when it returns null.
void* ZUMemAllocate(size_t size);
// Returns a block to the current allocator; null is accepted.
void ZUMemRelease(void* pointer);
// Takes a new block of `newSize`, copies min(newSize, oldSize) bytes, releases the old block.
void* ZUMemResize(void* pointer, size_t newSize, size_t oldSize);

// Root of every heap object of the library: new and delete go through the heap above. The tag
// argument of the tagged forms identifies the call site and is ignored.
class ZUMem {
public:
    static void* operator new(size_t size) { return ZUMemAllocate(size); }
    static void* operator new[](size_t size) { return ZUMemAllocate(size); }
    static void* operator new(size_t size, int /*tag*/) { return ZUMemAllocate(size); }
    static void* operator new[](size_t size, int /*tag*/) { return ZUMemAllocate(size); }
    static void operator delete(void* pointer) { ZUMemRelease(pointer); }
    static void operator delete[](void* pointer) { ZUMemRelease(pointer); }
    static void operator delete(void* pointer, int /*tag*/) { ZUMemRelease(pointer); }
    static void operator delete[](void* pointer, int /*tag*/) { ZUMemRelease(pointer); }
};
