#pragma once
// The loading process replaces the nothrow array allocation that the plug-in's pixel buffers come
// from, so a test can make one chosen allocation fail, as a host running out of memory would.
#include <cstddef>

// Lets `passes` allocations of exactly `bytes` bytes succeed, fails the next one, then disarms.
void HostFailAllocation(std::size_t bytes, int passes);
// Disarms a fault that has not struck; true when it struck since it was armed.
bool HostAllocationFaultStruck();
