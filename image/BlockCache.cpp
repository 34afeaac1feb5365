#include "image/BlockCache.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace blockcache {
namespace {

struct Cached {
    void* block;
    size_t size;
};

class Cache {
public:
    void* Take(size_t size) {
        if (size < kLeastBlock) return std::malloc(size ? size : 1);
        {
            std::lock_guard lock(mutex_);
            // The smallest waiting block that fits without wasting more than half the request.
            int best = -1;
            for (int i = 0; i < int(waiting_.size()); ++i) {
                const size_t have = waiting_[i].size;
                if (have >= size && have <= size + size / 2 &&
                    (best < 0 || have < waiting_[best].size))
                    best = i;
            }
            if (best >= 0) {
                void* block = waiting_[best].block;
                bytes_ -= waiting_[best].size;
                waiting_.erase(waiting_.begin() + best);
                return block;
            }
        }
        void* block = std::malloc(size);
        if (!block) {
            // The system is short: give it what waits here and try once more.
            Drain();
            block = std::malloc(size);
        }
        if (block) {
            std::lock_guard lock(mutex_);
            sizes_[block] = size;
        }
        return block;
    }

    void Give(void* block) {
        if (!block) return;
        std::vector<void*> evicted;
        {
            std::lock_guard lock(mutex_);
            const auto found = sizes_.find(block);
            if (found == sizes_.end()) {
                evicted.push_back(block);
            } else {
                const size_t size = found->second;
                if (size > kMostBytes) {
                    sizes_.erase(found);
                    evicted.push_back(block);
                } else {
                    while (!waiting_.empty() &&
                           (int(waiting_.size()) >= kMostBlocks || bytes_ + size > kMostBytes)) {
                        bytes_ -= waiting_.front().size;
                        sizes_.erase(waiting_.front().block);
                        evicted.push_back(waiting_.front().block);
                        waiting_.erase(waiting_.begin());
                    }
                    waiting_.push_back({block, size});
                    bytes_ += size;
                }
            }
        }
        for (void* old : evicted)
            std::free(old);
    }

    void Drain() {
        std::vector<Cached> all;
        {
            std::lock_guard lock(mutex_);
            all.swap(waiting_);
            for (const Cached& cached : all)
                sizes_.erase(cached.block);
            bytes_ = 0;
        }
        for (const Cached& cached : all)
            std::free(cached.block);
    }

    void Forget() {
        Drain();
        std::lock_guard lock(mutex_);
        sizes_.clear();
    }

    size_t Bytes() {
        std::lock_guard lock(mutex_);
        return bytes_;
    }

    int Blocks() {
        std::lock_guard lock(mutex_);
        return int(waiting_.size());
    }

private:
    std::mutex mutex_;
    // Every large block handed out or waiting, with its size.
    std::unordered_map<void*, size_t> sizes_;
    // Waiting blocks, oldest first.
    std::vector<Cached> waiting_;
    size_t bytes_ = 0;
};

// The cache is made on the first large request and lives until Release, not as a static object:
// blocks freed by other objects' destructors at exit must not meet a destroyed cache. Without a
// cache every block is a plain malloc block, so Give frees it, and nothing makes a cache again
// but a request.
std::atomic<Cache*> gCache{nullptr};
std::mutex gCacheLifetime; // making and releasing the cache

Cache* Existing() {
    return gCache.load(std::memory_order_acquire);
}

Cache& TheCache() {
    if (Cache* cache = Existing()) return *cache;
    std::lock_guard lock(gCacheLifetime);
    Cache* cache = gCache.load(std::memory_order_relaxed);
    if (!cache) {
        cache = new Cache;
        gCache.store(cache, std::memory_order_release);
    }
    return *cache;
}

} // namespace

void* Take(size_t size) {
    if (size < kLeastBlock) return std::malloc(size ? size : 1);
    return TheCache().Take(size);
}
void Give(void* block) {
    if (Cache* cache = Existing())
        cache->Give(block);
    else
        std::free(block);
}
void Drain() {
    if (Cache* cache = Existing()) cache->Drain();
}
void Forget() {
    if (Cache* cache = Existing()) cache->Forget();
}
void Release() {
    std::lock_guard lock(gCacheLifetime);
    Cache* cache = gCache.exchange(nullptr, std::memory_order_acq_rel);
    if (!cache) return;
    cache->Drain();
    delete cache;
}
size_t CachedBytes() {
    Cache* cache = Existing();
    return cache ? cache->Bytes() : 0;
}
int CachedBlocks() {
    Cache* cache = Existing();
    return cache ? cache->Blocks() : 0;
}
bool Exists() {
    return Existing() != nullptr;
}

} // namespace blockcache
