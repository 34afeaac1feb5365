#include "image/MutexPool.h"

#include "image/Error.h"

#include <cstddef>
#include <new>

namespace {
struct MutexBlock {
    int count;
    ZUMPMutexRecord records[1];
};

MutexBlock* BlockOf(ZUMPMutexRecord** array) {
    return reinterpret_cast<MutexBlock*>(reinterpret_cast<uint8_t*>(array[0]) -
                                         offsetof(MutexBlock, records));
}
} // namespace

ZUMPMutexRecord** ZUMPCreateMutexArray(int count) {
    if (count <= 0) return nullptr;
    auto** array = static_cast<ZUMPMutexRecord**>(ZUMemAllocate(sizeof(void*) * count));
    MutexBlock* block = nullptr;
    try {
        block = static_cast<MutexBlock*>(
            ZUMemAllocate(offsetof(MutexBlock, records) + sizeof(ZUMPMutexRecord) * count));
    } catch (DQErr) {
        ZUMemRelease(array);
        throw;
    }
    block->count = count;
    for (int i = 0; i < count; ++i) {
        ZUMPMutexRecord* record = &block->records[i];
        record->valid = pthread_mutex_init(&record->mutex, nullptr) == 0;
        array[i] = record;
        if (!record->valid) {
            for (int j = i - 1; j >= 0; --j)
                pthread_mutex_destroy(&block->records[j].mutex);
            ZUMemRelease(block);
            ZUMemRelease(array);
            return nullptr;
        }
    }
    return array;
}

void ZUMPDestroyMutexArray(ZUMPMutexRecord** array) {
    if (!array) return;
    MutexBlock* block = BlockOf(array);
    for (int i = block->count - 1; i >= 0; --i)
        if (block->records[i].valid) pthread_mutex_destroy(&block->records[i].mutex);
    ZUMemRelease(block);
    ZUMemRelease(array);
}

void ZUMPMutexLock(ZUMPMutexRecord* record) {
    while (pthread_mutex_trylock(&record->mutex) != 0) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }
}

void ZUMPMutexUnlock(ZUMPMutexRecord* record) {
    pthread_mutex_unlock(&record->mutex);
}

ZUMP_BinarySemaphore::ZUMP_BinarySemaphore(bool open) {
    Create(open);
}

ZUMP_BinarySemaphore::~ZUMP_BinarySemaphore() {
    if (mutexValid) pthread_mutex_destroy(&mutex);
    mutexValid = 0;
    created = 0;
}

void ZUMP_BinarySemaphore::Create(bool open) {
    if (created) return;
    if (pthread_mutex_init(&mutex, nullptr) != 0) DQThrow(kDQErrMemory);
    mutexValid = 1;
    pthread_mutex_lock(&mutex);
    if (open) pthread_mutex_unlock(&mutex);
    created = 1;
}

void ZUMP_BinarySemaphore::Wait() {
    pthread_mutex_lock(&mutex);
}

void ZUMP_BinarySemaphore::Signal() {
    pthread_mutex_unlock(&mutex);
}
