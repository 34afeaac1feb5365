#pragma once
// Pools of row mutexes for operations whose bands write into other bands' rows, and a binary
// semaphore. Holds are very short, so the lock spins on a try-lock and never sleeps.
#include "image/Mem.h"

#include <cstdint>
#include <pthread.h>

struct ZUMPMutexRecord {
    uint8_t valid;
    pthread_mutex_t mutex;
};

// An array of `count` pointers to records that stand in one block headed by their count; null
// when a mutex cannot be made (what was made is destroyed again).
ZUMPMutexRecord** ZUMPCreateMutexArray(int count);
// Destroys all records in reverse order and frees block and array; null is accepted.
void ZUMPDestroyMutexArray(ZUMPMutexRecord** array);
void ZUMPMutexLock(ZUMPMutexRecord* record);
void ZUMPMutexUnlock(ZUMPMutexRecord* record);

class ZUMP_BinarySemaphore : public ZUMem {
public:
    // Creates the mutex and takes it; `open` gives it back at once. Throws DQErr 1 on failure.
    explicit ZUMP_BinarySemaphore(bool open);
    virtual ~ZUMP_BinarySemaphore();
    // A second creation on the same object does nothing.
    void Create(bool open);
    void Wait();
    void Signal();

    uint8_t mutexValid = 0;
    pthread_mutex_t mutex;
    uint8_t created = 0;
};
