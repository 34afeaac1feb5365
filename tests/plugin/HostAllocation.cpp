#include "tests/plugin/HostAllocation.h"

#include <atomic>
#include <dlfcn.h>
#include <new>

namespace {

std::atomic<std::size_t> gFaultBytes{0}; // 0: disarmed
std::atomic<int> gFaultPasses{0};
std::atomic<bool> gFaultStruck{false};

} // namespace

void HostFailAllocation(std::size_t bytes, int passes) {
    gFaultPasses = passes;
    gFaultStruck = false;
    gFaultBytes = bytes;
}

bool HostAllocationFaultStruck() {
    gFaultBytes = 0;
    return gFaultStruck;
}

namespace {

using NothrowArrayNew = void* (*)(std::size_t, const std::nothrow_t&) noexcept;

// The definition this one interposes over (the standard library's, or a sanitizer's), so that
// blocks come from, and go back to, the allocator that delete[] uses. Calling the throwing form
// instead would make a failed allocation an abort under a sanitizer, which reports it rather
// than throwing.
NothrowArrayNew NextNothrowArrayNew() {
    static const NothrowArrayNew next =
        reinterpret_cast<NothrowArrayNew>(dlsym(RTLD_NEXT, "_ZnamRKSt9nothrow_t"));
    return next;
}

} // namespace

// The executable's definition interposes over the standard library's, for the plug-in as well:
// the shared object leaves this operation undefined and takes it from the loading process.
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    if (size != 0 && size == gFaultBytes && gFaultPasses-- == 0) {
        gFaultBytes = 0;
        gFaultStruck = true;
        return nullptr;
    }
    const NothrowArrayNew next = NextNothrowArrayNew();
    return next ? next(size, tag) : nullptr;
}

#if defined(__SANITIZE_ADDRESS__)
// The suite asks for blocks no allocator can give (a frame of 2^20 x 2^20 pixels) and expects
// null, as from the system's allocator; the address sanitizer's aborts unless told otherwise.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
