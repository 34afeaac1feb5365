#include "image/Parallel.h"

#include <cassert>
#include <cstdio>

// The host's fork: runs `function(argument)` on every host worker at once and returns when all
// have finished; each worker asks the host for its slice of the frame in pixels.
extern "C" {
int sparkMpFork(void (*function)(void*), int argumentCount, void* argument);
int sparkMpInfo(unsigned long* offset, unsigned long* size);

int Width = 0;
int Height = 0;
}

namespace {
constexpr int kMaxWorkers = 64;

struct ZUMPWorkerSlot {
    int firstRow = -1;
    int lastRow = -1;
    va_list varArgs;
    ZUMPRowFunction rowFunction = nullptr;
    int index = 0;
    int totalRows = 0;
    int threads = 0;
};

ZUMPWorkerSlot gSlots[kMaxWorkers];
int gNumThreads = 1;
#ifndef NDEBUG
std::atomic<bool> gInFork{false};
#endif

void ZUMPWorker(void* table) {
    auto* slots = static_cast<ZUMPWorkerSlot*>(table);
    const uint64_t pixels = static_cast<uint64_t>(ZUMPSparkGetNumberOfFramePixels());
    unsigned long offset = 0;
    unsigned long size = 0;
    sparkMpInfo(&offset, &size);
    const uint64_t share = pixels / static_cast<uint64_t>(gNumThreads);
    const uint64_t index = offset / share;
    // A host may offer more workers than the table holds; those beyond it have no band (the
    // band count is capped at the table's size) and must not read past it.
    if (index >= static_cast<uint64_t>(gNumThreads) || index >= uint64_t(kMaxWorkers)) return;
    ZUMPWorkerSlot& slot = slots[index];
    if (index >= static_cast<uint64_t>(slot.totalRows) ||
        index >= static_cast<uint64_t>(slot.threads))
        return;
    va_list copy;
    va_copy(copy, slot.varArgs);
    slot.rowFunction(static_cast<int>(index), 0, slot.firstRow, slot.lastRow, &copy, &slot);
    va_end(copy);
}
} // namespace

int64_t ZUMPSparkGetNumberOfFramePixels() {
    return static_cast<int64_t>(static_cast<int32_t>(Width * Height));
}

int ZUMPGetNumThreads() {
    return gNumThreads;
}

void ZUMPSetNumThreads(int threads) {
    gNumThreads = threads;
}

int ZUMPGetUsableThreads() {
    if (gNumThreads <= 0) gNumThreads = 1;
    return gNumThreads;
}

int ZUMPNumThreadsForRows(int rows) {
    // No more bands than the slot table holds, however many workers the host offers.
    const int n = ZUMPGetUsableThreads() < kMaxWorkers ? ZUMPGetUsableThreads() : kMaxWorkers;
    int t = n >= rows ? rows : n;
    while (t > 1) {
        if (rows / t > 15) return t;
        --t;
    }
    return t;
}

void ZUMPRowsForThread(int threads, int index, int rows, int* first, int* last) {
    const int chunk = rows / threads;
    *first = chunk * index;
    *last = index >= threads - 1 ? rows - 1 : *first + chunk - 1;
}

int ZUMPParallelFor(int threads, int rows, ZUMPRowFunction function, ...) {
    va_list args;
    va_start(args, function);
    int result = 0;
    const int workers = gNumThreads > kMaxWorkers ? kMaxWorkers : gNumThreads;
    // A frame with fewer pixels than workers cannot tell workers apart by their slices; such a
    // call, like a single band, runs on the calling thread.
    const bool serial = threads <= 1 || rows <= 1 || threads > workers ||
                        ZUMPSparkGetNumberOfFramePixels() < workers;
    if (serial) {
        if (threads <= 1 || rows <= 1) {
            result = function(0, 0, 0, rows - 1, &args);
        } else {
            for (int i = 0; i < threads; ++i) {
                int first = 0;
                int last = 0;
                ZUMPRowsForThread(threads, i, rows, &first, &last);
                va_list copy;
                va_copy(copy, args);
                result = function(i, 0, first, last, &copy);
                va_end(copy);
            }
        }
        va_end(args);
        return result;
    }
#ifndef NDEBUG
    const bool nested = gInFork.exchange(true);
    assert(!nested && "ZUMPParallelFor must not be nested");
    (void)nested;
#endif
    for (int i = 0; i < workers; ++i) {
        ZUMPWorkerSlot& slot = gSlots[i];
        slot.totalRows = rows;
        slot.threads = threads;
        va_copy(slot.varArgs, args);
        slot.rowFunction = function;
        slot.index = i;
    }
    for (int i = 0; i < threads; ++i)
        ZUMPRowsForThread(threads, i, rows, &gSlots[i].firstRow, &gSlots[i].lastRow);
    result = sparkMpFork(&ZUMPWorker, 1, gSlots);
    for (int i = 0; i < workers; ++i)
        va_end(gSlots[i].varArgs);
#ifndef NDEBUG
    gInFork.store(false);
#endif
    va_end(args);
    return result;
}
