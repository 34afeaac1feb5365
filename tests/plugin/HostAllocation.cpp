#include "tests/plugin/HostAllocation.h"

#include <atomic>
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

// The executable's definition interposes over the standard library's, for the plug-in as well:
// the shared object leaves this operation undefined and takes it from the loading process.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (size != 0 && size == gFaultBytes && gFaultPasses-- == 0) {
        gFaultBytes = 0;
        gFaultStruck = true;
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}
